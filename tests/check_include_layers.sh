# The extension's folders are layers, and an include may only go down:
#   python/  <-  to_python/, from_python/  <-  language/  <-  extension/
# (to_python/ and from_python/ may include each other: a call through a
# wrapper converts both ways). Prints every include that goes up and fails
# when there is one.
#
# usage: check_include_layers.sh SOURCE_ROOT
set -u
root=${1:?usage: $0 SOURCE_ROOT}
cd "$root" || exit 2

rank() {
    case $1 in
    python) echo 0 ;;
    to_python | from_python) echo 1 ;;
    language) echo 2 ;;
    extension) echo 3 ;;
    *) echo -1 ;;
    esac
}

# Known exceptions, one "FILE INCLUDED" a line, each to be removed with its
# cause (none today).
allowed=""

violations=0
files=0
for folder in python to_python from_python language extension; do
    [ -d "$folder" ] || continue
    own=$(rank "$folder")
    for file in "$folder"/*.h "$folder"/*.cpp; do
        [ -f "$file" ] || continue
        files=$((files + 1))
        while IFS= read -r included; do
            target=${included%%/*}
            [ "$target" = "$included" ] && continue # no folder: not ours
            other=$(rank "$target")
            [ "$other" -gt "$own" ] || continue
            grep -qxF "$file $included" <<<"$allowed" && continue
            echo "upward include: $file includes $included ($folder/ is below $target/)"
            violations=$((violations + 1))
        done < <(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\)".*/\1/p' "$file")
    done
done

if [ "$files" -eq 0 ]; then
    echo "no source files found below $root"
    exit 1
fi
echo "$files files checked, $violations upward includes"
[ "$violations" -eq 0 ]
