#!/usr/bin/env bash
# replay_seeds.sh FUZZER FOLDER: runs a fuzz target once over every file of its seed corpus.
set -euo pipefail
fuzzer=$1 folder=$2
[ -d "$folder" ] && [ -n "$(ls -A "$folder")" ] || { echo "no seeds in $folder" >&2; exit 1; }
exec "$fuzzer" -rss_limit_mb=2048 -timeout=20 "$folder"/*
