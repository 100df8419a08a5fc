#!/usr/bin/env bash
# `qzxl recalc` of a generated model of a million cells against LibreOffice headless
# recalculating and saving the same file, and against HyperFormula (from npm, installed into
# a temporary folder; left out when npm cannot install it) calculating the same cells: wall
# time, processor time and peak memory of each, measured in one run, and the ratios.
#
#   bash bench/recalc/run.sh                      the 1,000,000-cell model
#   CELLS=100000 bash bench/recalc/run.sh         a smaller one
#   QZXL=build/cli/cli/qzxl bash bench/recalc/run.sh
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
qzxl=${QZXL:-$root/build/release/cli/qzxl}
# The generated model comes from the project's own tool, built beside qzxl.
models=${QZXL_MODELS:-$(dirname "$qzxl")/../tools/models/qzxl-models}
cells=${CELLS:-1000000}
python=/usr/bin/python3  # Debian's, which sees python3-openpyxl

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export QZXL_CONFIG_DIR="$work/config"

"$models" large "$work/model.xlsx" --cells "$cells"

# Seconds from "Elapsed (wall clock) time (h:mm:ss or m:ss): 1:02.34", peak KB, and
# processor seconds (user + system), the figure other work on a shared machine weighs on least.
wall() {
  sed -n 's/.*Elapsed (wall clock).*: //p' "$1" |
    awk -F: '{ s = 0; for (i = 1; i <= NF; i++) s = s * 60 + $i; printf "%.2f", s }'
}
peak() { sed -n 's/.*Maximum resident set size (kbytes): //p' "$1"; }
cpu() { awk -F': ' '/User time|System time/ { s += $2 } END { printf "%.2f", s }' "$1"; }

/usr/bin/time -v -o "$work/qzxl.time" "$qzxl" recalc "$work/model.xlsx" -o "$work/qzxl.xlsx"

# LibreOffice with a fresh profile told to recalculate every file it loads.
peers=()
if command -v soffice >/dev/null 2>&1; then
  profile="$work/home/.config/libreoffice/4/user"
  mkdir -p "$profile" "$work/lo"
  cat >"$profile/registrymodifications.xcu" <<'XCU'
<?xml version="1.0" encoding="UTF-8"?>
<oor:items xmlns:oor="http://openoffice.org/2001/registry" xmlns:xs="http://www.w3.org/2001/XMLSchema" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance">
<item oor:path="/org.openoffice.Office.Calc/Formula/Load"><prop oor:name="OOXMLRecalcMode" oor:op="fuse"><value>0</value></prop></item>
</oor:items>
XCU
  HOME="$work/home" /usr/bin/time -v -o "$work/libreoffice.time" \
    soffice --headless --norestore --convert-to xlsx --outdir "$work/lo" "$work/model.xlsx" \
    >/dev/null 2>&1 && peers+=(libreoffice)
else
  echo "no LibreOffice: left out"
fi

# HyperFormula, never into the build: a temporary folder of its own.
if (cd "$work" && npm install --silent --no-audit --no-fund --prefix "$work/npm" hyperformula \
      >"$work/npm.log" 2>&1); then
  "$python" "$here/cells_json.py" "$work/model.xlsx" "$work/cells.json"
  NODE_PATH="$work/npm/node_modules" /usr/bin/time -v -o "$work/hyperformula.time" \
    node --max-old-space-size=16000 "$here/hyperformula_run.js" "$work/cells.json" &&
    peers+=(hyperformula)
else
  echo "npm could not install hyperformula: left out ($(tail -1 "$work/npm.log"))"
fi

qt=$(wall "$work/qzxl.time"); qc=$(cpu "$work/qzxl.time"); qm=$(peak "$work/qzxl.time")
echo
printf '%-13s %10s %12s %10s\n' "" "seconds" "cpu seconds" "peak MB"
printf '%-13s %10s %12s %10d\n' qzxl "$qt" "$qc" $((qm / 1024))
for p in "${peers[@]}"; do
  printf '%-13s %10s %12s %10d\n' "$p" "$(wall "$work/$p.time")" "$(cpu "$work/$p.time")" \
    $(($(peak "$work/$p.time") / 1024))
done
for p in "${peers[@]}"; do
  awk -v p="$p" -v qt="$qt" -v pt="$(wall "$work/$p.time")" -v qc="$qc" \
      -v pc="$(cpu "$work/$p.time")" -v qm="$qm" -v pm="$(peak "$work/$p.time")" 'BEGIN {
    printf "against %s: %.1fx faster on the clock (%.1fx in processor time), %.2f of the memory\n",
           p, pt / qt, pc / qc, qm / pm }'
done
echo "goals: at least 20x LibreOffice and 5x HyperFormula, at most 0.25 of either's memory"
