#!/usr/bin/env bash
# Whether two builds of `qzxl` colour the three benchmark models (models.sh) into the same
# bytes: a speed change must not change a file.
#
#   bash bench/cli/same_output.sh OLD_QZXL NEW_QZXL [CELLS]
#
# KEEP=DIR keeps the models and outputs in DIR (and reuses models already there).
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
[[ $# -ge 2 ]] || { echo "usage: same_output.sh OLD_QZXL NEW_QZXL [CELLS]" >&2; exit 2; }
old=$1 new=$2 cells=${3:-1000000}
qzxl=$old
. "$here/models.sh"

if [[ -n ${KEEP:-} ]]; then
  work=$KEEP
  mkdir -p "$work"
else
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
fi
export QZXL_CONFIG_DIR="$work/config"
[[ -f $work/openpyxl.xlsx ]] || make_models "$work" "$cells"

status=0
for m in generated libreoffice openpyxl; do
  "$old" autocolor "$work/$m.xlsx" -o "$work/$m.old.xlsx" --quiet >/dev/null
  "$new" autocolor "$work/$m.xlsx" -o "$work/$m.new.xlsx" --quiet >/dev/null
  if cmp -s "$work/$m.old.xlsx" "$work/$m.new.xlsx"; then
    echo "$m: same bytes ($(stat -c %s "$work/$m.new.xlsx") bytes)"
  else
    echo "$m: DIFFERENT"
    status=1
  fi
done
exit $status
