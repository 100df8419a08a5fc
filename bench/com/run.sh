#!/usr/bin/env bash
# Times calls across the COM boundary under Wine (64-bit): bench/com/calls.vbs against the
# DLLs of a Windows build folder.
#   bench/com/run.sh [build folder, default build/mingw64]
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
build="${1:-$root/build/mingw64}"
prefix="$(mktemp -d /tmp/qzxl-bench-wine.XXXXXX)"
trap 'bash "$root/tests/com/wine.sh" cleanup "$prefix" >/dev/null' EXIT
bash "$root/tests/com/wine.sh" setup "$prefix" "$build/com"
cp "$root/bench/com/calls.vbs" "$prefix/drive_c/qzxl/calls.vbs"
WINEPREFIX="$prefix" WINEDEBUG=-all timeout 900 wine cscript.exe //nologo 'C:\qzxl\calls.vbs' |
  tr -d '\r'
