#!/usr/bin/env bash
# Fails if clang-format 14 would change a source file.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
formatter=$(command -v clang-format-14 || command -v clang-format)
folders=()
for folder in src tests fuzz bench; do [ -d "$folder" ] && folders+=("$folder"); done
find "${folders[@]}" -name '*.h' -o -name '*.cpp' | sort | xargs "$formatter" --dry-run -Werror
echo "format: every file is as clang-format writes it"
