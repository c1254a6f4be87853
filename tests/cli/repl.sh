# brimora repl on a terminal, driven through tmux as a user would type:
# a host module imported and called, an error and the session going on, a
# multi-line def, Ctrl-C on a half-typed line and during time.sleep, the
# history (Up) and Ctrl-D leaving with status 0.
source "$(dirname "$0")/lib.bash"

command -v tmux >/dev/null || { echo "SKIP: tmux is missing"; exit "$skip_status"; }
require_python

server="brimora-repl-test-$$"
tmux_() { tmux -L "$server" "$@"; }
trap 'tmux_ kill-server 2>/dev/null; rm -rf "$WORK"' EXIT
screen="$WORK/screen"
command_line="brimora repl (in tmux)"

# The whole pane, scroll-back included.
capture() { tmux_ capture-pane -p -J -S - -t repl >"$screen"; }
show_screen() { sed 's/^/  screen| /' "$screen"; }
# Waits until the screen shows `text` at least `count` times (default 1);
# fails, showing the screen, when it does not within a minute.
wait_for() {
    local text=$1 count=${2:-1} tries=0
    check true
    while capture; [ "$(grep -cF -- "$text" "$screen")" -lt "$count" ]; do
        tries=$((tries + 1))
        if [ "$tries" -gt 600 ]; then
            fail "the screen never showed '$text' $count time(s)"
            show_screen
            finish
            exit 1
        fi
        sleep 0.1
    done
}
prompts=1
type_line() {
    tmux_ send-keys -t repl -l -- "$1"
    tmux_ send-keys -t repl Enter
}
# Types an entry and waits for the next prompt.
enter() {
    type_line "$1"
    prompts=$((prompts + 1))
    wait_for ">>> " "$prompts"
}
expect_screen() {
    check true
    grep -qF -- "$1" "$screen" || { fail "the screen lacks: $1"; show_screen; }
}

# Starts brimora with these arguments in the pane "repl". The pane stays
# open after brimora ends, so that its screen can be read; the exit status
# goes to $WORK/status.
start_in_pane() {
    rm -f "$WORK/status"
    tmux_ kill-session -t repl 2>/dev/null
    tmux_ new-session -d -s repl -x 120 -y 50 \
        "env HOME='$WORK' TERM=xterm-256color BRIMORA_HISTORY='$WORK/history' '$BRIMORA' $*; echo \$? >'$WORK/status.part'; mv '$WORK/status.part' '$WORK/status'; sleep 600"
}
# Waits for brimora to end and checks its exit status.
expect_exit_status() {
    local tries=0
    until [ -e "$WORK/status" ] || [ "$tries" -gt 600 ]; do
        tries=$((tries + 1))
        sleep 0.1
    done
    check true
    [ "$(cat "$WORK/status" 2>/dev/null)" = "$1" ] ||
        { fail "brimora did not end with status $1 (status: $(cat "$WORK/status" 2>/dev/null))"; capture; show_screen; }
}

start_in_pane repl
wait_for ">>> "
expect_screen "Python 3.13"

# A host module, imported and called.
enter "import tesk.cpython"
enter "tesk.cpython.evaluate_expr('6 * 7', None) + 0.5"
expect_screen "42.5"

# An error prints its traceback, and the session goes on.
enter "1 / 0"
expect_screen "ZeroDivisionError: division by zero"
enter "print('still', 'here')"
expect_screen "still here"

# A block of several lines: the editor indents the body; an empty line ends it.
type_line "def twice(x):"
type_line "return x * 2"
enter ""
enter "twice(21)"
expect_screen "...     return x * 2"
check true
grep -qx "42" "$screen" || { fail "twice(21) did not print 42"; show_screen; }

# Ctrl-C on a half-typed line cancels it.
tmux_ send-keys -t repl -l -- "half typed"
tmux_ send-keys -t repl C-c
prompts=$((prompts + 1))
wait_for ">>> " "$prompts"
expect_screen "KeyboardInterrupt"

# Ctrl-C while the code sleeps stops it at once, with its traceback.
type_line "import time; print('sleeping'); time.sleep(600)"
wait_for "sleeping" 2
tmux_ send-keys -t repl C-c
prompts=$((prompts + 1))
wait_for ">>> " "$prompts"
expect_screen "time.sleep(600)"
wait_for "KeyboardInterrupt" 2
enter "print(6 * 9)"
expect_screen "54"

# Up brings back the last entry.
tmux_ send-keys -t repl Up
tmux_ send-keys -t repl Enter
prompts=$((prompts + 1))
wait_for ">>> " "$prompts"
check true
[ "$(grep -cx "54" "$screen")" -eq 2 ] || { fail "Up and Enter did not run print(6 * 9) again"; show_screen; }

# Ctrl-D leaves with status 0, and the history is kept.
tmux_ send-keys -t repl C-d
expect_exit_status 0
check true
grep -qF "twice(21)" "$WORK/history" || fail "the history file lacks the entries"

# Without arguments on a terminal, brimora starts the prompt too; the
# history of the last session is there.
start_in_pane
prompts=1
wait_for ">>> "
tmux_ send-keys -t repl Up
wait_for ">>> print(6 * 9)"
tmux_ send-keys -t repl C-u C-d
expect_exit_status 0

finish
