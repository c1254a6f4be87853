# Stopping the code: --timeout against code that fights it, and Ctrl-C as
# python3 has it (KeyboardInterrupt in the code, status 130 when uncaught),
# sent as a terminal sends it: SIGINT to the process.
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

# Code that would outlive its limit: a blocking call, a loop that catches
# every stop, a switch interval that keeps the interpreter lock, and all of
# them at the strict sandbox level. Each would run for minutes; the check
# that it ended is a bound far above the limit.
# Standard input is a pipe that this shell keeps open for writing: input()
# blocks on it.
mkfifo "$WORK/held"
exec 8<>"$WORK/held"
limited() {
    local started=$SECONDS
    command_line="brimora eval $*"
    "$BRIMORA" eval "$@" <"$WORK/held" >"$WORK/stdout" 2>"$WORK/stderr"
    status=$?
    check true
    [ $((SECONDS - started)) -lt 20 ] || fail "ran for $((SECONDS - started)) s past a limit of 1 s"
    expect_status 1
    expect_stderr_first_line "error: time limit of 1 s exceeded"
}
limited --timeout 1 "import time; time.sleep(100)"
catching=$'while True:\n    try:\n        while True: pass\n    except BaseException:\n        pass'
limited --timeout 1 $'import sys\nsys.setswitchinterval(1e6)\n'"$catching"
limited --timeout 1 --sandbox=strict "$catching" # the strict level refuses setswitchinterval
limited --timeout 1 --sandbox=strict $'import time\nwhile True:\n    try:\n        time.sleep(100)\n    except BaseException:\n        pass'
limited --timeout 1 "input()"
limited --timeout 1 "import subprocess; subprocess.run(['sleep', '100'])"

# Ctrl-C. The code writes a marker when it is ready, then blocks; SIGINT
# goes to the process as a terminal sends it. Job control gives the
# background program the default SIGINT disposition. Standard input is a
# pipe that stays open, so input() blocks.
# usage: interrupted SIGNALS FILE-OR-CODE ARGUMENTS...: sends SIGNALS
# Ctrl-C, each once the code has written the marker again.
interrupted() {
    local count=$1
    shift
    command_line="brimora $*, then Ctrl-C x$count"
    rm -f "$WORK/ready" "$WORK/input"
    mkfifo "$WORK/input"
    set -m
    "$BRIMORA" "$@" <"$WORK/input" >"$WORK/stdout" 2>"$WORK/stderr" &
    local pid=$!
    set +m
    exec 7>"$WORK/input"
    local sent=0
    while [ "$sent" -lt "$count" ] && kill -0 "$pid" 2>/dev/null; do
        if [ -e "$WORK/ready" ]; then
            rm -f "$WORK/ready"
            sleep 0.1 # inside the blocking call
            kill -INT "$pid"
            sent=$((sent + 1))
        else
            sleep 0.02
        fi
    done
    wait "$pid"
    status=$?
    exec 7>&-
}
ready="open('$WORK/ready', 'w').close()"

cat >"$WORK/sleeps.py" <<EOF
import time
$ready
time.sleep(100)
EOF
interrupted 1 run "$WORK/sleeps.py"
expect_status 130
expect_stderr_lines "Traceback (most recent call last):" \
    "  File \"$WORK/sleeps.py\", line 3, in <module>" \
    "    time.sleep(100)" \
    "    ~~~~~~~~~~^^^^^" \
    "KeyboardInterrupt"
expect_stdout_empty

cat >"$WORK/reads.py" <<EOF
$ready
input()
EOF
interrupted 1 run "$WORK/reads.py"
expect_status 130
expect_stderr_last_line "KeyboardInterrupt"

# Every Ctrl-C reaches the code, which may catch it.
cat >"$WORK/catches.py" <<EOF
import time
for attempt in range(3):
    try:
        $ready
        time.sleep(100)
    except KeyboardInterrupt:
        print("caught", attempt)
EOF
interrupted 3 run "$WORK/catches.py"
expect_status 0
expect_stdout_lines "caught 0" "caught 1" "caught 2"
expect_stderr_empty

# eval and expr say "interrupted".
interrupted 1 eval "$ready
import time
time.sleep(100)"
expect_status 130
expect_stderr_lines "interrupted"
expect_stdout_empty

interrupted 1 eval "$ready
while True:
    pass"
expect_status 130
expect_stderr_lines "interrupted"

# A SIGINT that the code sends itself is KeyboardInterrupt too, at once.
run eval $'import os, signal, time\ntry:\n    os.kill(os.getpid(), signal.SIGINT)\n    time.sleep(100)\nexcept KeyboardInterrupt:\n    return "caught"'
expect_status 0
expect_stdout_lines "'caught'"

finish
