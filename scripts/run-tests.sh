#!/usr/bin/env bash
# Installs what the suite needs, builds everything and runs the whole test suite.
set -euo pipefail
cd "$(dirname "$0")/.."
# A newcomer's first command comes first: it must build the tool and print the summary table
# of the bundled example. It builds in the same folder as the suite, so nothing is built twice.
example_log=$(mktemp)
bash scripts/run-example.sh | tee "$example_log"
if ! grep -q "partial input" "$example_log"; then
  echo "run-tests: scripts/run-example.sh printed no AutoColor summary table" >&2
  exit 1
fi
rm -f "$example_log"
bash scripts/install-deps.sh --test
cmake --preset release -DQZXL_BUILD_TESTS=ON -DQZXL_BUILD_BENCH=ON >/dev/null
cmake --build --preset release
# The Windows DLLs, which the COM tests check and run under Wine.
bash scripts/build-windows.sh
ctest --preset release
# The unit and command-line tests again under AddressSanitizer and UndefinedBehaviorSanitizer
# (leaks included).
cmake --preset debug >/dev/null
cmake --build --preset debug
ctest --preset debug
# Each fuzz target for a short bounded time, on seeds made from the shared corpus.
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
ctest --preset fuzz
