#!/usr/bin/env bash
# Installs the Debian packages the project needs; installs nothing that is already there.
#   scripts/install-deps.sh          what building and running the tool needs
#   scripts/install-deps.sh --test   also what the whole test suite needs (readers to check
#                                    our files with, the Windows cross-build under Wine, and
#                                    the German locale one Wine scenario runs in)
set -euo pipefail

packages=(build-essential cmake ninja-build pkg-config
          libpugixml-dev zlib1g-dev libdeflate-dev libcli11-dev libfmt-dev nlohmann-json3-dev
          libicu-dev)
if [ "${1:-}" = "--test" ]; then
  packages+=(libgtest-dev libgmock-dev googletest libbenchmark-dev clang-format
             python3-openpyxl libreoffice-calc-nogui
             wine wine64 g++-mingw-w64-x86-64 g++-mingw-w64-i686 mingw-w64-tools locales)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ]; then
  echo "installing: ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# Wine takes the user's locale from LANG; the C library needs the locale generated to accept
# that name too. Generated once: later runs find it and do nothing.
if [ "${1:-}" = "--test" ] && ! locale -a 2>/dev/null | grep -qix 'de_DE\.utf-\?8'; then
  echo "generating the de_DE.UTF-8 locale"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO localedef -i de_DE -f UTF-8 de_DE.UTF-8
fi
