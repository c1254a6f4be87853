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

# The standard output is exactly these lines.
expect_stdout_lines() {
    check true
    printf '%s\n' "$@" | cmp -s - "$WORK/stdout" || fail "standard output is not: $(printf '[%s] ' "$@")"
}

expect_stdout_empty() {
    check true
    [ ! -s "$WORK/stdout" ] || fail "standard output is not empty"
}

expect_stderr_empty() {
    check true
    [ ! -s "$WORK/stderr" ] || fail "standard error is not empty"
}

expect_stdout_contains() {
    check true
    grep -qF -- "$1" "$WORK/stdout" || fail "standard output lacks: $1"
}

expect_stderr_contains() {
    check true
    grep -qF -- "$1" "$WORK/stderr" || fail "standard error lacks: $1"
}

# The first line of standard error is exactly this.
expect_stderr_first_line() {
    check true
    [ "$(head -n 1 "$WORK/stderr")" = "$1" ] || fail "first line of standard error is not: $1"
}

# The last line of standard error is exactly this.
expect_stderr_last_line() {
    check true
    [ "$(tail -n 1 "$WORK/stderr")" = "$1" ] || fail "last line of standard error is not: $1"
}

# Whether this build can evaluate Python yet: the extension may still lack
# its language class, and then says so.
python_available() {
    run expr 1
    ! grep -qF "not available" "$WORK/stderr"
}

finish() {
    echo "$((checks - failures)) passed, $failures failed"
    [ "$failures" -eq 0 ]
}
