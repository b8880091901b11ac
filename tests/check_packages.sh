#!/bin/sh
# Makes the Debian packages of two builds in folders of different names, compares them byte by byte, unpacks
# them, and uses what they hold. The interface is compared with its description on the way. The build that is tested
# is one of the two where it has the flags and the prefix of the preset "package" (scripts/test sees to that).
# Usage: check_packages.sh <source folder> <version> <build folder>
. "$(dirname "$0")/support/work.sh"
source=$1 version=$2 build=$3
needs cpack dpkg-deb dpkg-shlibdeps ninja
umask 022 # the members of a package have modes

# build FOLDER
build() {
    logged cmake -S "$source" --preset package -B "$work/$1"
    logged cmake --build "$work/$1"
}

flags=$(grep -e '^CMAKE_BUILD_TYPE:' -e '^CMAKE_CXX_FLAGS:' -e '^CMAKE_INSTALL_PREFIX:' "$build/CMakeCache.txt" | sed 's/.*=//' | tr '\n' ' ')
if [ "$flags" != "Release -g /usr " ]; then
    build=$work/first-build
    build first-build
fi
# lintian takes as long as the rest of what follows: beside the other build. The licence is the owner's to choose.
{
    cpack --config "$build/CPackConfig.cmake" -B "$work/one"
    if command -v lintian; then
        lintian --no-cfg --allow-root --tag-display-limit 0 -L '>=warning' "$work"/one/*.*deb 2> /dev/null |
            grep -v ' no-copyright-file$' > "$work/complaints" || true
    fi
} > "$work/one.log" 2>&1 &
build another-build
wait $! || fail "$(tail -n 50 "$work/one.log")"
logged cpack --config "$work/another-build/CPackConfig.cmake" -B "$work/another-folder"
for package in "$work"/another-folder/*.*deb; do
    cmp "$package" "$work/one/$(basename "$package")"
done
for package in "$work"/one/*.deb; do
    dpkg-deb -x "$package" "$work/root"
done

if command -v abidiff > /dev/null; then
    abidiff --exported-interfaces-only --headers-dir2 "$source/include" "$source/abi/ZEBULib2.abi" "$build/libZEBULib2.so.$version" ||
        fail "the interface is not the one in abi/ZEBULib2.abi"
fi

# What the packages say.
field() { dpkg-deb -f "$work"/one/"$1"_*.deb "$2"; }
field libzebulib2-2 Depends | grep -q '^libc6 [^,]*$' || fail "the library needs more than libc"
[ "$(field libzebulib2-dev Depends)" = "libzebulib2-2 (= $version-1)" ]
[ "$(dpkg-deb -I "$work"/one/zebulib2-config_*.deb conffiles)" = /opt/kelvora/ZEBULib2/etc/D002zebu2.cnf ]

# The reader of hostile files is protected as the library is.
tool=$work/root/usr/bin/zebu2
if [ -e "$tool" ]; then
    readelf -hdW "$tool" > "$work/elf"
    grep -q 'Type: *DYN' "$work/elf" && grep -q 'FLAGS.*BIND_NOW' "$work/elf" || fail "the tool is not hardened"
    nm -D "$tool" | grep -q '__[a-z]*_chk@' || fail "the tool is not fortified"
fi

# The forwarder alone needs OpenSSL. The services are well formed, and well shut in.
if [ -e "$tool-forward" ]; then
    field zebu2-forward Depends | grep -q libssl && ! field zebu2 Depends | grep -q libssl || fail "a wrong package needs OpenSSL"
    "$tool-forward" --help > /dev/null
fi
if command -v systemd-analyze > /dev/null; then
    for unit in "$work"/root/usr/lib/systemd/system/*; do
        sed 's|/usr/bin/zebu2[a-z-]*|/bin/true|' "$unit" > "$work/$(basename "$unit")"
        systemd-analyze verify --man=no "$work/$(basename "$unit")" 2>&1 | grep . && fail "$unit"
        logged systemd-analyze security --offline=true --threshold=20 "$work/$(basename "$unit")"
    done
fi

# Manual pages are packed, each once; the library leaves ldconfig to its trigger, and tells its symbols.
if find "$work/root/usr/share/man" -type f ! -name '*.gz' | grep .; then fail "have pages that are not packed"; fi
[ -e "$work/root/usr/share/man/man3/ZEBU2_PutLine.3.gz" ] || fail "no manual"
dpkg-deb -c "$work"/one/zebulib2-config_*.deb | grep -q man5/ZEBULib2.cnf.5.gz || fail "no page beside the configuration"
[ "$(dpkg-deb --ctrl-tarfile "$work"/one/libzebulib2-2_*.deb | tar t | tr '\n' ' ')" = \
    "./ ./control ./md5sums ./shlibs ./symbols ./triggers " ] || fail "other control files"
[ "$(field libzebulib2-2 Multi-Arch) $(field zebu2 Multi-Arch)" = "same foreign" ] || fail "no Multi-Arch"
[ ! -s "$work/complaints" ] || fail "lintian: $(cat "$work/complaints")"

# The package of the sources has what the repository has.
logged cpack --config "$build/CPackSourceConfig.cmake" -B "$work/one"
tar tf "$work/one/zebulib2-$version.tar.xz" > "$work/packed"
grep -q '/frame/TLS.cpp$' "$work/packed" || fail "no sources in the package of the sources"
if grep -e '/build' -e '/\.git/' "$work/packed"; then fail "build folders in the package of the sources"; fi

# What they hold, built against and run.
libdir=$(dirname "$(find "$work/root" -name libZEBULib2.so)")
export LD_LIBRARY_PATH="$libdir"
${CC:-cc} "$source/examples/hello.c" -I"$work/root/usr/include" -L"$libdir" -lZEBULib2 -o "$work/hello"
"$work/hello" "$work/app"
grep -q NET-17 "$work/app1.log"
[ ! -e "$tool" ] || "$tool" show "$work/app" | grep -q NET-17
