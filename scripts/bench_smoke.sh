#!/usr/bin/env bash
# Runs every benchmark just long enough to see that it works; figures come from longer runs (see docs/benchmarks.md).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
for bench in build/release/bin/bench_*; do
    echo "-- $(basename "$bench")"
    "$bench" --benchmark_min_time=0.01 >/dev/null
done
bench/compare_convert.sh --smoke
bench/compare_codecs.sh --smoke
bench/compare_banks.sh --smoke
bench/open_sfz_folder.sh --smoke
if command -v valgrind >/dev/null; then bench/count_growth.sh --smoke; fi
