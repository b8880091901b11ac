#!/bin/sh
# Any two headers can be in one unit, in either order: all of them are, in two orders.
# Usage: check_headers.sh <compiler> <source folder> <folder>...
set -eu
compiler=$1
cd "$2"
shift 2
headers=$(find $* -name '*.h' -o -name '*.hpp' | LC_ALL=C sort)
[ "$(echo "$headers" | wc -l)" -gt 50 ]
for order in cat tac; do
    echo "$headers" | $order | sed 's|.*|#include "&"|' |
        "$compiler" -x c++ -std=c++20 -fsyntax-only -Wall -Wextra -Werror -I. -Iinclude -
done
