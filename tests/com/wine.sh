#!/usr/bin/env bash
# Runs the COM server's script scenarios under Wine (64-bit).
#   wine.sh setup   <prefix> <dll-dir>   fresh prefix, both DLLs registered machine-wide
#   wine.sh run     <prefix> <scenario.vbs>      in the user locale its first line may name
#   wine.sh selftest <prefix>             the COM layer's own checks (qzxl_com_selftest.exe)
#   wine.sh cleanup <prefix>
# Exits 77 (skipped) when Wine or the DLLs are not there, so a machine without them skips
# these tests instead of failing them.
set -uo pipefail

here="$(cd "$(dirname "$0")" && pwd)"
cmd="${1:-}"
prefix="${2:-}"
[ -n "$cmd" ] && [ -n "$prefix" ] || { echo "usage: wine.sh setup|run|cleanup <prefix> ..." >&2; exit 2; }

export WINEPREFIX="$prefix"
export WINEDEBUG=-all
# No Mono or Gecko: their installers would ask a person.
export WINEDLLOVERRIDES="mscoree,mshtml="
wine_bin="$(command -v wine64 || command -v wine || true)"

skip() { echo "SKIPPED: $*"; exit 77; }

# Ends the prefix's server and its services and waits for them: the server writes the
# registry back into the prefix as it ends, which would race with removing the folder.
stop_server() {
  if [ -n "$wine_bin" ] && [ -d "$prefix" ]; then
    timeout 60 wineserver -k >/dev/null 2>&1 || true
    timeout 60 wineserver -w >/dev/null 2>&1 || true
  fi
}

case "$cmd" in
  setup)
    dlls="${3:-}"
    [ -n "$wine_bin" ] || skip "wine is not installed"
    for dll in QZXLLib.dll testhost/QZXLTestHost.dll; do
      [ -f "$dlls/$dll" ] || skip "$dlls/$dll is not built (run scripts/build-windows.sh)"
    done
    stop_server
    rm -rf "$prefix"
    mkdir -p "$prefix"
    timeout 300 "$wine_bin" wineboot -i >/dev/null 2>&1 || { echo "wineboot failed" >&2; exit 1; }
    mkdir -p "$prefix/drive_c/qzxl"
    cp "$dlls/QZXLLib.dll" "$dlls/testhost/QZXLTestHost.dll" "$prefix/drive_c/qzxl/"
    [ -f "$dlls/qzxl_com_selftest.exe" ] && cp "$dlls/qzxl_com_selftest.exe" "$prefix/drive_c/qzxl/"
    # Text outside the Basic Multilingual Plane (U+1F600, a space, U+20000) in UTF-16 with its
    # byte-order mark, for scripts whose host cannot make surrogates with ChrW.
    printf '\377\376\075\330\000\336\040\000\100\330\000\334' >"$prefix/drive_c/qzxl/astral.txt"
    for dll in QZXLLib.dll QZXLTestHost.dll; do
      if ! timeout 120 "$wine_bin" regsvr32 /s "C:\\qzxl\\$dll" >/dev/null 2>&1; then
        echo "regsvr32 $dll failed" >&2
        exit 1
      fi
    done
    echo "prefix ready: $prefix"
    ;;
  run)
    scenario="${3:-}"
    [ -f "$prefix/drive_c/qzxl/QZXLLib.dll" ] || skip "no prepared Wine prefix at $prefix"
    name="$(basename "$scenario" .vbs)"
    script="$prefix/drive_c/qzxl/$name.vbs"
    # The script host reads scripts in the ANSI code page; the sources are UTF-8.
    { cat "$here/scenarios/lib.vbs" "$scenario"; printf '\nSummary\n'; } |
      iconv -f UTF-8 -t CP1252 > "$script" || { echo "cannot convert $scenario" >&2; exit 1; }
    export QZXL_UNATTENDED="C:\\qzxl\\$name.msgbox.log"
    # Wine takes the user's locale from the environment: en-US unless the scenario's first
    # line names another ("' locale: de_DE.UTF-8"), whatever the machine's own settings.
    user_locale="$(sed -n "1s/^' locale: *//p" "$scenario" | tr -d '\r')"
    export LC_ALL="${user_locale:-C.UTF-8}" LANG="${user_locale:-C.UTF-8}"
    # The first script run in another locale may still see the old settings in the objects
    # it creates while Wine records the new ones: let an empty script go first.
    if [ -n "$user_locale" ]; then
      printf 'WScript.Quit 0\r\n' > "$prefix/drive_c/qzxl/settle.vbs"
      timeout 120 "$wine_bin" cscript.exe //nologo "C:\\qzxl\\settle.vbs" >/dev/null 2>&1
    fi
    attempt() {
      rm -f "$prefix/drive_c/qzxl/$name.msgbox.log"
      output="$(timeout 300 "$wine_bin" cscript.exe //nologo "C:\\qzxl\\$name.vbs" 2>&1 | tr -d '\r')"
      status=$?
      # cscript ends with 0 even when the script dies: only the summary line tells success.
      [ $status -eq 0 ] && echo "$output" | grep -Eq '^PASS ([0-9]+)/\1$'
    }
    attempt && { echo "$output"; exit 0; }
    # Wine on a busy machine now and then loses a script run that passes on its own (seen
    # once in a full run, never when repeated): run it once more, and show what the first
    # run printed so a fault that comes and goes still leaves its trace in the log.
    echo "--- first run: status $status, output:"
    echo "$output" | tail -n 40
    echo "--- second run:"
    attempt && { echo "$output"; exit 0; }
    echo "$output"
    [ $status -eq 0 ] || { echo "cscript ended with status $status" >&2; exit 1; }
    echo "no passing summary line from $name" >&2
    echo "$output" | grep -Eq '^FAIL [0-9]+/[0-9]+$' && exit 1
    # The script host reports no script errors; the interpreter's trace shows where it stopped.
    echo "--- last steps of the script:" >&2
    WINEDEBUG=-all,trace+vbscript timeout 300 "$wine_bin" cscript.exe //nologo \
      "C:\\qzxl\\$name.vbs" 2>&1 | tr -d '\r' |
      grep -E 'interp_(ident|mcall|icall|string|assign)|disp_call|do_icall' | tail -n 25 |
      cut -c1-160 >&2
    exit 1
    ;;
  selftest)
    [ -f "$prefix/drive_c/qzxl/qzxl_com_selftest.exe" ] || skip "no self-test program in $prefix"
    export LC_ALL=C.UTF-8 LANG=C.UTF-8
    output="$(timeout 300 "$wine_bin" "C:\\qzxl\\qzxl_com_selftest.exe" "C:\\qzxl\\QZXLLib.dll" \
              "C:\\qzxl\\QZXLTestHost.dll" 2>&1 | tr -d '\r')"
    echo "$output"
    echo "$output" | grep -Eq '^PASS ([0-9]+)/\1$' && exit 0
    echo "no passing summary line from the self-test" >&2
    exit 1
    ;;
  cleanup)
    stop_server
    rm -rf "$prefix"
    ;;
  *)
    echo "unknown command: $cmd" >&2
    exit 2
    ;;
esac
