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

. "$(dirname "$0")/../measure.sh"

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

printf '%-30s %7s %7s %7s | %7s | %7s %7s | %8s %8s %8s | %8s %8s %8s %8s\n' file \
  ours_s ours_cpu ours_MiB plain_s floor_s flr_cpu pyxl_s pyxl_cpu pyxl_MiB \
  speedup mem_frac vs_floor vs_f_cpu
for f in "${files[@]}"; do
  name=$(basename "$f")
  [[ $f == "$work/generated.xlsx" ]] && name="generated-$cells-cells.xlsx"
  read -r ours_s ours_c ours_m < <(measure "$bench" loadsave "$f" "$work/ours.xlsx" touch)
  read -r plain_s _ _ < <(measure "$bench" loadsave "$f" "$work/plain.xlsx")
  read -r floor_s floor_c _ < <(measure "$bench" floor "$f" "$work/floor.xlsx" touch)
  read -r py_s py_c py_m < <(measure "$python" "$work/openpyxl_loadsave.py" "$f" "$work/py.xlsx" touch)
  awk -v n="$name" -v os="$ours_s" -v oc="$ours_c" -v om="$ours_m" -v ps="$plain_s" \
    -v fs="$floor_s" -v fc="$floor_c" -v ys="$py_s" -v yc="$py_c" -v ym="$py_m" '
    function ratio(a, b, f) { return (a == "-" || b == "-" || b + 0 == 0) ? "n/a" : sprintf(f, a / b) }
    BEGIN {
      printf "%-30s %7s %7s %7s | %7s | %7s %7s | %8s %8s %8s | %8s %8s %8s %8s\n",
        n, os, oc, om, ps, fs, fc, ys, yc, ym,
        ratio(ys, os, "%.1fx"), ratio(om, ym, "%.3f"), ratio(os, fs, "%.2fx"), ratio(oc, fc, "%.2fx")
    }'
done
echo "ours: load, change A1 of every worksheet, save; plain: load and save unchanged; floor:"
echo "inflate every part, deflate the worksheets (same deflater and level as a save); pyxl:"
echo "openpyxl load + the same change + save. Goals: speedup >= 15x, mem_frac <= 0.25,"
echo "vs_floor <= 2x (wall; vs_f_cpu is the same ratio in CPU seconds)."
