# tests/support/work.sh -- what a check begins with: it ends at the first failure, has a directory of its own, and
# programs with the library keep their trace area there.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
echo "LogFile = $work/trace" > "$work/cnf"
export ZEBU2_TRACECNF_FILE="$work/cnf"

fail() { echo "$*" >&2; exit 1; }

# needs TOOL...: skips the check without them.
needs() {
    for tool in "$@"; do
        command -v "$tool" > /dev/null || { echo "skipped: no $tool"; exit 77; }
    done
}

# logged COMMAND...: shows what a command writes when it fails.
logged() { "$@" > "$work/log" 2>&1 || fail "failed: $*: $(tail -n 50 "$work/log")"; }
