# Values cross whole or fail loudly, and the code's exit request is the
# program's exit status, as with python3 -c.
source "$(dirname "$0")/lib.bash"

require_python

# Text that UTF-8 cannot encode (a lone surrogate) is an error naming its
# position, never the empty text.
run expr '"abc\udcffdef"'
expect_status 1
expect_stdout_empty
expect_stderr_contains "can't encode character '\\udcff' in position 3: surrogates not allowed"

run eval $'xs.append("\\ud800")\nreturn xs' --local 'xs=[1]'
expect_status 1
expect_stderr_contains "surrogates not allowed"
expect_stderr_last_line "at line 1"

# An argument without a host form raises before the host is called: the
# list is unchanged, and the code can catch Python's own exception.
run eval $'try:\n    xs.append(2**70)\nexcept OverflowError as e:\n    return xs, str(e)' --local 'xs=[1, 2]'
expect_status 0
expect_stdout_lines "([1, 2], 'int too big to convert')"

# A complex number is the Python object.
run expr 'complex(1, 2)'
expect_status 0
expect_stdout_lines "(1+2j)"

# Host containers follow Python's protocols.
run expr 'list(iter(xs)), list(reversed(xs)), dict(m), xs == [1, 2], {"a": 1} == m' \
    --local 'xs=[1, 2]' --local 'm={"a": 1}'
expect_status 0
expect_stdout_lines "([1, 2], [2, 1], {'a': 1}, True, True)"

# SystemExit: the code's status, with the atexit handlers run; a text code
# is printed on standard error and gives 1.
run eval $'import atexit, sys\natexit.register(print, "bye")\nsys.exit(3)'
expect_status 3
expect_stdout_lines "bye"
expect_stderr_empty

run eval 'import sys; sys.exit("stopped here")'
expect_status 1
expect_stdout_empty
expect_stderr_lines "stopped here"

run expr 'exit()'
expect_status 0
expect_stdout_empty

run eval 'raise SystemExit(True)'
expect_status 1

# An uncaught KeyboardInterrupt: 130, as python3 -c exits, with what
# brimora says after Ctrl-C.
run eval 'raise KeyboardInterrupt'
expect_status 130
expect_stderr_lines "interrupted"

# Caught inside the code, neither ends anything.
run eval $'try:\n    raise SystemExit(4)\nexcept SystemExit as e:\n    return e.code'
expect_status 0
expect_stdout_lines "4"

finish
