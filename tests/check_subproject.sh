#!/bin/sh
# The library as a part of another project, which has names and settings of its own: it brings its library
# and nothing else, and builds under the parent's flags.
# Usage: check_subproject.sh <source folder>
. "$(dirname "$0")/support/work.sh"
source=$1

cat > "$work/CMakeLists.txt" << END
cmake_minimum_required(VERSION 3.25)
project(parent VERSION 7.1 LANGUAGES C)
foreach(name examples fuzz stress zebu2 tools)
  add_custom_target(\${name})
endforeach()
add_subdirectory("$source" sub)
add_executable(consumer "$source/examples/hello.c")
target_link_libraries(consumer ZEBULib2::ZEBULib2)
get_property(tests DIRECTORY "$source" PROPERTY TESTS)
get_property(type CACHE CMAKE_BUILD_TYPE PROPERTY VALUE)
message(STATUS "got <\${type}\${tests}\${BUILD_TESTING}\${CPACK_PACKAGE_NAME}\${CMAKE_CXX_STANDARD}>")
END
logged cmake -G Ninja -S "$work" -B "$work/build" -DCMAKE_CXX_FLAGS="-O1 -D_FORTIFY_SOURCE=3" \
    -DCMAKE_LIBRARY_OUTPUT_DIRECTORY="$work/lib"
grep -q 'got <>' "$work/log" || fail "sets something for its parent: $(grep got "$work/log")"
logged cmake --build "$work/build"
if grep -i warning "$work/log"; then fail "warnings"; fi
"$work/build/consumer" "$work/app"
grep -q NET-17 "$work/app1.log"

# Of the targets in `all`: objects, the library, its links and the consumer. Nothing is installed.
find "$work" -type f \( -name '*.so*' -o -name '*.a' -o -perm /111 \) ! -path '*/CMakeFiles/*' |
    sed "s|^$work/||" | sort > "$work/built"
[ "$(sed 's/[.0-9]*$//' "$work/built" | tr '\n' ' ')" = "build/consumer lib/libZEBULib2.so " ] || fail "built: $(cat "$work/built")"
logged env DESTDIR="$work/installed" cmake --install "$work/build"
[ ! -e "$work/installed" ] || fail "installs itself"
