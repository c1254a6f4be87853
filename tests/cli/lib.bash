# Helpers for the end-to-end tests of the brimora program. A test sources
# this file with the program's path as its first argument, runs the program
# with `run`, checks with the `expect_*` functions and ends with `finish`.
set -u

BRIMORA=${1:?usage: $0 PATH_TO_BRIMORA}
[ -x "$BRIMORA" ] || { echo "not an executable: $BRIMORA"; exit 1; }
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT

checks=0
failures=0
status=0
command_line=""

# Runs brimora with the given arguments and no input.
run() {
    run_with_input "" "$@"
}

# Runs brimora with the first argument as its standard input.
run_with_input() {
    local input=$1
    shift
    command_line="brimora $*"
    printf '%s' "$input" | "$BRIMORA" "$@" >"$WORK/stdout" 2>"$WORK/stderr"
    status=$?
}

fail() {
    failures=$((failures + 1))
    echo "FAIL: $command_line"
    echo "  $*"
    sed 's/^/  stdout| /' "$WORK/stdout"
    sed 's/^/  stderr| /' "$WORK/stderr"
}

check() {
    checks=$((checks + 1))
    "$@"
}

expect_status() {
    check true
    [ "$status" -eq "$1" ] || fail "exit status $status, expected $1"
}

# Checks on one stream, "stdout" or "stderr".
# The stream holds exactly these lines.
expect_lines() {
    local stream=$1
    shift
    check true
    printf '%s\n' "$@" | cmp -s - "$WORK/$stream" || fail "$stream is not: $(printf '[%s] ' "$@")"
}
expect_empty() {
    check true
    [ ! -s "$WORK/$1" ] || fail "$1 is not empty"
}
expect_contains() {
    check true
    grep -qF -- "$2" "$WORK/$1" || fail "$1 lacks: $2"
}
# The first or last line is exactly this.
expect_first_line() {
    check true
    [ "$(head -n 1 "$WORK/$1")" = "$2" ] || fail "first line of $1 is not: $2"
}
expect_last_line() {
    check true
    [ "$(tail -n 1 "$WORK/$1")" = "$2" ] || fail "last line of $1 is not: $2"
}

expect_stdout_lines() { expect_lines stdout "$@"; }
expect_stderr_lines() { expect_lines stderr "$@"; }
expect_stdout_empty() { expect_empty stdout; }
expect_stderr_empty() { expect_empty stderr; }
expect_stdout_contains() { expect_contains stdout "$1"; }
expect_stderr_contains() { expect_contains stderr "$1"; }
expect_stderr_first_line() { expect_first_line stderr "$1"; }
expect_stderr_last_line() { expect_last_line stderr "$1"; }

# The exit status by which ctest (SKIP_RETURN_CODE in tests/CMakeLists.txt)
# shows a test as skipped: neither passed nor failed.
skip_status=77

# Ends the test here as skipped while this build cannot evaluate Python yet:
# the extension may still lack its language, and then every evaluation says
# so (checked here) instead of running. A skip is never a pass, so a broken
# registration cannot turn the evaluation tests green.
require_python() {
    run expr 1
    grep -qF "not available" "$WORK/stderr" || return 0
    expect_status 1
    expect_stdout_empty
    expect_stderr_contains "error: Python evaluation is not available (yet): "
    if [ "$failures" -ne 0 ]; then
        finish
        exit
    fi
    echo "SKIP: the extension does not define CPythonLanguage; evaluation checks skipped"
    exit "$skip_status"
}

# A test that checked nothing has shown nothing: it fails.
finish() {
    echo "$((checks - failures)) passed, $failures failed"
    if [ "$checks" -eq 0 ]; then
        echo "FAIL: no check ran"
        return 1
    fi
    [ "$failures" -eq 0 ]
}
