#!/usr/bin/env bash
# Installs the built library into a fresh prefix, builds tests/consumer against that install
# alone and runs it.   run.sh BUILD_DIR WORK_DIR
set -euo pipefail
build=$1 work=$2
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$work/prefix" >"$work/install.log"
cmake -S "$here" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo >"$work/configure.log"
cmake --build "$work/build" >"$work/build.log"
"$work/build/consumer"
