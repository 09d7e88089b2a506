#!/usr/bin/env bash
# Times looking into a folder of SFZ instruments: 100 texts of 100 regions, 10,000 sample files of 1 MB each that
# hold nothing but their headers (sparse files), so that reading more than headers shows in bytes and time.
#   bench/open_sfz_folder.sh [--smoke] [VIMBO]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
runs=3 texts=100 regions=100
if [ "${1:-}" = --smoke ]; then
    runs=1 texts=2 regions=10
    shift
fi
vimbo=${1:-$PWD/build/release/bin/vimbo}
work=$(mktemp -d "${TMPDIR:-/tmp}/vimbo-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

le32() { printf '\\x%02x\\x%02x\\x%02x\\x%02x' $(($1 & 255)) $(($1 >> 8 & 255)) $(($1 >> 16 & 255)) $(($1 >> 24 & 255)); }

# A mono WAV file of 16-bit samples at 44.1 kHz whose data is a hole.
data=1000000
{
    printf 'RIFF'"$(le32 $((data + 36)))"'WAVEfmt '"$(le32 16)"'\x01\x00\x01\x00'
    printf "$(le32 44100)$(le32 88200)"'\x02\x00\x10\x00data'"$(le32 $data)"
} >"$work/one.wav"
truncate -s $((data + 44)) "$work/one.wav"

mkdir "$work/bank"
for ((text = 0; text < texts; text++)); do
    folder=$work/bank/Samples/Instrument$text
    mkdir -p "$folder"
    {
        printf '<control> default_path=samples\\instrument%d\\\n<group> ampeg_release=0.5\n' "$text"
        for ((region = 0; region < regions; region++)); do
            # As many texts spell them: backslashes, and letter case as the author's system let it be.
            printf '<region> sample=Note_%03d.wav key=%d lovel=1 hivel=127\n' "$region" $((region + 10))
        done
    } >"$work/bank/Instrument$text.sfz"
    for ((region = 0; region < regions; region++)); do
        printf -v name '%s/note_%03d.wav' "$folder" "$region"
        echo "$name"
    done
done | xargs -n 1 cp --sparse=always "$work/one.wav"
printf '%d texts, %d sample files of 1 MB, page cache warm, best of %d, %d cores\n' \
    "$texts" $((texts * regions)) "$runs" "$(nproc)"

for ((run = 0; run < runs; run++)); do
    /usr/bin/time -f '%e %M' -o "$work/time" "$vimbo" info -q "$work"/bank/*.sfz >"$work/out" </dev/null
    tail -n 1 "$work/time"
done | sort -n | head -n 1 | awk '{ printf "  vimbo info    %8.2f s  peak %4d MB\n", $1, $2 / 1024 }'
if command -v strace >/dev/null; then
    strace -f -c -S calls -o "$work/calls" "$vimbo" info -q "$work"/bank/*.sfz >/dev/null </dev/null
    echo "System calls, the most frequent:"
    awk 'NR > 2 && NR <= 10 { printf "  %9d %s\n", $4, $NF }' "$work/calls"
    strace -f -e trace=read,pread64 -o "$work/reads" "$vimbo" info -q "$work"/bank/*.sfz >/dev/null </dev/null
    awk '/pread64|read\(/ && $NF > 0 { sum += $NF } END { printf "Bytes read: %.1f MB\n", sum / 1e6 }' "$work/reads"
fi
