#!/usr/bin/env bash
# Cross-builds the Windows COM server (QZXLLib.dll), the test host the script scenarios
# drive (QZXLTestHost.dll) and the COM layer's self-test program for 64-bit and 32-bit Windows with MinGW-w64, into the mingw64
# and mingw32 preset folders, where the CTest checks and Wine scenarios look for them.
#   QZXL_JOBS=n   limits the parallel compile jobs
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=()
[ -n "${QZXL_JOBS:-}" ] && jobs=(--parallel "$QZXL_JOBS")
for preset in mingw64 mingw32; do
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" --target qzxlcom qzxl_testhost qzxl_com_selftest "${jobs[@]}"
done
