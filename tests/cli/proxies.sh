# Python objects that the code returns stay live Python objects in the host,
# printed as Python prints them; one returned by a sandboxed evaluation keeps
# running under that sandbox when the host prints it or drops it.
source "$(dirname "$0")/lib.bash"
require_python

run expr "{'a': [1, 2]}"
expect_status 0
expect_stdout_lines "{'a': [1, 2]}"
run expr "lambda x: x"
expect_status 0
check true
grep -qE '^<function <lambda> at 0x[0-9a-f]+>$' "$WORK/stdout" || fail "not a function's repr"
run expr "({1, 2}, frozenset(), (x for x in []), {'k': 1}.keys())"
expect_status 0
check true
grep -qE "^\(\{1, 2\}, frozenset\(\), <generator object <genexpr> at 0x[0-9a-f]+>, dict_keys\(\['k'\]\)\)$" \
    "$WORK/stdout" || fail "not the tuple's repr"

# An object whose __repr__ and __del__ write files.
sneaky=$(cat <<PY
class Sneaky:
    tag = level
    def __repr__(self):
        open('$WORK/repr-' + self.tag, 'w').close()
        return 'Sneaky()'
    def __del__(self):
        open('$WORK/del-' + self.tag, 'w').close()
return Sneaky()
PY
)

# Unsandboxed, both run: the control.
run eval "$sneaky" --local level=plain
expect_status 0
expect_stdout_lines "Sneaky()"
check true
[ -e "$WORK/repr-plain" ] && [ -e "$WORK/del-plain" ] || fail "__repr__ or __del__ did not run"

for sandbox in --sandbox --sandbox=strict; do
    run eval "$sneaky" "$sandbox" --local "level=${sandbox#--}"
    expect_status 0
    check true
    [ ! -e "$WORK/repr-${sandbox#--}" ] || fail "__repr__ of a sandboxed result wrote a file"
    [ ! -e "$WORK/del-${sandbox#--}" ] || fail "__del__ of a sandboxed result wrote a file"
done

finish
