#!/usr/bin/env bash
# Checks that no layer includes a header of a layer above it. Layers, lowest first:
#   vocabulary (include/qzxl, src/vocab) < host < vblib < frame < range < formula < menu
#   < undo < autocolor < workbook < chart < control < factory (the top)
# The engine stands beside the library: it may use only the vocabulary and the host model.
set -u
cd "$(dirname "$0")/.."

rank_of_include() {
  case "$1" in
    qzxl/*|vocab/*) echo 0 ;; host/*) echo 1 ;; vblib/*) echo 2 ;; factory/*) echo 12 ;;
    frame/*) echo 3 ;; range/*) echo 4 ;; formula/*) echo 5 ;; menu/*) echo 6 ;;
    undo/*) echo 7 ;; autocolor/*) echo 8 ;; workbook/*) echo 9 ;; chart/*) echo 10 ;;
    control/*) echo 11 ;; engine/*) echo 50 ;; *) echo -1 ;;
  esac
}

rank_of_file() {
  case "$1" in
    include/qzxl/*|src/vocab/*) echo 0 ;; src/host/*) echo 1 ;; src/vblib/*) echo 2 ;;
    src/factory/*) echo 12 ;; src/frame/*) echo 3 ;; src/range/*) echo 4 ;;
    src/formula/*) echo 5 ;; src/menu/*) echo 6 ;; src/undo/*) echo 7 ;;
    src/autocolor/*) echo 8 ;; src/workbook/*) echo 9 ;; src/chart/*) echo 10 ;;
    src/control/*) echo 11 ;; engine/*) echo 50 ;; *) echo -1 ;;
  esac
}

bad=0
while IFS= read -r file; do
  frank=$(rank_of_file "$file")
  [ "$frank" -lt 0 ] && continue
  while IFS= read -r inc; do
    irank=$(rank_of_include "$inc")
    [ "$irank" -lt 0 ] && continue
    if [ "$frank" -eq 50 ]; then
      # The engine: its own headers, the vocabulary and the host model only.
      if [ "$irank" -ne 50 ] && [ "$irank" -gt 1 ]; then
        echo "$file includes $inc (the engine may use only qzxl/ and host/)"; bad=1
      fi
    elif [ "$irank" -gt "$frank" ]; then
      echo "$file includes $inc, a layer above its own"; bad=1
    fi
  done < <(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\)".*/\1/p' "$file")
done < <(find include src engine -type f \( -name '*.hpp' -o -name '*.cpp' -o -name '*.h' \) 2>/dev/null)

if [ "$bad" -eq 0 ]; then echo "layering: every include points down"; fi
exit $bad
