#!/bin/sh
# Installs the build into a directory of its own, moves it, and uses it as an application would: from C
# through pkg-config, from C++ through find_package. Needs pkg-config.
# Usage: check_install.sh <source folder> <build folder> <version>
. "$(dirname "$0")/support/work.sh"
source=$1 build=$2 version=$3
needs pkg-config

logged cmake --install "$build" --prefix "$work/first"
mv "$work/first" "$work/moved"
root=$work/moved
if grep -rIl -e "$work/first" -e "$source" -e "$build" "$root"; then fail "have paths of the build"; fi
[ -z "$(find "$root" -name '*.a')" ] && [ ! -e "$root/opt" ] || fail "an archive, or the standard configuration, came along"
libdir=$(dirname "$(find "$root" -name libZEBULib2.so)")
[ "$(readlink "$libdir/libZEBULib2.so")" = libZEBULib2.so.2 ]
[ "$(readlink "$libdir/libZEBULib2.so.2")" = "libZEBULib2.so.$version" ]

# The standard configuration only when it is asked for. What it shows as defaults is commented out.
standard=$work/config/opt/kelvora/ZEBULib2
logged env DESTDIR="$work/config" cmake --install "$build" --component config
if grep '^[^#]' "$standard/etc/D002zebu2.cnf"; then fail "is set as standard"; fi
# What an operator has edited stays, and a directory that was there gets its sticky bit.
echo 'MapSize = 99999' > "$standard/etc/D002zebu2.cnf"
chmod 0777 "$standard/mmap"
logged env DESTDIR="$work/config" cmake --install "$build" --component config
grep -q 99999 "$standard/etc/D002zebu2.cnf" || fail "overwrites the configuration"
[ "$(stat -c %a "$standard/mmap")" = 1777 ] || fail "no sticky bit"

export LD_LIBRARY_PATH="$libdir" PKG_CONFIG_PATH="$libdir/pkgconfig"

# A place of the libraries that is given as an absolute path.
logged cmake -S "$source" -B "$work/absolute" -G Ninja -DZEBU_TOOL=OFF -DBUILD_TESTING=OFF \
    -DCMAKE_INSTALL_LIBDIR=/opt/elsewhere -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON -DCMAKE_INSTALL_PREFIX=/opt/here
[ "$(pkg-config --cflags --libs "$work/absolute/ZEBULib2.pc" | sed "s/ *$//")" = \
    "-I/opt/here/include -L/opt/elsewhere -lZEBULib2" ] || fail "the .pc file: $(cat "$work/absolute/ZEBULib2.pc")"

# C, in the manner of the examples.
[ "$(pkg-config --modversion ZEBULib2)" = "$version" ]
${CC:-cc} "$source/examples/hello.c" $(pkg-config --cflags --libs ZEBULib2) -o "$work/hello"
"$work/hello" "$work/c"
grep -q ' hello  *[0-9A-F]\{8\} [0-9A-F]\{8\} hello' "$work/c1.log" || fail "no line from C"

# C++: a project that knows nothing but the name of the package.
mkdir "$work/project"
cat > "$work/project/CMakeLists.txt" << EOF
cmake_minimum_required(VERSION 3.16)
project(consumer CXX)
set(CMAKE_CXX_STANDARD 17)
find_package(Threads REQUIRED)
find_package(ZEBULib2 ${version%.*} REQUIRED)
add_executable(consumer "$source/examples/wrapper.cpp")
target_link_libraries(consumer ZEBULib2::ZEBULib2 Threads::Threads)
EOF
logged cmake -S "$work/project" -B "$work/project/build" -DCMAKE_PREFIX_PATH="$root"
logged cmake --build "$work/project/build"
"$work/project/build/consumer" "$work"
grep -q 'with id and type' "$work/wrapper1.log" || fail "no line from C++"

# The examples of the manual are whole programs.
mkdir "$work/manual"
cd "$work/manual"
for page in "$source"/docs/man/*.3; do
    name=$(basename "$page" .3)
    sed -n '/^\.Sh EXAMPLES/,/^\.Ed/{/^\./!p}' "$page" | sed 's/^\\&//; s/\\e/\\/g' > program.c
    case $name in
    *.hpp) ${CXX:-c++} -x c++ -std=c++17 -DZEBU2_NO_FMT -Wall -Werror program.c $(pkg-config --cflags --libs ZEBULib2) -o program ;;
    *) ${CC:-cc} -Wall -Werror program.c $(pkg-config --cflags --libs ZEBULib2) -o program ;;
    esac || fail "the example of $name does not build"
    ./program > shown || fail "the example of $name fails"
done
[ -s app.backup ] && grep -aqh "no answer" app*.log || fail "the examples leave nothing: $(ls)"

# The quick start, as the README has it: the C block is hello.c, the shell block behind it is run.
mkdir "$work/quick"
cd "$work/quick"
awk '/^```c$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$source/README.md" > hello.c
awk '/^```c$/ { behind = 1 } behind && /^```sh$/ { inside = 1; next } /^```$/ { if (inside) exit } inside' \
    "$source/README.md" > quick.sh
[ -x "$root/bin/zebu2" ] || echo 'zebu2() { cat "$2"1.log; }' | cat - quick.sh > quick.sh.all
PATH=$root/bin:$PATH sh -eu "$([ -e quick.sh.all ] && echo quick.sh.all || echo quick.sh)" > shown
[ "$(grep -c ' hello  *[0-9A-F]\{8\} ' shown)" -eq 2 ] || fail "the quick start shows: $(cat shown)"
