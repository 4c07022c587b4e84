#!/usr/bin/env bash
# Compiles the module's sources against firmware-api/include alone: headers
# that declare the firmware's platform and phonebook library exactly as the
# firmware provides them (firmware-api/README.md). Fails when the module uses
# a name only our stand-ins have, or a const where the firmware has none.
# Syntax only: nothing is built or linked.
set -euo pipefail
cd "$(dirname "$0")/.."

# jsoncpp and Boost are real dependencies; their headers come from the
# system, as system headers.
jsoncpp=$(pkg-config --cflags-only-I jsoncpp 2>/dev/null | sed 's/-I/-isystem /g')
[ -n "$jsoncpp" ] || jsoncpp="-isystem /usr/include/jsoncpp"

# shellcheck disable=SC2086
g++ -std=c++17 -fsyntax-only -Wall -Wextra -Werror \
  -I firmware-api/include -I kivo $jsoncpp \
  kivo/*.cpp
echo "kivo/*.cpp compile against the firmware's declared interfaces"
