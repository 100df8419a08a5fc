#!/usr/bin/env bash
# Checks that every tracked C++ source is as clang-format (.clang-format) writes it. Generated
# sources protect themselves with "// clang-format off".
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v clang-format >/dev/null; then
  echo "format: clang-format is not installed (scripts/install-deps.sh installs it)"
  exit 1
fi
mapfile -t files < <(git ls-files -- '*.cpp' '*.hpp' '*.h')
clang-format --dry-run -Werror "${files[@]}"
echo "format: ${#files[@]} files as clang-format writes them"
