# brimora finishes its work like python3: it waits for the code's threads,
# runs atexit handlers, and fails loudly when it cannot read the code or
# write the output. The code itself reaches Python unchanged.
source "$(dirname "$0")/lib.bash"

require_python

# A non-daemon thread that writes a file after the block returned.
run eval "import threading, time
def later():
    time.sleep(0.2)
    with open('$WORK/late.txt', 'w') as f:
        f.write('written')
threading.Thread(target=later).start()
return 1"
expect_status 0
expect_stdout_lines "1"
check true
[ "$(cat "$WORK/late.txt" 2>/dev/null)" = written ] || fail "the thread's file was not written before exit"

run eval "import atexit
atexit.register(print, 'bye')
return 2"
expect_status 0
expect_stdout_lines "2" "bye"

# Output to a full disk, or to a closed standard output.
"$BRIMORA" expr "'x' * 10" >/dev/full 2>"$WORK/stderr"
status=$?
command_line="brimora expr ... >/dev/full"
expect_status 1
expect_stderr_first_line "error: Cannot write the output: No space left on device."

"$BRIMORA" expr "1" >&- 2>"$WORK/stderr"
status=$?
command_line="brimora expr 1 >&-"
expect_status 1
expect_stderr_contains "error: Cannot write the output:"

# Code from a closed standard input.
"$BRIMORA" eval -f - <&- >"$WORK/stdout" 2>"$WORK/stderr"
status=$?
command_line="brimora eval -f - <&-"
expect_status 1
expect_stderr_first_line "error: Cannot read standard input: Bad file descriptor."

# The text as written: literals, continuations, line ends, a byte-order mark.
run eval $'s = """a\nb"""\nreturn s'
expect_status 0
expect_stdout_lines "'a\\nb'"
run eval $'return 1 + \\\n  2'
expect_stdout_lines "3"
run eval $'x = 1\ry = 2\rreturn x + y'
expect_stdout_lines "3"
run eval $'\xef\xbb\xbfreturn 4'
expect_stdout_lines "4"
run eval $'x = 1\nreturn (1 +* 2)'
expect_status 1
expect_stderr_contains "line 2"
expect_stderr_last_line "at line 2, column 12"

# Under the C locale Python is in UTF-8 mode, as python3 is.
LANG=C LC_ALL=C run eval "print('\u20ac')
return 0"
expect_status 0
expect_stdout_lines "€" "0"

# An interpreter that cannot start is an error, not the end of the host.
PYTHONHOME=/nonexistent/python-home run expr "1"
expect_status 1
expect_stderr_contains "error: Python could not start: "

finish
