#!/usr/bin/env bash
# Checks a module as a plugin of the firmware. It may need no library but
# the C and C++ runtime and jsoncpp. It lists the symbols it leaves to the process that loads it and fails
# on any that the firmware's headers (firmware-api/include) do not declare.
# Allowed besides: the C and C++ runtime (versioned symbols of glibc,
# libstdc++, libgcc), jsoncpp (Json::) and Boost (boost::), and weak
# references the toolchain adds.
#
#   bash scripts/check-plugin.sh MODULE.so
set -euo pipefail
cd "$(dirname "$0")/.."
[ $# -eq 1 ] || { echo "usage: $0 MODULE.so" >&2; exit 2; }
module=$1

bad=0
while read -r needed; do
  case $needed in
    libc.so.*|libm.so.*|libstdc++.so.*|libgcc_s.so.*|ld-linux*.so.*|libjsoncpp.so.*) ;;
    *) echo "$module: needs $needed, which no firmware provides" >&2; bad=1 ;;
  esac
done < <(readelf -d "$module" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')

# Every identifier the headers declare, comments left out. A friend's name
# is the stand-ins' own and declares nothing.
declared=$(for h in $(find firmware-api/include -name '*.h'); do
             g++ -fpreprocessed -dD -E -P "$h" 2>/dev/null | grep -v '^\s*friend '
           done | grep -oE '[A-Za-z_][A-Za-z0-9_]*' | sort -u)

# The undefined symbols (field 7 UND) that are not weak and carry no
# version; demangled, one per line.
mapfile -t symbols < <(readelf --dyn-syms -W "$module" |
  awk '$7 == "UND" && $5 != "WEAK" && $8 != "" && $8 !~ /@/ { print $8 }' | c++filt | sort -u)

for s in "${symbols[@]}"; do
  name=${s#typeinfo name for }
  name=${name#typeinfo for }
  name=${name#vtable for }
  name=${name#VTT for }
  name=${name%%(*}                              # the parameter list
  name=$(sed -e 's/\[abi:[a-z0-9]*\]//g' -e ':a; s/<[^<>]*>//g; ta' <<<"$name")
  case $name in
    Json::*|boost::*) continue ;;
  esac
  undeclared=""
  IFS=: read -ra parts <<<"${name//::/:}"
  for part in "${parts[@]}"; do
    part=${part#\~}
    case $part in ''|operator*) continue ;; esac
    grep -qxF -- "$part" <<<"$declared" || undeclared=$part
  done
  if [ -n "$undeclared" ]; then
    echo "$module: $s: '$undeclared' is not declared in firmware-api/include" >&2
    bad=1
  else
    echo "firmware: $s"
  fi
done
[ $bad -eq 0 ] || exit 1
echo "$module leaves ${#symbols[@]} unversioned symbols to the loading process, all declared by the firmware's headers, jsoncpp or Boost"
