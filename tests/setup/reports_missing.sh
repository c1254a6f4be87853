# scripts/setup, where it cannot install: without root (and without sudo or
# apt-get) it names the missing packages and the command that installs them;
# without a CPython 3.13 and without pyenv it says how to get one. Both fail
# with status 1. The missing tools are made missing by a PATH that lacks them.
set -u
source_dir=${1:?usage: $0 SOURCE_DIR}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
    echo "FAIL: $*"
    sed 's/^/  stderr| /' "$work/stderr"
    failures=$((failures + 1))
}

# A PATH with cmake and g++ (and tmux, when asked for), and an `id` that
# says the user is not root.
tools="$work/bin"
mkdir -p "$tools"
printf '#!/bin/sh\necho 1000\n' >"$tools/id"
chmod +x "$tools/id"
for tool in cmake g++; do ln -s "$(command -v "$tool")" "$tools/$tool"; done

PATH="$tools" "$BASH" "$source_dir/scripts/setup" >/dev/null 2>"$work/stderr"
status=$?
[ "$status" -eq 1 ] || fail "without tmux and without root: exit $status, expected 1"
grep -qxF "setup: missing: tmux" "$work/stderr" || fail "the missing package is not named"
grep -qxF "setup: install them (Debian/Ubuntu: apt-get install tmux), or run this script as root" "$work/stderr" ||
    fail "the command that installs it is not given"

# No CPython 3.13 where setup looks (an empty HOME, no pyenv): only
# meaningful where the system itself has none.
if [ -e /usr/include/python3.13/Python.h ] || [ -e /usr/local/include/python3.13/Python.h ]; then
    echo "SKIP: this system has a CPython 3.13 of its own; its absence cannot be checked"
    exit 77
fi
command -v tmux >/dev/null && ln -s "$(command -v tmux)" "$tools/tmux"
[ -e "$tools/tmux" ] || { echo "SKIP: tmux is missing"; exit 77; }
mkdir -p "$work/home"
HOME="$work/home" PATH="$tools" Python3_ROOT_DIR="" PYENV_ROOT="$work/home/.pyenv" \
    "$BASH" "$source_dir/scripts/setup" >/dev/null 2>"$work/stderr"
status=$?
[ "$status" -eq 1 ] || fail "without CPython 3.13 and without pyenv: exit $status, expected 1"
grep -qF "setup: missing: CPython 3.13 with its shared library (libpython3.13.so) and headers" "$work/stderr" ||
    fail "the missing CPython is not named"
grep -qF "setup:   PYTHON_CONFIGURE_OPTS=--enable-shared pyenv install 3.13.0" "$work/stderr" ||
    fail "the command that installs CPython is not given"

[ "$failures" -eq 0 ] && echo "setup names what to install"
[ "$failures" -eq 0 ]
