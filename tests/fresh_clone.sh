# The README's two commands work in a fresh clone: the committed HEAD is
# cloned into a temporary directory, and the commands are taken from the
# README (the sh blocks after "<!-- fresh-clone: run -->" and "<!--
# fresh-clone: test -->") and run there exactly as written. The first must
# print the squares of its example, the second must pass.
#
# It builds everything once more, so it runs only when CI is true (.ci/run);
# otherwise, and inside the clone it makes, it is skipped (77).
set -u
source_dir=${1:?usage: $0 SOURCE_DIR}
skip_status=77
if [ "${CI:-}" != true ] || [ -n "${BRIMORA_IN_FRESH_CLONE:-}" ]; then
    echo "SKIP: the fresh-clone check runs in CI only (CI=true)"
    exit "$skip_status"
fi

# The first line of the sh block after the marker.
readme_command() {
    awk -v marker="<!-- fresh-clone: $1 -->" '
        $0 == marker { found = 1; next }
        found && /^```sh$/ { inside = 1; next }
        inside { print; exit }
    ' "$source_dir/README.md"
}
run_command=$(readme_command run)
test_command=$(readme_command test)
[ -n "$run_command" ] && [ -n "$test_command" ] || { echo "FAIL: the README has no marked commands"; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
revision=$(git -C "$source_dir" rev-parse HEAD) || exit 1
git clone --quiet --no-checkout "$source_dir" "$work/clone" && git -C "$work/clone" checkout --quiet "$revision" ||
    { echo "FAIL: cannot clone $source_dir"; exit 1; }
cd "$work/clone" || exit 1
export BRIMORA_IN_FRESH_CLONE=1

echo "== $run_command"
output=$(bash -c "$run_command" 2>"$work/run.err")
status=$?
if [ "$status" -ne 0 ] || [ "$(printf '%s\n' "$output" | tail -n 1)" != "[0, 1, 4, 9, 16]" ]; then
    tail -n 40 "$work/run.err"
    echo "FAIL: the run command (exit $status) printed: $(printf '%s\n' "$output" | tail -n 3)"
    exit 1
fi

echo "== $test_command"
if ! bash -c "$test_command" >"$work/test.log" 2>&1; then
    tail -n 60 "$work/test.log"
    echo "FAIL: the test command failed in the fresh clone"
    exit 1
fi
tail -n 3 "$work/test.log"
echo "both README commands work in a fresh clone of $revision"
