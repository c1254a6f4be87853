# The C++ examples of the documentation compile against the public headers:
# every ```cpp block of the given Markdown files is a translation unit of its
# own, compiled with the project's warnings as errors. A block that follows
# the line "<!-- examples/embed/main.cpp -->" must also be that file, which
# the installed-package test builds and runs.
set -u
compiler=${1:?usage: $0 CXX SOURCE_DIR FILE.md...}
source_dir=${2:?}
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
blocks=0

for document in "$@"; do
    # Splits the document into block-N.cpp files; a block after the marker
    # also gets a .from file naming the file it must equal.
    awk -v out="$work/$(basename "$document" .md)" '
        /^<!-- examples\/[^ ]+ -->$/ { from = $2; next }
        /^```cpp$/ { n++; inside = 1; file = out "-" n ".cpp"; printf "" > file
                     if (from != "") { print from > (file ".from"); from = "" } ; next }
        /^```$/ && inside { inside = 0; close(file); next }
        inside { print > file }
    ' "$document"
done

for block in "$work"/*.cpp; do
    [ -e "$block" ] || continue
    blocks=$((blocks + 1))
    name=$(basename "$block")
    if [ -e "$block.from" ]; then
        original="$source_dir/$(cat "$block.from")"
        cmp -s "$block" "$original" || { echo "FAIL: $name is not $(cat "$block.from") as it is:"; diff "$original" "$block"; failures=$((failures + 1)); }
    fi
    if ! "$compiler" -std=c++20 -Wall -Wextra -Werror -fsyntax-only \
        -I "$source_dir/host/include" -I "$source_dir/embed/include" "$block" 2>"$work/errors"; then
        echo "FAIL: $name does not compile:"
        cat -n "$block"
        cat "$work/errors"
        failures=$((failures + 1))
    fi
done

echo "$blocks examples, $failures failed"
[ "$blocks" -gt 0 ] || { echo "FAIL: no C++ example found"; exit 1; }
[ "$failures" -eq 0 ]
