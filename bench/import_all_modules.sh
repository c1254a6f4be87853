#!/usr/bin/env bash
# importAllModules against python3.13 importing the same modules: wall time
# and peak memory of the whole process, medians of RUNS runs each.
#
# usage: bench/import_all_modules.sh BUILD_DIR [RUNS]
set -euo pipefail
build=${1:?usage: $0 BUILD_DIR [RUNS]}
runs=${2:-5}
brimora="$build/bin/brimora"
python313="$(pyenv prefix 3.13.0 2>/dev/null)/bin/python3.13"
[ -x "$python313" ] || python313=$(command -v python3.13)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The modules that importAllModules exports, as Python names.
"$brimora" modules --all 2>/dev/null | awk '{print $1}' | sed -n 's/^python\.//p' >"$work/modules"
cat >"$work/import.py" <<'PY'
import importlib, sys
sys.dont_write_bytecode = True
for name in open(sys.argv[1]).read().split():
    try:
        importlib.import_module(name)
    except BaseException:
        pass
PY

# "seconds kilobytes" of one run of the command.
measure() { /usr/bin/time -f '%e %M' "$@" >/dev/null 2>"$work/time" || true; tail -n 1 "$work/time"; }
median() { sort -n | awk '{a[NR] = $1} END {print a[int((NR + 1) / 2)]}'; }

for _ in $(seq "$runs"); do measure "$brimora" modules --all; done >"$work/ours"
for _ in $(seq "$runs"); do measure "$python313" "$work/import.py" "$work/modules"; done >"$work/python"

ours_s=$(cut -d' ' -f1 "$work/ours" | median); ours_kb=$(cut -d' ' -f2 "$work/ours" | median)
py_s=$(cut -d' ' -f1 "$work/python" | median); py_kb=$(cut -d' ' -f2 "$work/python" | median)
echo "modules: $(wc -l <"$work/modules")"
echo "brimora modules --all: ${ours_s} s, ${ours_kb} KB"
echo "python3.13 importing them: ${py_s} s, ${py_kb} KB"
awk -v a="$ours_s" -v b="$py_s" -v c="$ours_kb" -v d="$py_kb" \
    'BEGIN {printf "ratio: time %.2fx, memory %.2fx\n", a / b, c / d}'
