#!/usr/bin/env bash
# Times the synthesizer's kernels beside whole voices of fluidsynth, both in nanoseconds per voice and frame on one core.
# fluidsynth's figure holds modulation and event handling too, and its interpolation and filter are comparable (four
# points, one second-order section); the kernels' figure holds reading, filter, gains and sum only.
#   bench/compare_voices.sh [--smoke]
# --smoke renders a few seconds once: it shows that everything works, not how fast it is.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
bench=$PWD/build/release/bin/bench_voice_kernels
bank=${VIMBO_BANK:-/usr/share/sounds/sf2/TimGM6mb.sf2}
seconds=60 runs=5 minimum=0.5
if [ "${1:-}" = --smoke ]; then seconds=5 runs=1 minimum=0.01; fi
rate=48000 polyphony=200

work=$(mktemp -d "${TMPDIR:-/tmp}/vimbo-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

# bytes N...: the numbers as bytes.
bytes() { printf "$(printf '\\x%02x' "$@")"; }
# delta TICKS: a time of up to 2^21 - 1 ticks in MIDI's form of seven bits a byte.
delta() { bytes $((128 | $1 >> 14)) $((128 | $1 >> 7 & 127)) $(($1 & 127)); }
u32() { bytes $(($1 >> 24)) $(($1 >> 16 & 255)) $(($1 >> 8 & 255)) $(($1 & 255)); }

# song NOTES: sustained notes from the start to the end, spread over the channels that are not drums; strings, organs
# and pads, which do not die away.
song() {
    local notes=$1 programs=(48 49 16 19 88 89 90 50 51 52 17 18 91 94 95) channels=(0 1 2 3 4 5 6 7 8 10 11 12 13 14 15) i
    for i in "${!channels[@]}"; do bytes 0 $((0xC0 | channels[i])) "${programs[i]}"; done
    for ((i = 0; i < notes; i++)); do bytes 0 $((0x90 | channels[i % 15])) $((40 + i / 15 * 2)) 100; done
    delta $((seconds * 960)) # 480 ticks a quarter, two quarters a second
    for i in "${channels[@]}"; do bytes $((0xB0 | i)) 120 0 0; done # all sound off: players wait for notes that hang
    bytes 0xFF 0x2F 0
}

# midi NOTES FILE
midi() {
    song "$1" >"$work/track"
    { printf 'MThd\0\0\0\6\0\0\0\1\1\340MTrk'; u32 "$(stat -c %s "$work/track")"; cat "$work/track"; } >"$2"
}

# cpu FILE VOICES: CPU seconds of the quickest rendering, loading included.
cpu() {
    local run
    for ((run = 0; run < runs; run++)); do
        timeout 120 /usr/bin/time -f '%U' -o "$work/time" fluidsynth -n -i -q -R 0 -C 0 -g 0.1 -r "$rate" -o synth.polyphony="$2" \
            -o synth.cpu-cores=1 -T raw -F /dev/null "$bank" "$1" >"$work/log" 2>&1 || { cat "$work/log" >&2; return 1; }
        tail -n 1 "$work/time"
    done | sort -n | head -n 1
}

# More notes than the polyphony allows, so that exactly that many voices sound; silence of the same length is taken off.
midi 330 "$work/notes.mid"
midi 0 "$work/silence.mid"
nothing=$(cpu "$work/silence.mid" $polyphony)
for voices in $((polyphony / 2)) $polyphony; do
    some=$(cpu "$work/notes.mid" "$voices")
    awk -v a="$some" -v b="$nothing" -v v="$voices" -v s="$seconds" -v r="$rate" 'BEGIN {
        printf "fluidsynth, %d voices, effects off: %.2f s - %.2f s = %.2f ns per voice and frame\n",
               v, a, b, (a - b) * 1e9 / (v * s * r) }'
done
"$bench" --benchmark_filter='^chain/' --benchmark_min_time="$minimum" --benchmark_format=csv 2>/dev/null |
    awk -F, 'NR > 1 && /^"chain/ { gsub(/"/, "", $1); printf "%-32s %.2f ns per voice and frame\n", $1, $NF }'
