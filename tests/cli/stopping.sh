# Stopping the code: --timeout, and Ctrl-C ending the code (not the process
# without a word) with "interrupted" and status 130.
source "$(dirname "$0")/lib.bash"

require_python

run eval $'while True:\n    pass' --timeout 0.2
expect_status 1
expect_stderr_first_line "error: time limit of 0.2 s exceeded"

# A quick evaluation is not touched by its limit.
run expr "6 * 7" --timeout 30
expect_status 0
expect_stdout_lines "42"

run expr "1" --timeout 0
expect_status 2
expect_stderr_first_line "brimora: --timeout needs a number of seconds above 0, got '0'"
run expr "1" --timeout soon
expect_status 2

# Ctrl-C once the code runs: it writes a marker first, then spins. Job
# control gives the background program the default SIGINT disposition.
marker="$WORK/running"
set -m
"$BRIMORA" eval "open('$marker', 'w').close()
while True:
    pass" >"$WORK/stdout" 2>"$WORK/stderr" &
pid=$!
set +m
while [ ! -e "$marker" ] && kill -0 "$pid" 2>/dev/null; do sleep 0.05; done
kill -INT "$pid"
wait "$pid"
status=$?
command_line="brimora eval <busy loop>, then Ctrl-C"
expect_status 130
expect_stderr_lines "interrupted"
expect_stdout_empty

finish
