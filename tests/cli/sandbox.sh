# --sandbox: the code runs with file writes (and processes, network access,
# native libraries) refused; without it the same code is not restricted.
source "$(dirname "$0")/lib.bash"
require_python

run eval "open('$WORK/written', 'w').close()" --sandbox
expect_status 1
expect_stderr_contains "error: "
check true
[ ! -e "$WORK/written" ] || fail "the sandbox let the file be written"
run eval "open('$WORK/written', 'w').close()"
expect_status 0
check true
[ -e "$WORK/written" ] || fail "the file was not written"
run expr "open('$WORK/written', 'w')" --sandbox
expect_status 1

finish
