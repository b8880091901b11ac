# scripts/lib.sh -- sourced by the other scripts: what they share.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '\n== %s\n' "$*"; }

# need PACKAGE...: installs the Debian packages that are missing, and says so.
need() {
    local missing=() package sudo=
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
    done
    [ "${#missing[@]}" -gt 0 ] || return 0
    [ "$(id -u)" -eq 0 ] || sudo=sudo
    say "installing: ${missing[*]}"
    $sudo apt-get update -qq
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -qq -y --no-install-recommends "${missing[@]}" >/dev/null
}

# build PRESET [TARGET...]: configures, with what stands in the array `options`, and builds, quietly unless it fails.
options=()
build() {
    local preset=$1 log
    shift
    say "building: $preset"
    log=$(mktemp)
    if ! { cmake --preset "$preset" "${options[@]}" && cmake --build --preset "$preset" ${1:+--target "$@"}; } >"$log" 2>&1; then
        cat "$log"
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}
