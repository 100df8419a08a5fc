#!/usr/bin/env bash
# `qzxl autocolor` against a short openpyxl script applying the same colour rules, on the
# same generated model, in one run: end to end (load, colour, save), wall time and peak
# memory of each, and the ratios.
#
#   bash bench/cli/run.sh                      the 1,000,000-cell model
#   CELLS=100000 bash bench/cli/run.sh         a smaller one
#   QZXL=build/cli/cli/qzxl bash bench/cli/run.sh
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
qzxl=${QZXL:-$root/build/release/cli/qzxl}
cells=${CELLS:-1000000}
python=/usr/bin/python3  # Debian's, which sees python3-openpyxl

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The run's settings stay out of the user's own.
export QZXL_CONFIG_DIR="$work/config"

"$qzxl" make-large "$work/model.xlsx" --cells "$cells"

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

qt=$(wall "$work/qzxl.time"); qm=$(peak "$work/qzxl.time")
pt=$(wall "$work/openpyxl.time"); pm=$(peak "$work/openpyxl.time")
echo
printf '%-10s %10s %14s\n' "" "seconds" "peak MB"
printf '%-10s %10s %14d\n' qzxl "$qt" $((qm / 1024))
printf '%-10s %10s %14d\n' openpyxl "$pt" $((pm / 1024))
awk -v qt="$qt" -v pt="$pt" -v qm="$qm" -v pm="$pm" 'BEGIN {
  printf "qzxl is %.1fx faster and peaks at %.2f of the memory (goal: >= 30x, <= 0.25)\n",
         pt / qt, qm / pm }'
