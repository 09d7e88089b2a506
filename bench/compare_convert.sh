#!/usr/bin/env bash
# Times vimbo beside sox, sndfile-convert, ffmpeg and cp on the same files, best of several runs, with ratios.
#   bench/compare_convert.sh [--smoke]
# --smoke uses small files and one run: it shows that everything works, not how fast it is.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
export VIMBO_SETTINGS= # defaults, whoever runs it
vimbo=$PWD/build/release/bin/vimbo
seconds=1190 runs=3 files=500
if [ "${1:-}" = --smoke ]; then seconds=2 runs=1 files=8; fi

work=$(mktemp -d "${TMPDIR:-/tmp}/vimbo-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
cores=$(nproc)

have() { command -v "$1" >/dev/null; }

# best COMMAND...: seconds of the quickest run, and the peak memory in MB.
best() {
    local run
    for ((run = 0; run < runs; run++)); do
        rm -rf "$work"/out.wav "$work"/vimbo-many "$work"/sox-many # nobody replaces: vimbo waits for the disk only when it does
        mkdir -p "$work/sox-many"
        /usr/bin/time -f '%e %M' -o "$work/time" "$@" >"$work/log" 2>&1 || { cat "$work/log" >&2; return 1; }
        tail -n 1 "$work/time"
    done | sort -n | head -n 1 | awk '{printf "%s %.0f", $1, $2 / 1024}'
}

# row NAME MEGABYTES COMMAND...
reference=""
row() {
    local name=$1 megabytes=$2 figures
    shift 2
    figures=$(best "$@")
    set -- $figures
    [ -n "$reference" ] || reference=$1
    awk -v n="$name" -v mb="$megabytes" -v s="$1" -v rss="$2" -v ref="$reference" 'BEGIN {
        s = s < 0.01 ? 0.01 : s; ref = ref < 0.01 ? 0.01 : ref
        printf "  %-28s %7.2f s  %7.0f MB/s  peak %5d MB  %5.2f x vimbo\n", n, s, mb / s, rss, s / ref }'
}

sox -n -r 44100 -c 2 -b 16 "$work/in.wav" synth "$seconds" pinknoise gain -6
size=$(stat -c %s "$work/in.wav")
mb=$(awk -v s="$size" 'BEGIN { print s / 1e6 }')
cat "$work/in.wav" >/dev/null
printf '%s MB of 16-bit stereo, page cache warm, best of %d, %d cores\n' "$mb" "$runs" "$cores"

echo "16-bit to 24-bit:"
reference=""
row vimbo "$mb" "$vimbo" convert -q --force "$work/in.wav" -t wav --data-format "PCM 24-bit" -o "$work/out.wav"
row sox "$mb" sox "$work/in.wav" -b 24 "$work/sox.wav"
have sndfile-convert && row sndfile-convert "$mb" sndfile-convert -pcm24 "$work/in.wav" "$work/snd.wav"
have ffmpeg && row ffmpeg "$mb" ffmpeg -nostdin -loglevel error -y -i "$work/in.wav" -c:a pcm_s24le "$work/ff.wav"
row cp "$mb" cp "$work/in.wav" "$work/cp.wav"
rm -f "$work"/{out,sox,snd,ff,cp}.wav

echo "16-bit to 32-bit float:"
reference=""
row vimbo "$mb" "$vimbo" convert -q --force "$work/in.wav" -t wav --data-format "Float 32-bit" -o "$work/out.wav"
row sox "$mb" sox "$work/in.wav" -e floating-point -b 32 "$work/sox.wav"
have sndfile-convert && row sndfile-convert "$mb" sndfile-convert -float32 "$work/in.wav" "$work/snd.wav"
have ffmpeg && row ffmpeg "$mb" ffmpeg -nostdin -loglevel error -y -i "$work/in.wav" -c:a pcm_f32le "$work/ff.wav"
row cp "$mb" cp "$work/in.wav" "$work/cp.wav"
rm -f "$work"/{out,sox,snd,ff,cp}.wav

echo "opening (vimbo info) a WAV of $mb MB and one of 20 kB:"
reference=""
sox -n -r 44100 -c 2 -b 16 "$work/small.wav" synth 0.1 pinknoise gain -6
row "info, long file" "$mb" "$vimbo" info "$work/in.wav"
row "info, short file" "$mb" "$vimbo" info "$work/small.wav"

echo "a folder of $files small files to 24-bit:"
mkdir "$work/many"
for ((i = 0; i < files; i++)); do cp "$work/small.wav" "$work/many/$i.wav"; done
mb=$(awk -v s="$(stat -c %s "$work/small.wav")" -v n="$files" 'BEGIN { print s * n / 1e6 }')
reference=""
row "vimbo, all cores" "$mb" "$vimbo" convert -q --force "$work/many" -t wav --data-format "PCM 24-bit" -o "$work/vimbo-many"
row "vimbo --jobs 1" "$mb" "$vimbo" convert -q --force --jobs 1 "$work/many" -t wav --data-format "PCM 24-bit" -o "$work/vimbo-many"
cat >"$work/sox-loop.sh" <<'LOOP'
for file in "$1"/many/*.wav; do sox "$file" -b 24 "$1/sox-many/${file##*/}"; done
LOOP
row "one sox process per file" "$mb" bash "$work/sox-loop.sh" "$work"
