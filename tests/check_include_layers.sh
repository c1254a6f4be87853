# The extension's folders are layers, and an include may only go down:
#   python/ <- to_python/ <- from_python/ <- proxies/ <- language/ <- extension/
# No two folders include each other: what a lower layer needs from a higher
# one (the conversion of Python values for the wrappers, the proxy classes
# for the conversion) is registered with it from above while the library
# loads. Prints every include that goes up and fails when there is one.
#
# usage: check_include_layers.sh SOURCE_ROOT
set -u
root=${1:?usage: $0 SOURCE_ROOT}
cd "$root" || exit 2

rank() {
    case $1 in
    python) echo 0 ;;
    to_python) echo 1 ;;
    from_python) echo 2 ;;
    proxies) echo 3 ;;
    language) echo 4 ;;
    extension) echo 5 ;;
    *) echo -1 ;;
    esac
}

# Known exceptions, one "FILE INCLUDED" a line, each to be removed with its
# cause (none today).
allowed=""

violations=0
files=0
for folder in python to_python from_python proxies language extension; do
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
