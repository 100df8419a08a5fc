#!/usr/bin/env bash
# Installs what the tool needs, builds it and runs the project's main job: colour-coding the
# bundled example model. The coloured copy goes to examples/out/ (ignored by git); the
# committed example is only read.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake --preset release -DQZXL_BUILD_TESTS=OFF -DQZXL_BUILD_BENCH=OFF >/dev/null
cmake --build --preset release --target qzxl_cli
mkdir -p examples/out
./build/release/cli/qzxl autocolor examples/model.xlsx -o examples/out/model.xlsx --names --quiet
