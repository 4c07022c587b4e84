#!/usr/bin/env bash
# Installs the Debian packages the project builds with, when any is missing.
# Safe to run again: it does nothing when everything is there.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config
  libjsoncpp-dev libboost-dev libsqlite3-dev
  libedit-dev
  libpcap-dev
  libgtest-dev libgmock-dev
  libbenchmark-dev
)

# Further groups for the CI stages (scripts/ci-*.sh): bash scripts/deps.sh GROUP...
for group in "$@"; do
  case $group in
    sanitize) ;;   # g++ brings libasan, libubsan and libtsan
    fuzz) packages+=(clang libclang-rt-dev llvm) ;;
    arm) packages+=(g++-arm-linux-gnueabihf qemu-user googletest) ;;
    mutants) packages+=(python3) ;;
    package) packages+=(lintian) ;;   # dpkg-deb comes with dpkg
    capture) packages+=(tshark) ;;
    *) echo "deps.sh: unknown group $group" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}" >&2
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
# tshark's package asks whether non-root users may capture; we read files only.
echo "wireshark-common wireshark-common/install-setuid boolean false" | $SUDO debconf-set-selections
# A mirror in the middle of a sync can fail the update; what is listed
# already is usually enough.
$SUDO apt-get update || echo "apt-get update failed partly; going on" >&2
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y --no-install-recommends "${missing[@]}"
