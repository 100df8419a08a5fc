#!/usr/bin/env bash
# The Windows zip: both DLLs, the type library, the README and the register and unregister
# scripts for each bitness, with Windows line ends. Skipped (77) when the DLLs are not built.
set -euo pipefail
for f in build/mingw64/com/QZXLLib.dll build/mingw32/com/QZXLLib.dll build/mingw64/com/qzxllib.tlb; do
  [ -f "$f" ] || { echo "package_windows_zip: $f not built (scripts/build-windows.sh)"; exit 77; }
done
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail() { echo "package_windows_zip: $*" >&2; exit 1; }
zip=$(bash scripts/package-windows.sh "$tmp" | tail -n1)
[ -f "$zip" ] || fail "no zip written"
(cd "$tmp" && cmake -E tar xf "$zip")
dir="$tmp/$(basename "$zip" .zip)"
for f in x64/QZXLLib.dll x86/QZXLLib.dll QZXLLib.tlb README.txt \
         register-x64.cmd unregister-x64.cmd register-x86.cmd unregister-x86.cmd; do
  [ -f "$dir/$f" ] || fail "$f missing"
done
# The right DLL in each folder: PE32+ for x64, PE32 for x86.
file "$dir/x64/QZXLLib.dll" | grep -q 'PE32+.*x86-64' || fail "x64/QZXLLib.dll is not 64-bit"
file "$dir/x86/QZXLLib.dll" | grep -q 'PE32 .*80386' || fail "x86/QZXLLib.dll is not 32-bit"
grep -q $'System32\\\\regsvr32.exe" "%~dp0x64\\\\QZXLLib.dll"\r$' "$dir/register-x64.cmd" ||
  fail "register-x64.cmd does not register the 64-bit DLL"
grep -q $'/u "%~dp0x86\\\\QZXLLib.dll"\r$' "$dir/unregister-x86.cmd" ||
  fail "unregister-x86.cmd does not unregister the 32-bit DLL"
echo "package_windows_zip: $(basename "$zip") holds both DLLs, the type library and the scripts"
