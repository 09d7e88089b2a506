#!/usr/bin/env bash
# Counts the instructions that each step of the load pass takes for 10,000 and for 100,000 items, as valgrind sees them:
# unlike times they do not depend on what memory costs or on who else uses the machine. A table in Markdown.
#   bench/count_growth.sh [--smoke] [STEP...]      all steps take half an hour
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
less=10000
if [ "${1:-}" = --smoke ]; then
    less=100
    set -- merge/one_by_one
fi
bench=$PWD/build/release/bin/bench_model
[ $# -gt 0 ] || mapfile -t steps < <("$bench" --once)
[ $# -eq 0 ] || steps=("$@")
command -v valgrind >/dev/null || { echo "count_growth: valgrind is not installed" >&2; exit 1; }

# All instructions of one run.
count() {
    valgrind --tool=callgrind --callgrind-out-file=/dev/null "$bench" --once "$@" 2>&1 | awk '/Collected/ { print $NF }'
}

echo "| | $less, million instructions | ten times as many | ratio |"
echo "|---|---:|---:|---:|"
for name in "${steps[@]}"; do
    awk -v name="$name" -v a="$(count "$name" "$less")" -v b="$(count "$name" "$less" build)" \
        -v c="$(count "$name" "${less}0")" -v d="$(count "$name" "${less}0" build)" \
        'BEGIN { printf "| %s | %.1f | %.0f | %.1f |\n", name, (a - b) / 1e6, (c - d) / 1e6, (c - d) / (a - b) }'
done
