#!/usr/bin/env bash
# Renders a song with `vimbo render` and with fluidsynth in turn, effects off and on, and prints how many times
# faster than the music each is: processor time of the whole command, banks read included.
#   bench/compare_songs.sh [SONG [BANK]]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
export VIMBO_SETTINGS= # defaults, whoever runs it
vimbo=${VIMBO:-build/release/bin/vimbo}
song=${1:-/usr/share/games/openttd/baseset/openmsx/city_blues_redfarn.mid}
bank=${2:-/usr/share/sounds/sf2/FluidR3_GM.sf2}
rate=44100
rounds=${ROUNDS:-3}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for file in "$song" "$bank"; do
    [ -r "$file" ] || { echo "compare_songs: $file is missing" >&2; exit 1; }
done
command -v fluidsynth >/dev/null || { echo "compare_songs: fluidsynth is missing" >&2; exit 1; }

# Least wall and processor seconds of some rounds of a command.
measure() {
    local best_wall=1e9 best_cpu=1e9
    for ((i = 0; i < rounds; ++i)); do
        { /usr/bin/env TIMEFORMAT='%R %U %S' bash -c 'time "$@" >/dev/null 2>/dev/null' _ "$@"; } 2>"$work/time"
        read -r wall user system <"$work/time"
        best_wall=$(awk -v a="$best_wall" -v b="$wall" 'BEGIN { print a < b ? a : b }')
        best_cpu=$(awk -v a="$best_cpu" -v u="$user" -v s="$system" 'BEGIN { print a < u + s ? a : u + s }')
    done
    echo "$best_wall $best_cpu"
}

"$vimbo" render "$song" -b "$bank" --rate $rate --keep-silence --tail 0 -o "$work/length.wav" --force
seconds=$("$vimbo" info --json "$work/length.wav" | grep -o '"frames": *[0-9]*' | head -1 | grep -o '[0-9]*')
seconds=$(awk -v f="$seconds" -v r=$rate 'BEGIN { print f / r }')
printf '%s, %.1f s, with %s\n' "$(basename "$song")" "$seconds" "$(basename "$bank")"
printf '%-34s %8s %8s %14s\n' "" "wall s" "cpu s" "times music"
row() {
    local label=$1
    shift
    read -r wall cpu < <(measure "$@")
    printf '%-34s %8.2f %8.2f %14.1f\n' "$label" "$wall" "$cpu" "$(awk -v s="$seconds" -v w="$wall" 'BEGIN { print s / w }')"
}
for effects in off on; do
    ours=() theirs=(-o synth.reverb.active=1 -o synth.chorus.active=1)
    if [ $effects = off ]; then
        ours=(--no-effects)
        theirs=(-o synth.reverb.active=0 -o synth.chorus.active=0)
    fi
    for jobs in 1 2; do
        row "vimbo, effects $effects, $jobs threads" "$vimbo" render "$song" -b "$bank" --rate $rate "${ours[@]}" \
            -j $jobs -o "$work/a.wav" --force
    done
    row "fluidsynth, effects $effects" fluidsynth -ni -r $rate "${theirs[@]}" -F "$work/b.wav" "$bank" "$song"
done
