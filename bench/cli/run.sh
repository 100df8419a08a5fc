#!/usr/bin/env bash
# `qzxl autocolor` against a short openpyxl script applying the same colour rules, on the
# same generated model, in one run: end to end (load, colour, save), wall time and peak
# memory of each, and the ratios.
#
#   bash bench/cli/run.sh                      the 1,000,000-cell model
#   CELLS=100000 bash bench/cli/run.sh         a smaller one
#   QZXL=build/release/cli/qzxl bash bench/cli/run.sh
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
# The run's settings stay out of the user's own.
export QZXL_CONFIG_DIR="$work/config"

"$models" large "$work/model.xlsx" --cells "$cells"

/usr/bin/time -v -o "$work/qzxl.time" \
  "$qzxl" autocolor "$work/model.xlsx" -o "$work/qzxl.xlsx" --quiet
/usr/bin/time -v -o "$work/openpyxl.time" \
  "$python" "$here/autocolor_openpyxl.py" "$work/model.xlsx" "$work/openpyxl.xlsx"

# Seconds from "Elapsed (wall clock) time (h:mm:ss or m:ss): 1:02.34", and peak KB.
wall() {
  sed -n 's/.*Elapsed (wall clock).*: //p' "$1" |
    awk -F: '{ s = 0; for (i = 1; i <= NF; i++) s = s * 60 + $i; printf "%.2f", s }'
}
peak() { sed -n 's/.*Maximum resident set size (kbytes): //p' "$1"; }
# Processor seconds (user + system): on a machine shared with builds, the figure that other
# work weighs on least.
cpu() {
  awk -F': ' '/User time|System time/ { s += $2 } END { printf "%.2f", s }' "$1"
}

qt=$(wall "$work/qzxl.time"); qc=$(cpu "$work/qzxl.time"); qm=$(peak "$work/qzxl.time")
pt=$(wall "$work/openpyxl.time"); pc=$(cpu "$work/openpyxl.time"); pm=$(peak "$work/openpyxl.time")
echo
printf '%-10s %10s %12s %10s\n' "" "seconds" "cpu seconds" "peak MB"
printf '%-10s %10s %12s %10d\n' qzxl "$qt" "$qc" $((qm / 1024))
printf '%-10s %10s %12s %10d\n' openpyxl "$pt" "$pc" $((pm / 1024))
awk -v qt="$qt" -v pt="$pt" -v qc="$qc" -v pc="$pc" -v qm="$qm" -v pm="$pm" 'BEGIN {
  printf "qzxl is %.1fx faster on the clock (%.1fx in processor time) and peaks at %.2f of the memory\n",
         pt / qt, pc / qc, qm / pm
  print "goal: at least 30x faster, at most 0.25 of the memory" }'
