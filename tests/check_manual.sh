#!/bin/sh
# The manual: every page is clean, every exported name has a page that documents it, references among the
# pages lead somewhere, tables are readable, and the tool's page knows every verb and option of the tool. Needs mandoc.
# Usage: check_manual.sh <source folder> <build folder> [tool]
set -eu
source=$1 build=$2
command -v mandoc > /dev/null || { echo "skipped: no mandoc"; exit 77; }
status=0
fail() { echo "$*"; status=1; }

# mandoc knows no pages but those in its data base: references are looked at below.
mandoc -T lint "$source"/docs/man/*.[1-8] 2> /dev/null | grep -v 'referenced manual not found' && fail "the pages above are not clean"

# Tables, in both viewers. (Where man is a stub, as in small images, mandoc's lint has to do.)
if man -l "$source/docs/man/ZEBULib2.7" > /dev/null 2>&1; then
    "$source"/tests/check_tables.py "$source"/docs/man/*.[1-8] || fail "the tables above run together"
fi

for name in $(grep -v '^#' "$source/abi/exports.txt"); do
    page=$source/docs/man/$name.3
    if [ ! -e "$page" ] && [ -e "$build/man3/$name.3" ]; then
        page=$source/docs/man/$(sed -n 's/^\.so man3\///p' "$build/man3/$name.3")
    fi
    [ -e "$page" ] || { fail "$name has no page"; continue; }
    sed -n '/^\.Sh SYNOPSIS/,/^\.Sh DESCRIPTION/p' "$page" | grep -q "^\.F[no] $name\|^\.Vt.* $name\[" ||
        fail "$name is not in the synopsis of $page"
done

grep -ho "^\.\(It \)*Xr ZEBU[^ ]* [1-8]\|^\.\(It \)*Xr zebu2[^ ]* [17]" "$source"/docs/man/* | sed "s|.*Xr \(.*\) |\1.|" | sort -u | while read -r page; do
    [ -e "$source/docs/man/$page" ] || [ -e "$build/man3/$page" ] || echo "$page"
done > "$build/dangling"
[ ! -s "$build/dangling" ] || fail "no such pages: $(cat "$build/dangling")"

if [ $# -gt 2 ]; then
    for verb in $("$3" --help | sed -n '/^Subcommands/,/^[^ S]/s/^  \([a-z]*\) .*/\1/p'); do
        grep -q "^\.It Cm $verb" "$source/docs/man/zebu2.1" || fail "zebu2.1 lacks $verb"
        page=zebu2.1
        if [ "$verb" = forward ]; then
            page=zebu2-forward.1  # a program of its own, where there is OpenSSL
            [ -x "$(dirname "$3")/zebu2-forward" ] || continue
        fi
        for option in $("$3" "$verb" --help | grep -o '^ *[-a-zA-Z,]*--[a-z-]*' | grep -o -e '--[a-z-]*'); do
            [ "$option" = --help ] || grep -q -e "$option" "$source/tools/zebu2.bash-completion" || fail "the completion lacks $verb $option"
            [ "$option" = --help ] || grep -q "Fl -${option#--}" "$source/docs/man/$page" || fail "$page lacks $verb $option"
        done
    done
fi
exit $status
