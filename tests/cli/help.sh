# --help and -h explain the commands and options, on standard output.
source "$(dirname "$0")/lib.bash"

run --help
expect_status 0
expect_stderr_empty
for text in "brimora expr EXPRESSION" "brimora eval BLOCK" "brimora eval -f FILE" \
    "--local NAME=VALUE" "--global NAME=VALUE" "--out NAME=VALUE" "--sandbox" "--extension PATH" \
    "Exit status"; do
    expect_stdout_contains "$text"
done
cp "$WORK/stdout" "$WORK/help"

run -h
expect_status 0
check true
cmp -s "$WORK/help" "$WORK/stdout" || fail "-h differs from --help"

# Help after a command is still help, even with the code missing.
run eval --help
expect_status 0
expect_stdout_contains "brimora eval BLOCK"

finish
