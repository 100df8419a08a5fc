#!/usr/bin/env bash
# Installs what the tool needs, builds it and runs the project's main job on the bundled
# example.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake --preset release -DQZXL_BUILD_TESTS=OFF -DQZXL_BUILD_BENCH=OFF >/dev/null
cmake --build --preset release --target qzxl_cli
./build/release/cli/qzxl consts
