# A wrong command line says what is wrong, reminds of the usage on standard
# error, prints nothing on standard output and exits with 2.
source "$(dirname "$0")/lib.bash"

# expect_usage_error MESSAGE ARGUMENTS...
expect_usage_error() {
    local message=$1
    shift
    run "$@"
    expect_status 2
    expect_stdout_empty
    expect_stderr_first_line "brimora: $message"
    expect_stderr_contains "usage: brimora expr EXPRESSION [options]"
}

expect_usage_error "no command given"
expect_usage_error "unknown command 'walk' (expected expr, eval, run, repl or modules)" walk 1
expect_usage_error "missing the script to run" run
expect_usage_error "missing the script to run" run --extension x.so
expect_usage_error "unknown option '--local' for run (options come before FILE)" run --local a=1 x.py
expect_usage_error "unknown option '--verbose'" --verbose
expect_usage_error "unknown option '--bogus' (put -- before code that starts with '-')" expr 1 --bogus
expect_usage_error "unknown option '-1' (put -- before code that starts with '-')" expr -1
expect_usage_error "option --local needs a value (NAME=VALUE)" eval "return a" --local
expect_usage_error "option --extension needs a value (PATH)" expr 1 --extension
expect_usage_error "option -f needs a value (FILE)" eval -f
expect_usage_error "--local expects NAME=VALUE, got 'a'" eval "return a" --local a
expect_usage_error "--out: '1a' is not a valid variable name" eval "pass" --out 1a=2
expect_usage_error "--global: 'a-b' is not a valid variable name" expr 1 --global a-b=2
expect_usage_error "--local: The number 99999999999999999999 is out of range." expr a --local a=99999999999999999999
expect_usage_error "--out needs a block (eval): an expression assigns no variables" expr 1 --out a=1
expect_usage_error "missing the expression to evaluate" expr
expect_usage_error "missing the block to run" eval --sandbox
expect_usage_error "unexpected argument '2'" expr 1 2
expect_usage_error "give the code either as an argument or with -f, not both" eval "return 1" -f code.py
expect_usage_error "option --file given twice" eval -f a.py --file b.py
expect_usage_error "option -f given twice" eval -f a.py -f b.py
expect_usage_error "option --extension given twice" expr 1 --extension a.so --extension=b.so

finish
