#!/usr/bin/env bash
# `qzxl autocolor` end to end (load, colour, save) on three models of the same size: the
# generated model of make-large, and that model as LibreOffice and as openpyxl write it. For
# each, side by side in one run: the floor (inflate every part, deflate the rewritten sheets),
# the tool, and an openpyxl script applying the same rules; wall and processor seconds, peak
# memory, and the ratios.
#
#   bash bench/cli/run.sh                        the three 1,000,000-cell models
#   CELLS=100000 bash bench/cli/run.sh           smaller ones
#   SCALE="1 2 4 8" bash bench/cli/run.sh        also the generated model at 1, 2, 4 and 8
#                                                million cells (floor and tool only)
#   PEERS=0 bash bench/cli/run.sh                leave openpyxl out
#   KEEP=DIR bash bench/cli/run.sh               keep the three models in DIR, and reuse those
#                                                already there (generating them takes minutes)
#   QZXL=... XLSX_BENCH=... QZXL_MODELS=... bash bench/cli/run.sh
#                                                other builds (XLSX_BENCH measures the floor,
#                                                QZXL_MODELS writes the generated model)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
qzxl=${QZXL:-$root/build/release/cli/qzxl}
xlsx_bench=${XLSX_BENCH:-$(cd "$(dirname "$qzxl")/.." && pwd)/bench/xlsx/qzxl_xlsx_bench}
cells=${CELLS:-1000000}
peers=${PEERS:-1}
scale=${SCALE:-}
. "$here/models.sh"

[[ -x $qzxl ]] || { echo "run.sh: no qzxl at $qzxl" >&2; exit 2; }
[[ -x $xlsx_bench ]] || { echo "run.sh: no floor program at $xlsx_bench (build qzxl_xlsx_bench)" >&2; exit 2; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The run's settings stay out of the user's own.
export QZXL_CONFIG_DIR="$work/config"

. "$(dirname "$0")/../measure.sh"

# One model: floor, tool, and (with PEERS) openpyxl; one line of the table.
row() {
  local name=$1 file=$2 n=$3 fs fc qs qc qm ps pc pm
  read -r fs fc _ < <(measure "$xlsx_bench" floor "$file" "$work/floor.xlsx" touch)
  read -r qs qc qm < <(measure "$qzxl" autocolor "$file" -o "$work/qzxl.xlsx" --quiet)
  ps=- pc=- pm=-
  if [[ $peers == 1 ]]; then
    read -r ps pc pm < <(measure "$python" "$here/autocolor_openpyxl.py" "$file" "$work/py.xlsx")
  fi
  awk -v name="$name" -v n="$n" -v fs="$fs" -v fc="$fc" -v qs="$qs" -v qc="$qc" -v qm="$qm" \
    -v ps="$ps" -v pc="$pc" -v pm="$pm" '
    function r(a, b, f) { return (a == "-" || b == "-" || b + 0 == 0) ? "-" : sprintf(f, a / b) }
    BEGIN {
      printf "%-22s %6s %6s | %6s %6s %7s %6s | %7s %7s %7s | %8s %8s %8s %8s\n", name, fs, fc,
        qs, qc, qm, (qm == "-" ? "-" : sprintf("%.0f", qm * 1048576 / n)), ps, pc, pm,
        r(qs, fs, "%.2fx"), r(qc, fc, "%.2fx"), r(ps, qs, "%.1fx"), r(qm, pm, "%.3f")
    }'
}

header() {
  printf '%-22s %6s %6s | %6s %6s %7s %6s | %7s %7s %7s | %8s %8s %8s %8s\n' model floor_s \
    flr_cpu qzxl_s q_cpu q_MiB B/cell pyxl_s py_cpu py_MiB vs_floor vs_f_cpu speedup mem_frac
}

models=$work
if [[ -n ${KEEP:-} ]]; then
  models=$KEEP
  mkdir -p "$models"
fi
[[ -f $models/openpyxl.xlsx ]] || make_models "$models" "$cells"
echo "models of $cells cells; machine load $(cut -d' ' -f1-3 /proc/loadavg)"
header
for m in generated libreoffice openpyxl; do row "$m" "$models/$m.xlsx" "$cells"; done

if [[ -n $scale ]]; then
  echo
  echo "scaling (the generated model)"
  peers=0
  header
  for millions in $scale; do
    make_large "$work/scale.xlsx" $((millions * 1000000))
    row "generated ${millions}M" "$work/scale.xlsx" $((millions * 1000000))
  done
fi

cat <<'EOF'

floor: inflate every part, deflate every worksheet (the engine's deflater and level, one
thread); qzxl: `qzxl autocolor IN -o OUT --quiet`; pyxl: bench/cli/autocolor_openpyxl.py.
vs_floor = qzxl / floor (goal <= 1.5x), speedup = openpyxl / qzxl (goal >= 60x), mem_frac =
qzxl / openpyxl peak (goal <= 0.25), B/cell = qzxl's peak bytes per cell (goal <= 100).
EOF
