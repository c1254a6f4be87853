# Failures before any code runs are clear and exit with 1: an extension that
# cannot be loaded, a library that is no extension, code that cannot be read.
source "$(dirname "$0")/lib.bash"

run expr 1 --extension /nonexistent/libbrimora_python.so
expect_status 1
expect_stdout_empty
expect_stderr_first_line "error: Cannot load the Python extension: /nonexistent/libbrimora_python.so: cannot open shared object file: No such file or directory"

# A shared library without the entry points: the host runtime itself.
runtime=$(dirname "$BRIMORA")/libteskcore.so
run expr 1 --extension "$runtime"
expect_status 1
expect_stdout_empty
expect_stderr_contains "error: $runtime is not a Brimora extension:"
expect_stderr_contains "undefined symbol: brimora_extension_init"

# A file that is no library at all.
echo "not a library" >"$WORK/fake.so"
run expr 1 --extension "$WORK/fake.so"
expect_status 1
expect_stderr_contains "error: Cannot load the Python extension: $WORK/fake.so:"

# An extension that registers no language.
run eval "return 1" --extension "$(dirname "$BRIMORA")/libbrimora_empty_extension.so"
expect_status 1
expect_stdout_empty
expect_stderr_lines "error: Python evaluation is not available (yet): the extension registered no module tesk.cpython."

run eval -f /nonexistent/code.py
expect_status 1
expect_stdout_empty
expect_stderr_first_line "error: Cannot read /nonexistent/code.py: No such file or directory."

run eval -f "$WORK"
expect_status 1
expect_stderr_first_line "error: Cannot read $WORK: Is a directory."

finish
