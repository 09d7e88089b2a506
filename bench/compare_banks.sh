#!/usr/bin/env bash
# Times opening and rewriting a SoundFont bank beside fluidsynth and sf2dump, best of several runs, with ratios.
#   bench/compare_banks.sh [--smoke] [BANK.sf2]
# Without a bank, FluidR3 GM is taken where it is installed, else TimGM6mb. VIMBO names another build of the program.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
export VIMBO_SETTINGS= # defaults, whoever runs it
vimbo=${VIMBO:-$PWD/build/release/bin/vimbo}
runs=7
if [ "${1:-}" = --smoke ]; then
    runs=1
    shift
fi
bank=${1:-}
for candidate in /usr/share/sounds/sf2/FluidR3_GM.sf2 /usr/share/sounds/sf2/TimGM6mb.sf2; do
    [ -n "$bank" ] || [ ! -f "$candidate" ] || bank=$candidate
done
if [ ! -f "$bank" ]; then
    echo "skipped: no SoundFont bank is installed"
    exit 0
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/vimbo-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
have() { command -v "$1" >/dev/null; }

# best COMMAND...: milliseconds of the quickest run, and the peak memory in MB.
best() {
    local run start end
    for ((run = 0; run < runs; run++)); do
        rm -rf "$work"/out.*
        start=$EPOCHREALTIME
        /usr/bin/time -f '%M' -o "$work/time" "$@" >/dev/null 2>"$work/log" </dev/null || { cat "$work/log" >&2; return 1; }
        end=$EPOCHREALTIME
        awk -v a="$start" -v b="$end" -v kb="$(tail -n 1 "$work/time")" 'BEGIN { printf "%.1f %.0f\n", (b - a) * 1000, kb / 1024 }'
    done | sort -n | head -n 1
}

reference=""
beside=""
last=""
# row NAME COMMAND...: its time beside that of the first row, whose name is $beside.
row() {
    local name=$1 figures
    shift
    figures=$(best "$@")
    set -- $figures
    last=$1
    [ -n "$reference" ] || reference=$1
    awk -v n="$name" -v ms="$1" -v rss="$2" -v ref="$reference" -v beside="$beside" 'BEGIN {
        printf "  %-40s %8.1f ms  peak %4d MB  %6.2f x %s\n", n, ms, rss, ms / ref, beside }'
}

# A song of nothing, so that fluidsynth ends when the bank is open.
printf 'MThd\0\0\0\006\0\0\0\001\0\140MTrk\0\0\0\004\0\377\057\0' >"$work/empty.mid"
cat "$bank" >/dev/null
printf '%s (%d MB), page cache warm, best of %d, %d cores, whole processes\n' "$(basename "$bank")" \
    $(($(stat -c %s "$bank") / 1000000)) "$runs" "$(nproc)"

echo "Opening:"
beside=vimbo
row "vimbo info" "$vimbo" info "$bank"
row "vimbo convert --dry-run" "$vimbo" convert -q --dry-run "$bank" -t sf2 -o "$work/out.sf2"
opening=$last
have fluidsynth && row "fluidsynth, samples when played" \
    fluidsynth -niq -F /dev/null -T raw -o synth.dynamic-sample-loading=1 "$bank" "$work/empty.mid"
have fluidsynth && row "fluidsynth" fluidsynth -niq -F /dev/null -T raw "$bank" "$work/empty.mid"
have sf2dump && row "sf2dump" sf2dump "$bank"

# above OPENING CP: what the last row took beyond opening, in times of the copy.
above() {
    awk -v ms="$last" -v opening="$1" -v copy="$2" 'BEGIN {
        printf "  %-40s %8.1f ms  %26.2f x cp\n", "  of it beyond opening", ms - opening, (ms - opening) / copy }'
}

echo "Rewriting:"
beside=cp
reference=""
row "cp" cp "$bank" "$work/out.cp"
row "vimbo convert -t sf2" "$vimbo" convert -q --force "$bank" -t sf2 -o "$work/out.sf2"
above "$opening" "$reference"

echo "Exporting all samples:"
reference=""
mkdir "$work/waves"
"$vimbo" convert -q --name-mode number-name "$bank" -t wav -o "$work/waves/a.wav"
row "cp -r of the $(find "$work/waves" -type f | wc -l) files" cp -r "$work/waves" "$work/out.cp"
mkdir "$work/in"
ln -s "$(realpath "$bank")" "$work/in/bank.sf2"
row "vimbo convert -t wav" bash -c 'mkdir "$3" && "$1" convert -q "$2" -t wav -o "$3/a.wav"' - \
    "$vimbo" "$work/in/bank.sf2" "$work/out.waves"
above "$opening" "$reference"
