#!/usr/bin/env bash
# fuzz_all.sh SECONDS: fuzzes every target from its seeds, sharing the time between them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
mapfile -t targets < <(find build/fuzz/bin -name 'fuzz_*' -type f -executable | sort)
[ ${#targets[@]} -gt 0 ] || { echo "no fuzz targets built" >&2; exit 1; }
each=$(( ($1 + ${#targets[@]} - 1) / ${#targets[@]} ))
for target in "${targets[@]}"; do
    name=$(basename "$target")
    work=build/fuzz/corpus/$name
    mkdir -p "$work" build/fuzz/findings
    echo "-- $name for $each s"
    "$target" -max_total_time="$each" -rss_limit_mb=2048 -timeout=20 -print_final_stats=0 -verbosity=0 \
        -artifact_prefix="build/fuzz/findings/$name-" "$work" "fuzz/seeds/${name#fuzz_}"
done
