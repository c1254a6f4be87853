# brimora repl reading its entries from a pipe, as python3 does: no
# prompts, values printed, tracebacks on standard error and the session going
# on; --sandbox and --timeout hold for each entry; sys.exit gives the status.
source "$(dirname "$0")/lib.bash"

require_python

run_with_input $'x = 6\nx * 7\ndef twice(v):\n    return v * 2\n\ntwice(x)\n1 / 0\nprint("after", _)\n' repl
expect_status 0
expect_stdout_lines "42" "12" "after 12"
expect_stderr_contains "ZeroDivisionError: division by zero"
expect_stderr_contains '  File "<python-input-4>", line 1, in <module>'

# The host modules.
run_with_input $'import tesk.cpython\ntesk.cpython.CPythonLanguage.instance.name\n' repl
expect_status 0
expect_stdout_lines "'CPython'"

# A syntax error is reported and the next entry runs.
run_with_input $'1 +\nprint("next")\n' repl
expect_status 0
expect_stdout_lines "next"
expect_stderr_contains "SyntaxError: invalid syntax"

# Each entry in the sandbox; the refusal is the entry's exception.
run_with_input "open('$WORK/written', 'w')"$'\nprint("on")\n' repl --sandbox
expect_status 0
expect_stdout_lines "on"
expect_stderr_contains "PermissionError: write blocked: read-only sandbox"
check true
[ ! -e "$WORK/written" ] || fail "the sandboxed entry wrote a file"

run_with_input $'import threading\nthreading.Thread(target=print).start()\nprint("on")\n' repl --sandbox=strict
expect_status 0
expect_stdout_lines "on"
expect_stderr_contains "PermissionError: operation blocked in sandbox"

# Each entry under the time limit: a stopped entry is an error, and the
# session goes on with the next one, which has the whole limit again.
run_with_input $'while True:\n    pass\n\nprint("on")\n' repl --timeout 0.3
expect_status 0
expect_stdout_lines "on"
expect_stderr_contains "error: time limit of 0.3 s exceeded"

# sys.exit leaves with its status; what follows does not run.
run_with_input $'import sys\nsys.exit(4)\nprint("not reached")\n' repl
expect_status 4
expect_stdout_empty

# Options of repl.
run repl --timeout 0
expect_status 2
expect_stderr_first_line "brimora: --timeout needs a number of seconds above 0, got '0'"
run repl --sandbox=loose
expect_status 2
expect_stderr_first_line "brimora: unknown sandbox level 'loose' (expected --sandbox or --sandbox=strict)"
run repl --local a=1
expect_status 2
expect_stderr_first_line "brimora: unexpected argument '--local' for repl"
run repl --extension
expect_status 2
expect_stderr_first_line "brimora: option --extension needs a value (PATH)"
run repl --extension /nonexistent/libbrimora_python.so
expect_status 1
expect_stderr_first_line "error: Cannot load the Python extension: /nonexistent/libbrimora_python.so: cannot open shared object file: No such file or directory"

# Without arguments and without a terminal: the usage, as before.
run
expect_status 2
expect_stderr_first_line "brimora: no command given"

finish
