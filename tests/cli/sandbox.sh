# --sandbox: the code runs with file writes (and processes, network access,
# native libraries) refused; without it the same code is not restricted.
source "$(dirname "$0")/lib.bash"
require_python

run eval "open('$WORK/written', 'w')" --sandbox
expect_status 1
expect_stderr_first_line "error: write blocked: read-only sandbox"
check true
[ ! -e "$WORK/written" ] || fail "the sandbox let the file be written"
run eval "open('$WORK/written', 'w').close()"
expect_status 0
check true
[ -e "$WORK/written" ] || fail "the file was not written"
run expr "open('$WORK/written', 'w')" --sandbox
expect_status 1
expect_stderr_first_line "error: write blocked: read-only sandbox"

# Refusals are PermissionError inside the code, which may catch them.
run eval $'import os\ntry:\n    os.system("true")\nexcept PermissionError as e:\n    return str(e)' --sandbox
expect_status 0
expect_stdout_lines "'operation blocked in sandbox'"

# Reading stays allowed.
run expr "open('$WORK/written').read()" --sandbox
expect_status 0
expect_stdout_lines "''"

# The standard level lets a thread start; the strict level refuses it.
thread=$'import threading\nt = threading.Thread(target=int)\nt.start()\nt.join()\nreturn "started"'
run eval "$thread" --sandbox
expect_status 0
expect_stdout_lines "'started'"
run eval "$thread" --sandbox=strict
expect_status 1
expect_stderr_first_line "error: operation blocked in sandbox"
# Strict includes the standard refusals.
run eval "open('$WORK/strict', 'w')" --sandbox=strict
expect_status 1
expect_stderr_first_line "error: write blocked: read-only sandbox"
check true
[ ! -e "$WORK/strict" ] || fail "the strict sandbox let the file be written"

run eval 1 --sandbox=loose
expect_status 2
expect_stderr_first_line "brimora: unknown sandbox level 'loose' (expected --sandbox or --sandbox=strict)"

finish
