#!/bin/sh
# count.sh DRIVER PATH PINNED: counts the instructions of one put and fails when they are more than 10 %
# above the pinned number. The count of 1,000 puts is taken from that of 3,000, so what starts and stops the
# process does not matter. Status 77: it could not be counted.
. "$(dirname "$0")/../support/work.sh"
driver=$1 path=$2 pinned=$3
needs valgrind
echo 'MapSize = 16777216' >> "$work/cnf" # room for all lines

count() {
    rm -rf "$work/mmap" # each run makes the area
    logged valgrind --tool=callgrind --callgrind-out-file=/dev/null "$driver" "$path" "$1" "$work/app$1"
    sed -n 's/.*Collected : //p' "$work/log"
}

few=$(count 1000)
many=$(count 3000)
each=$(((many - few) / 2000))
echo "$path: $each instructions, pinned $pinned"
[ "$each" -gt 0 ] && [ "$each" -le $((pinned * 110 / 100)) ]
