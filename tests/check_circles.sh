#!/bin/sh
# No circle of modules, a module being a header with its source: none needs, over whatever others, one that needs
# it. Computed from the includes; what stands in a circle is named.
# Usage: check_circles.sh <source folder> <folder>...
. "$(dirname "$0")/support/work.sh"
cd "$1"
shift

# Wrapper and C header of one name are two.
find "$@" -name '*.h' -o -name '*.hpp' -o -name '*.cpp' > "$work/files"
while read -r file; do
    sed -n 's/^#include "\(.*\)"/\1/p' "$file" | while read -r included; do
        [ -f "$included" ] || included=include/$included
        [ ! -f "$included" ] || echo "$file $included"
    done
done < "$work/files" | sed -E 's/\.(h|cpp)( |$)/\2/g' > "$work/needs"
[ "$(wc -l < "$work/needs")" -gt 100 ]
tsort "$work/needs" > "$work/order" # pairs of the same name are no order
