# brimora run: a script runs as python3 runs it, inside the host.
source "$(dirname "$0")/lib.bash"

require_python

mkdir -p "$WORK/scripts/pkg"
cat >"$WORK/scripts/main.py" <<'PY'
import sys
import helper  # beside the script: its directory is first on sys.path
print(__name__, sys.argv[1:], helper.VALUE, __file__ == sys.argv[0])
if __name__ == "__main__":
    sys.exit(int(sys.argv[1]))
PY
echo 'VALUE = "helper"' >"$WORK/scripts/helper.py"

# __main__, sys.argv, sys.path[0], __file__ and the exit status of sys.exit.
run run "$WORK/scripts/main.py" 7 two
expect_status 7
expect_stdout_lines "__main__ ['7', 'two'] helper True"
expect_stderr_empty

run run "$WORK/scripts/main.py" 0
expect_status 0

# An uncaught exception: python3's traceback (the script's frames only), status 1.
printf 'def f():\n    raise ValueError("bad value")\nf()\n' >"$WORK/fails.py"
run run "$WORK/fails.py"
expect_status 1
expect_stdout_empty
expect_stderr_lines "Traceback (most recent call last):" \
    "  File \"$WORK/fails.py\", line 3, in <module>" "    f()" "    ~^^" \
    "  File \"$WORK/fails.py\", line 2, in f" "    raise ValueError(\"bad value\")" \
    "ValueError: bad value"

# sys.exit with a message prints it and gives 1; None gives 0.
printf 'import sys\nsys.exit("stopped here")\n' >"$WORK/message.py"
run run "$WORK/message.py"
expect_status 1
expect_stderr_lines "stopped here"
printf 'import sys\nsys.exit()\n' >"$WORK/none.py"
run run "$WORK/none.py"
expect_status 0

# "-" reads the script from standard input; a syntax error has no traceback.
run_with_input $'import sys\nprint(sys.argv, repr(sys.path[0]))' run - x
expect_status 0
expect_stdout_lines "['-', 'x'] ''"
run_with_input 'print(1+)' run -
expect_status 1
expect_stderr_lines '  File "<stdin>", line 1' "    print(1+)" "            ^" "SyntaxError: invalid syntax"

# A script that cannot be read.
run run "$WORK/missing.py"
expect_status 2
expect_stderr_lines "brimora: can't open file '$WORK/missing.py': [Errno 2] No such file or directory"

# Arguments after the script are the script's, even when they look like options.
run run "$WORK/scripts/main.py" 3 --help
expect_status 3
expect_stdout_contains "['3', '--help']"

# Child Pythons are the embedded Python, and a closed pipe raises
# BrokenPipeError in the code instead of ending the host.
cat >"$WORK/child.py" <<'PY'
import subprocess, sys
out = subprocess.run([sys.executable, "-c", "import sys; print(sys.version_info[:2])"],
                     capture_output=True, text=True).stdout
print(out.strip() == str(sys.version_info[:2]), sys.executable == sys._base_executable)
reader = subprocess.Popen([sys.executable, "-c", "pass"], stdin=subprocess.PIPE)
reader.wait()
try:
    reader.stdin.write(b"x" * 1000000)
    reader.stdin.flush()
except BrokenPipeError:
    print("broken pipe raised")
PY
run run "$WORK/child.py"
expect_status 0
expect_stdout_lines "True True" "broken pipe raised"

# Children see Ctrl-C as usual: brimora blocks no signal that they inherit.
cat >"$WORK/mask.py" <<'PY'
import subprocess, sys
print(subprocess.run([sys.executable, "-c", "import signal; print(signal.pthread_sigmask(signal.SIG_BLOCK, []))"],
                     capture_output=True, text=True).stdout.strip())
PY
run run "$WORK/mask.py"
expect_status 0
expect_stdout_lines "set()"

# The host may name another program.
BRIMORA_PYTHON_EXECUTABLE=/opt/other/python run expr "(__import__('sys').executable, __import__('sys')._base_executable)"
expect_status 0
expect_stdout_lines "('/opt/other/python', '/opt/other/python')"

finish
