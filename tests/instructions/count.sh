#!/usr/bin/env bash
# count.sh DRIVER PATH PINNED: counts the instructions of one put and fails when they are more than 10 %
# above the pinned number. The count of 1,000 puts is taken from that of 3,000, so what starts and stops the
# process does not matter. Status 77: it could not be counted.
set -euo pipefail
driver=$1 path=$2 pinned=$3

command -v valgrind >/dev/null || { echo "skipped: valgrind is not installed"; exit 77; }
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

count() {
    rm -rf "$dir"/*
    printf 'LogFile = %s\nMapSize = 16777216\n' "$dir/log" > "$dir/cnf" # room for all lines
    ZEBU2_TRACECNF_FILE=$dir/cnf valgrind --tool=callgrind --callgrind-out-file=/dev/null \
        "$driver" "$path" "$1" "$dir/app" 2> "$dir/err" || { cat "$dir/err"; exit 1; }
    sed -n 's/.*Collected : //p' "$dir/err"
}

few=$(count 1000)
many=$(count 3000)
each=$(((many - few) / 2000))
limit=$((pinned * 110 / 100))
echo "$path: $each instructions, pinned $pinned, at most $limit"
[ "$each" -gt 0 ] && [ "$each" -le "$limit" ]
