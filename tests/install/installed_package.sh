# Installs the build into a temporary prefix, builds examples/embed against
# it as a project of its own (find_package(brimora_python CONFIG)) and runs
# it: the installed libraries, headers and package must be enough, without
# the source or build tree.
set -u
# A sanitized build passes its compiler flags as the fourth argument: the
# example must be built the same way to link the installed libraries.
cmake=${1:?usage: $0 CMAKE BUILD_DIR SOURCE_DIR [FLAGS]}
build_dir=${2:?}
source_dir=${3:?}
flags=${4:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}

"$cmake" --install "$build_dir" --prefix "$work/prefix" >"$work/install.log" ||
    { cat "$work/install.log"; echo "FAIL: cmake --install"; exit 1; }
for file in bin/brimora lib/libteskcore.so lib/libbrimora_embed.so lib/libbrimora_python.so \
    include/tesk/tesk.h include/brimora/embed.h lib/cmake/brimora_python/brimora_pythonConfig.cmake; do
    [ -e "$work/prefix/$file" ] || fail "not installed: $file"
done

# The example is copied away from the source tree, so that nothing but the
# prefix can be found.
cp -r "$source_dir/examples/embed" "$work/embed"
if ! "$cmake" -S "$work/embed" -B "$work/embed-build" -DCMAKE_PREFIX_PATH="$work/prefix" \
    -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" >"$work/configure.log" 2>&1 ||
    ! "$cmake" --build "$work/embed-build" >"$work/build.log" 2>&1; then
    cat "$work/configure.log" "$work/build.log" 2>/dev/null
    echo "FAIL: examples/embed does not build against the installed package"
    exit 1
fi

example="$work/embed-build/embed_example"
output=$("$example" 2>&1)
[ $? -eq 0 ] && [ "$output" = "42" ] || fail "embed_example: expected 42, got: $output"
output=$("$example" $'x = 1\nreturn [a, x / 0]' 2>&1)
status=$?
[ "$status" -eq 1 ] || fail "embed_example with a ZeroDivisionError: exit $status, expected 1"
[ "$output" = "error: division by zero (line 2)" ] || fail "embed_example with a ZeroDivisionError printed: $output"

# The installed program finds its extension in lib/.
output=$("$work/prefix/bin/brimora" expr "tesk.cpython.CPythonLanguage.instance.name" 2>&1)
[ "$output" = "'CPython'" ] || fail "installed brimora: $output"

if [ "$failures" -ne 0 ]; then
    echo "$failures failed"
    exit 1
fi
echo "installed package: example built and run"
