# brimora modules: the host modules, one module's members, and the export of
# every Python module with its progress (plain lines in a pipe, a bar on a
# terminal).
source "$(dirname "$0")/lib.bash"
require_python

run modules
expect_status 0
for name in python python.builtins python.collections python.collections.abc python.datetime python.decimal \
    python.sys python.types python.typing tesk tesk.cpython; do
    check true
    grep -qE "^$name( |\$)" "$WORK/stdout" || fail "no module line for $name"
done
check true
! grep -q '^python.json' "$WORK/stdout" || fail "python.json listed before --all"

run modules python.builtins
expect_status 0
expect_stdout_contains "class ValueError"
check true
grep -qE '^len\(' "$WORK/stdout" || fail "no signature line for len"

run modules no.such.module
expect_status 1
expect_stderr_first_line "error: No host module named 'no.such.module'."
run modules python.json
expect_status 1
expect_stderr_first_line "error: No host module named 'python.json' (--all exports every Python module first)."

run modules --all
expect_status 0
expect_stdout_contains "python.json  JSON (JavaScript Object Notation)"
expect_stdout_contains "python.json.decoder"
check true
grep -qE '^\[1/[0-9]+\] ' "$WORK/stderr" || fail "no plain progress lines on standard error"
check true
! grep -qE '^python\.(this|antigravity|tkinter|test)( |$)' "$WORK/stdout" || fail "a module left out by name was exported"

run modules --all python.json
expect_status 0
expect_stdout_contains "class JSONDecoder"
expect_stdout_contains "loads(s, "

run modules --bogus
expect_status 2
expect_stderr_first_line "brimora: unknown option '--bogus' for modules"
run modules a b
expect_status 2
expect_stderr_first_line "brimora: modules takes one module name"

# On a terminal the progress is one line with a bar, rewritten in place.
if command -v tmux >/dev/null; then
    session="brimora-modules-$$"
    tmux new-session -d -s "$session" -x 120 -y 10 \
        "'$BRIMORA' modules --all >'$WORK/terminal-out'; echo finished-\$?; sleep 30"
    for _ in $(seq 1 100); do
        tmux capture-pane -p -t "$session" >"$WORK/screen"
        grep -q 'finished-' "$WORK/screen" && break
        sleep 0.2
    done
    tmux kill-session -t "$session" 2>/dev/null
    check true
    grep -q 'finished-0' "$WORK/screen" || fail "modules --all did not finish on a terminal"
    check true
    grep -qE '^\[#+\] ([0-9]+)/\1 *$' "$WORK/screen" || fail "no full progress bar on the terminal: $(cat "$WORK/screen")"
    check true
    ! grep -qE '^\[[0-9]+/' "$WORK/screen" || fail "plain progress lines on a terminal"
fi

finish
