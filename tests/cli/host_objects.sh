# Host objects from the command line: JSON values become host lists and maps,
# which Python code uses through the wrapper protocols.
source "$(dirname "$0")/lib.bash"
require_python

run expr "xs[1:]" --local 'xs=[1, 2, 3]'
expect_status 0
expect_stdout_lines "[2, 3]"

# A host method called and a host property read from Python.
run eval $'xs.append(4)\nreturn (xs.length, xs.at(3), len(xs), list(xs[::2]))' --local 'xs=[1, 2, 3]'
expect_status 0
expect_stdout_lines "(4, 4, 4, [1, 3])"

# Nested values; the leaves follow the rules of plain values.
run expr "(cfg['a'], cfg['b']['c'], 'b' in cfg)" --local 'cfg={"a": 1, "b": {"c": [true, null, 2.5, "x"]}}'
expect_status 0
expect_stdout_lines "(1, [True, None, 2.5, 'x'], True)"

# An out-local that is a host map, changed in place by the block.
run eval $'cfg["n"] = cfg["n"] + 1' --out 'cfg={"n": 41}'
expect_status 0
expect_stdout_lines "None" "cfg = {'n': 42}"

# Host errors are Python exceptions that Python code can catch.
run eval $'try:\n    xs[5]\nexcept RuntimeError:\n    return "caught"' --local 'xs=[1]'
expect_status 0
expect_stdout_lines "'caught'"
run expr "cfg['missing']" --global 'cfg={}'
expect_status 1
expect_stderr_first_line "error: 'missing'"

# Host modules answer their members.
run expr "(callable(tesk.get_logger), tesk.cpython.CPythonLanguage.instance is not None)"
expect_status 0
expect_stdout_lines "(True, True)"

# Malformed JSON is a usage error that says where it broke.
run expr x --local 'x=[1, 2'
expect_status 2
expect_stderr_first_line "brimora: --local: malformed JSON: parse error at line 1, column 6: syntax error while parsing array - unexpected end of input; expected ']'"
run expr x --global 'x={"a": [99999999999999999999]}'
expect_status 2
expect_stderr_first_line "brimora: --global: The number 99999999999999999999 is out of range."

finish
