# The three models `qzxl autocolor` is measured on, for run.sh and same_output.sh to source:
# the generated model of make-large, and the same model recalculated and saved by LibreOffice
# and saved by openpyxl, so that the engine reads what other programs write (shared strings,
# cached values, their own styles and spellings).
#
# Needs $qzxl (the tool) set by the sourcing script.

python=/usr/bin/python3 # Debian's, which sees python3-openpyxl

# The generator: `qzxl make-large` while the tool has it, else a make-large program built beside
# it (MAKE_LARGE names one outright). Called as: make_large OUT CELLS.
make_large() {
  if [[ -n ${MAKE_LARGE:-} ]]; then
    "$MAKE_LARGE" "$1" --cells "$2" >/dev/null
    return
  fi
  if "$qzxl" make-large --help >/dev/null 2>&1; then
    "$qzxl" make-large "$1" --cells "$2" >/dev/null
    return
  fi
  local build tool
  build=$(cd "$(dirname "$qzxl")/.." && pwd)
  [[ -f $build/CMakeCache.txt ]] || { echo "models.sh: $qzxl has no make-large" >&2; exit 2; }
  tool=$(find "$build" -type f -perm -u+x \( -name 'make-large' -o -name 'make_large' -o \
    -name '*make_large*' -o -name '*make-large*' \) 2>/dev/null | head -n 1)
  [[ -n $tool ]] || { echo "models.sh: no make-large in $qzxl or under $build" >&2; exit 2; }
  if "$tool" --help 2>&1 | grep -q make-large; then
    "$tool" make-large "$1" --cells "$2" >/dev/null
  else
    "$tool" "$1" --cells "$2" >/dev/null
  fi
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
