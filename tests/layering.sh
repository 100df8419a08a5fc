#!/usr/bin/env bash
# Checks that no layer includes a header of a layer above it. Layers, lowest first:
#   vocabulary (include/qzxl, src/vocab) < host < vblib < frame < range < formula < menu
#   < undo < autocolor < workbook < chart < control < factory (the top)
# The engine stands beside the library: it may use only the vocabulary and the host model.
# Inside it, lowest first: numfmt < calc < model < host < xlsx. The model knows nothing of the
# host model (host/); of the file layer, only register.cpp, which plugs the format into the
# host objects, includes the engine's host/.
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

# The engine's own parts, lowest first; 0 for what is not in one.
engine_part() {
  case "$1" in
    engine/numfmt/*) echo 1 ;; engine/calc/*) echo 2 ;; engine/model/*) echo 3 ;;
    engine/host/*) echo 4 ;; engine/xlsx/*) echo 5 ;; *) echo 0 ;;
  esac
}

check_engine() {
  local file=$1 inc=$2 fpart ipart
  fpart=$(engine_part "$file")
  ipart=$(engine_part "$inc")
  [ "$fpart" -eq 0 ] && return
  if [ "$ipart" -gt "$fpart" ]; then
    echo "$file includes $inc, a part of the engine above its own"; bad=1
  elif [ "$ipart" -eq 4 ] && [ "$fpart" -eq 5 ] && [ "$file" != engine/xlsx/register.cpp ]; then
    echo "$file includes $inc (of the file layer, only register.cpp sees the host objects)"; bad=1
  elif [ "$(rank_of_include "$inc")" -eq 1 ] && [ "$fpart" -lt 4 ]; then
    echo "$file includes $inc (numfmt, calc and the model know nothing of the host model)"; bad=1
  elif [ "$(rank_of_include "$inc")" -eq 1 ] && [ "$fpart" -eq 5 ] &&
    [ "$file" != engine/xlsx/register.cpp ]; then
    echo "$file includes $inc (of the file layer, only register.cpp sees the host model)"; bad=1
  fi
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
      check_engine "$file" "$inc"
    elif [ "$irank" -gt "$frank" ]; then
      echo "$file includes $inc, a layer above its own"; bad=1
    fi
  done < <(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\)".*/\1/p' "$file")
done < <(find include src engine -type f \( -name '*.hpp' -o -name '*.cpp' -o -name '*.h' \) 2>/dev/null)

if [ "$bad" -eq 0 ]; then echo "layering: every include points down"; fi
exit $bad
