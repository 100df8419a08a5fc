#!/usr/bin/env bash
# Installs what the suite needs, builds everything and runs the whole test suite.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh --test
cmake --preset release -DQZXL_BUILD_TESTS=ON -DQZXL_BUILD_BENCH=ON >/dev/null
cmake --build --preset release
# The Windows DLLs, which the COM tests check and run under Wine.
bash scripts/build-windows.sh
ctest --preset release
