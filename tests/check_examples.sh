#!/bin/sh
# Runs every example into a directory of its own and looks at what it left there.
# Usage: [RUN=emulator] check_examples.sh <directory of the built examples>
. "$(dirname "$0")/support/work.sh"
examples=$1

# run STATUS NAME ARGUMENT...: runs an example in $work/NAME.
run() {
    expected=$1 name=$2
    shift 2
    mkdir -p "$work/$name"
    cd "$work/$name"
    echo "LogFile = $work/$name/trace" > ../cnf
    status=0
    ${RUN:-} "$examples/$name" "$@" 2> ../stderr || status=$?
    [ "$status" -eq "$expected" ] || fail "$name: status $status: $(cat ../stderr)"
}

# has COUNT FILES TEXT: so many lines of the files, the trace area among them, hold the text.
has() {
    found=$(cat $2 | tr '\000' '\n' | grep -c -- "$3") || true
    [ "$found" -eq "$1" ] || fail "$name: $found lines with '$3' in $2 instead of $1"
}

area=mmap/zebu2mmap.mm

for name in "$examples"/*; do
    [ -f "$name" ] && [ -x "$name" ] || continue
    run 2 "$(basename "$name")"
    grep -q '^usage: ' "$work/stderr" || fail "$name does not say what it wants"
done

run 0 hello app
has 1 app1.log 'NET-17                a line with a message id'

run 0 levels app
has 6 app1.log 'level [0-6] with log level 5, files 0'

run 0 logf app
has 5 app1.log 'turn [0-9]*.$'

run 0 threads app /usr/include/linux 3
has 6 $area 'a thread '

run 0 instances .
has 1 audit1.log ' audit .* LOGIN  *user 4711'

run 139 crash_handler app
has 1 app1.log 'about to crash'
has 1 $area '-------- dying of SIGSEGV'

# No room in the trace area, where the write offset is one behind the read offset: told otherwise.
printf '\144\000\000\000\143\000\000\000' | dd of=$area bs=1 seek=12 conv=notrunc 2> /dev/null
run 139 crash_handler app
grep -q 'dying of SIGSEGV' "$work/stderr" || fail "the last line is lost"

run 0 fork app
has 2 app1.log ' parent  .* parent '
has 1 app1.log 'child, under its own id'
[ "$(grep -a 'child, ' app1.log | cut -c 51-58 | uniq | wc -l)" -eq 2 ] || fail "one process id for both"

run 0 cleanup .
[ "$(ls run-*.log | wc -l)" -eq 2 ] || fail "left: $(ls)"

run 0 wrapper .
has 2 wrapper1.log ' \(reader\|writer\)   WORK '
has 1 audit1.log 'owners stop'
