#!/usr/bin/env bash
# Load+save speed and peak memory of the workbook layer next to openpyxl and next to the
# floor of inflating every part and deflating the rewritten ones, on the same files in one run.
#
#   bench/xlsx/run.sh [BENCH_BINARY] [CELLS]
#
# BENCH_BINARY defaults to build/release/bench/xlsx/qzxl_xlsx_bench; CELLS (default 1000000)
# sizes the generated workbook. The largest corpus workbook is measured too when the corpus is
# there. Each program runs in a process of its own under /usr/bin/time, which reports wall time
# and the peak resident memory. "touch" changes one cell on every worksheet, so the save has to
# rewrite every worksheet part; it is the case the ratios are taken from.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
bench=${1:-$root/build/release/bench/xlsx/qzxl_xlsx_bench}
cells=${2:-1000000}
python=/usr/bin/python3
corpus=${QZXL_CORPUS:-$root/../shared/corpus}
largest=$corpus/workbooks/xlnt/benchmarks/data/large.xlsx

[[ -x $bench ]] || { echo "run.sh: no benchmark program at $bench" >&2; exit 2; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Runs a command under /usr/bin/time; prints "SECONDS MIB".
measure() {
  /usr/bin/time -f '%e %M' -o "$work/time" "$@" >"$work/out" 2>"$work/err" || {
    echo "run.sh: failed: $*" >&2
    cat "$work/err" >&2
    exit 1
  }
  read -r secs kib <"$work/time"
  awk -v s="$secs" -v k="$kib" 'BEGIN { printf "%.2f %.1f\n", s, k / 1024 }'
}

cat >"$work/openpyxl_loadsave.py" <<'EOF'
import sys
import openpyxl

book = openpyxl.load_workbook(sys.argv[1])
if len(sys.argv) > 3 and sys.argv[3] == "touch":
    for ws in book.worksheets:
        if ws["A1"].data_type != "f":
            ws["A1"] = 42
book.save(sys.argv[2])
EOF

"$bench" generate "$work/generated.xlsx" "$cells" >/dev/null
files=("$work/generated.xlsx")
[[ -f $largest ]] && files+=("$largest")

printf '%-28s %10s %10s %10s %10s %10s %10s | %8s %8s %8s\n' file ours_s ours_MiB \
  plain_s floor_s openpyxl_s openpyxl_MiB speedup mem_frac vs_floor
for f in "${files[@]}"; do
  name=$(basename "$f")
  [[ $f == "$work/generated.xlsx" ]] && name="generated-$cells-cells.xlsx"
  read -r ours_s ours_m < <(measure "$bench" loadsave "$f" "$work/ours.xlsx" touch)
  read -r plain_s _ < <(measure "$bench" loadsave "$f" "$work/plain.xlsx")
  read -r floor_s _ < <(measure "$bench" floor "$f" "$work/floor.xlsx" touch)
  read -r py_s py_m < <(measure "$python" "$work/openpyxl_loadsave.py" "$f" "$work/py.xlsx" touch)
  awk -v n="$name" -v os="$ours_s" -v om="$ours_m" -v ps="$plain_s" -v fs="$floor_s" \
    -v ys="$py_s" -v ym="$py_m" 'BEGIN {
      printf "%-28s %10.2f %10.1f %10.2f %10.2f %10.2f %10.1f | %7.1fx %8.3f %7.2fx\n",
        n, os, om, ps, fs, ys, ym, ys / (os > 0 ? os : 0.01), om / ym, os / (fs > 0 ? fs : 0.01)
    }'
done
echo "goals: speedup >= 15x, mem_frac <= 0.25, vs_floor <= 2x (ours = load, change A1 of every"
echo "worksheet, save; plain = load and save unchanged; floor = inflate all, deflate the sheets)"
