# Evaluations end to end: the result in Python notation on standard output,
# out-locals after it, errors with their position on standard error.
source "$(dirname "$0")/lib.bash"

require_python

run expr "[x * x for x in range(5)]"
expect_status 0
expect_stdout_lines "[0, 1, 4, 9, 16]"

run eval "return a + 1" --local a=41
expect_status 0
expect_stdout_lines "42"

run eval "a = a + 41" --out a=1
expect_status 0
expect_stdout_lines "None" "a = 42"

# Out-locals come back in the order given, assigned or not.
run eval $'b = "x" * 2\nreturn a' --out b=none --out a=1.5
expect_status 0
expect_stdout_lines "1.5" "b = 'xx'" "a = 1.5"

# Each value text becomes its own type.
run expr "[type(v).__name__ for v in (i, f, t, n, s)]" \
    --local i=-7 --local f=2.5e3 --local t=true --local n=none --local s=hello
expect_status 0
expect_stdout_lines "['int', 'float', 'bool', 'NoneType', 'str']"

# Locals shadow globals.
run expr "(g, x)" --global g=1 --global x=2 --local x=3
expect_status 0
expect_stdout_lines "(1, 3)"

# What Python prints comes before the result, also through a pipe.
run eval $'print("hello")\nreturn 1'
expect_status 0
expect_stdout_lines "hello" "1"

# Code from a file and from standard input.
printf 'total = 0\nfor i in range(4):\n    total += i\nreturn total\n' >"$WORK/sum.py"
run eval -f "$WORK/sum.py"
expect_status 0
expect_stdout_lines "6"
run_with_input "return 'from stdin'" eval -f -
expect_status 0
expect_stdout_lines "'from stdin'"

# Code that starts with '-' after --.
run expr -- -1
expect_status 0
expect_stdout_lines "-1"

# Errors: message and position, exit 1.
run eval $'x = 1\ny = (' --out a=1 --out b=2
expect_status 1
expect_stdout_empty
expect_stderr_contains "error: "
expect_stderr_contains "'(' was never closed"
expect_stderr_last_line "at line 2, column 5"

run expr "1 + * 2"
expect_status 1
expect_stderr_contains "invalid syntax"
expect_stderr_last_line "at line 1, column 5"

# Python gives no column here.
run expr "1 +"
expect_status 1
expect_stderr_last_line "at line 1"

run eval $'x = 1\nraise ValueError("bad value")'
expect_status 1
expect_stderr_first_line "error: bad value"
expect_stderr_last_line "at line 2"

run expr "x = 1"
expect_status 1
expect_stderr_contains "error: "

# Invalid UTF-8 in a file reaches Python, which refuses it.
printf 'return "\xff"\n' >"$WORK/bad.py"
run eval -f "$WORK/bad.py"
expect_status 1
expect_stderr_contains "error: "

finish
