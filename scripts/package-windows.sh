#!/usr/bin/env bash
# Packs the Windows COM server into one zip: the 64-bit and 32-bit QZXLLib.dll, the type
# library, a README and scripts that register and unregister each DLL with the regsvr32 of
# its own bitness. Builds the DLLs first when they are not there (scripts/build-windows.sh).
#   scripts/package-windows.sh [OUT_DIR]   writes OUT_DIR/QZXLLib-<version>-windows.zip
#                                          (default: build/package)
set -euo pipefail
cd "$(dirname "$0")/.."
out_dir=$(realpath -m "${1:-build/package}")
version=$(sed -n 's/^project(QZXLLib VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
name="QZXLLib-$version-windows"

dll64=build/mingw64/com/QZXLLib.dll
dll32=build/mingw32/com/QZXLLib.dll
tlb=build/mingw64/com/qzxllib.tlb
if [ ! -f "$dll64" ] || [ ! -f "$dll32" ] || [ ! -f "$tlb" ]; then
  bash scripts/build-windows.sh
fi

stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
mkdir -p "$stage/$name/x64" "$stage/$name/x86"
cp "$dll64" "$stage/$name/x64/QZXLLib.dll"
cp "$dll32" "$stage/$name/x86/QZXLLib.dll"
cp "$tlb" "$stage/$name/QZXLLib.tlb"

# Windows reads these with CRLF line ends.
crlf() { sed 's/$/\r/' > "$1"; }

# 64-bit Office loads the 64-bit DLL, registered by System32's regsvr32; 32-bit Office the
# 32-bit one, registered by SysWOW64's (System32's on 32-bit Windows).
for action in register unregister; do
  flag=""
  [ "$action" = unregister ] && flag=" /u"
  crlf "$stage/$name/$action-x64.cmd" <<CMD
@echo off
rem ${action^}s the 64-bit QZXLLib.dll, for 64-bit Office. Run as administrator.
"%SystemRoot%\\System32\\regsvr32.exe"$flag "%~dp0x64\\QZXLLib.dll"
CMD
  crlf "$stage/$name/$action-x86.cmd" <<CMD
@echo off
rem ${action^}s the 32-bit QZXLLib.dll, for 32-bit Office. Run as administrator.
set "REGSVR32=%SystemRoot%\\SysWOW64\\regsvr32.exe"
if not exist "%REGSVR32%" set "REGSVR32=%SystemRoot%\\System32\\regsvr32.exe"
"%REGSVR32%"$flag "%~dp0x86\\QZXLLib.dll"
CMD
done

crlf "$stage/$name/README.txt" <<TXT
QZXLLib $version for Windows
============================

The library's in-process COM server, for add-ins and scripts that drive the spreadsheet
application through automation.

  x64\\QZXLLib.dll     for 64-bit Office
  x86\\QZXLLib.dll     for 32-bit Office
  QZXLLib.tlb         the type library (also built into each DLL), for early binding

Installing: copy this folder where it is to stay, then run, as administrator, the register
script of your Office's bitness (both, if unsure): register-x64.cmd or register-x86.cmd.
Removing: run unregister-x64.cmd or unregister-x86.cmd, then delete the folder.

A script then creates the library's classes by name, for example in VBScript:

  Set lib = CreateObject("QZXLLib.iXLLibPublic")
TXT

mkdir -p "$out_dir"
rm -f "$out_dir/$name.zip"
(cd "$stage" && cmake -E tar cf "$out_dir/$name.zip" --format=zip "$name")
echo "$out_dir/$name.zip"
