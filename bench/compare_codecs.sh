#!/usr/bin/env bash
# Times decoding and encoding of coded WAV files beside ffmpeg and sox: user seconds of whole commands, best of several
# runs, with ratios. Writing and reading of the plain side is the same for all and counts in.
#   bench/compare_codecs.sh [--smoke]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
export VIMBO_SETTINGS= # defaults, whoever runs it
vimbo=$PWD/build/release/bin/vimbo
seconds=600 runs=3
if [ "${1:-}" = --smoke ]; then seconds=2 runs=1; fi

work=$(mktemp -d "${TMPDIR:-/tmp}/vimbo-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

# best COMMAND...: user plus system seconds of the quickest run; "-" if the program cannot do it.
best() {
    local run
    for ((run = 0; run < runs; run++)); do
        rm -f "$work"/out.*
        /usr/bin/time -f '%U %S' -o "$work/time" "$@" >"$work/log" 2>&1 || { echo -; return; }
        tail -n 1 "$work/time" | awk '{print $1 + $2}'
    done | sort -n | head -n 1
}

row() {
    [ "$2" != - ] || { echo "vimbo failed: $1" >&2; cat "$work/log" >&2; return 1; }
    awk -v n="$1" -v ours="$2" -v ff="$3" -v sox="$4" 'BEGIN {
        best = ff == "-" ? sox : sox == "-" ? ff : (ff < sox ? ff : sox)
        ratio = best == "-" ? "-" : sprintf("%.2f", best / (ours < 0.01 ? 0.01 : ours))
        printf "  %-22s vimbo %6s s   ffmpeg %6s s   sox %6s s   best peer / vimbo %s\n", n, ours, ff, sox, ratio }'
}

sound() { sox -n -r "$1" -c "$2" -b 16 "$3" synth "$seconds" pinknoise tremolo 3 60 gain -8; }
sound 44100 1 "$work/mono.wav"
sound 8000 1 "$work/phone.wav"
sound 16000 1 "$work/wide.wav"
sound 44100 2 "$work/stereo.wav"

decode() { # NAME FILE
    row "$1 decode" \
        "$(best "$vimbo" convert -q "$2" -t wav --data-format pcm16 -o "$work/out.v.wav")" \
        "$(best ffmpeg -nostdin -loglevel error -y -threads 1 -i "$2" -c:a pcm_s16le "$work/out.f.wav")" \
        "$(best sox "$2" -b 16 -e signed-integer "$work/out.s.wav")"
}

encode() { # NAME FILE VIMBO-FORMAT FFMPEG-CODEC SOX-OPTIONS
    local sox_time=- ffmpeg_time=-
    [ -n "$4" ] && ffmpeg_time=$(best ffmpeg -nostdin -loglevel error -y -threads 1 -i "$2" $4 "$work/out.f.wav")
    [ -n "$5" ] && sox_time=$(best sox "$2" $5 "$work/out.s.wav")
    row "$1 encode" "$(best "$vimbo" convert -q "$2" -t "$6" ${3:+--data-format "$3"} -o "$work/out.v")" \
        "$ffmpeg_time" "$sox_time"
}

echo "$seconds s of sound, best of $runs"
ffmpeg -nostdin -loglevel error -y -i "$work/mono.wav" -c:a adpcm_ms "$work/ms.wav"
ffmpeg -nostdin -loglevel error -y -i "$work/mono.wav" -c:a adpcm_ima_wav "$work/ima.wav"
ffmpeg -nostdin -loglevel error -y -i "$work/mono.wav" -c:a adpcm_yamaha "$work/yamaha.wav"
ffmpeg -nostdin -loglevel error -y -i "$work/phone.wav" -c:a adpcm_g726 -b:a 32k "$work/g726.wav"
ffmpeg -nostdin -loglevel error -y -i "$work/wide.wav" -c:a g722 "$work/g722.wav"
sox "$work/phone.wav" -e gsm-full-rate "$work/gsm.wav"
ffmpeg -nostdin -loglevel error -y -i "$work/stereo.wav" -c:a libmp3lame -b:a 128k "$work/mp3.wav"
ffmpeg -nostdin -loglevel error -y -i "$work/stereo.wav" -c:a mp2 -b:a 192k "$work/mp2.wav"
decode "MS ADPCM" "$work/ms.wav"
decode "IMA ADPCM" "$work/ima.wav"
decode "Yamaha ADPCM" "$work/yamaha.wav"
decode "G.726 4 bit" "$work/g726.wav"
decode "G.722" "$work/g722.wav"
decode "GSM 06.10" "$work/gsm.wav"
decode "MPEG layer II" "$work/mp2.wav"
decode "MPEG layer III" "$work/mp3.wav"
encode "G.726 4 bit" "$work/phone.wav" "adpcm4" "-c:a adpcm_g726 -b:a 32k" "" wav
encode "G.722" "$work/wide.wav" "" "-c:a g722" "" g722-8
encode "GSM 06.10" "$work/phone.wav" "gsm" "" "-e gsm-full-rate" wav
