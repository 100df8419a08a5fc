# The three models `qzxl autocolor` is measured on, for run.sh and same_output.sh to source:
# the generated model of make-large, and the same model recalculated and saved by LibreOffice
# and saved by openpyxl, so that the engine reads what other programs write (shared strings,
# cached values, their own styles and spellings).
#
# Needs $qzxl (the tool) set by the sourcing script.

python=/usr/bin/python3 # Debian's, which sees python3-openpyxl

# The generator: make-large of the project's own qzxl-models, built beside qzxl (QZXL_MODELS
# names another). Called as: make_large OUT CELLS.
make_large() {
  local models=${QZXL_MODELS:-$(dirname "$qzxl")/../tools/models/qzxl-models}
  [[ -x $models ]] || { echo "models.sh: no qzxl-models at $models" >&2; exit 2; }
  "$models" large "$1" --cells "$2" >/dev/null
}

# make_models DIR CELLS: writes DIR/generated.xlsx, DIR/libreoffice.xlsx, DIR/openpyxl.xlsx.
make_models() {
  local dir=$1 cells=$2 lo_home
  make_large "$dir/generated.xlsx" "$cells"
  # LibreOffice recalculates the formulas, which have no cached values in the generated file,
  # and writes its own package.
  lo_home=$(mktemp -d)
  mkdir -p "$dir/lo"
  HOME=$lo_home soffice --headless --norestore --convert-to xlsx --outdir "$dir/lo" \
    "$dir/generated.xlsx" >/dev/null 2>&1
  rm -rf "$lo_home"
  mv "$dir/lo/generated.xlsx" "$dir/libreoffice.xlsx"
  rmdir "$dir/lo"
  "$python" -c 'import sys, openpyxl; openpyxl.load_workbook(sys.argv[1]).save(sys.argv[2])' \
    "$dir/generated.xlsx" "$dir/openpyxl.xlsx"
}
