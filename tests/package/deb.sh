#!/usr/bin/env bash
# The Debian package: built by cpack from this build, unpacked with dpkg-deb into a temporary
# root (no container, nothing installed on this machine), and the tool run from there on the
# example models it carries. Its dependencies must name packages this Debian has, and every
# library the tool loads must resolve.
set -euo pipefail
build=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail() { echo "package_deb: $*" >&2; exit 1; }

if ! cpack --config "$build/CPackConfig.cmake" -B "$tmp/out" >"$tmp/cpack.log" 2>&1; then
  cat "$tmp/cpack.log" >&2
  fail "cpack failed"
fi
debs=("$tmp"/out/*.deb)
[ "${#debs[@]}" -eq 1 ] && [ -f "${debs[0]}" ] || fail "expected one .deb, got: ${debs[*]}"
deb=${debs[0]}
dpkg-deb -x "$deb" "$tmp/root"

depends=$(dpkg-deb -f "$deb" Depends)
echo "$depends" | grep -q 'libc6' || fail "Depends lacks the C library: $depends"
# Each dependency is a package Debian knows (here: installed, since the tool was built here).
for dep in $(echo "$depends" | tr ',' '\n' | sed 's/[ (].*//; s/^ *//'); do
  [ -z "$dep" ] && continue
  dpkg-query -W "$dep" >/dev/null 2>&1 || fail "depends on $dep, which this Debian lacks"
done

qzxl="$tmp/root/usr/bin/qzxl"
[ -x "$qzxl" ] || fail "no usr/bin/qzxl in the package"
if ldd "$qzxl" | grep -q 'not found'; then fail "unresolved libraries: $(ldd "$qzxl")"; fi
"$qzxl" --version | grep -q '^qzxl ' || fail "--version printed nothing"
model=$(find "$tmp/root/usr/share/doc" -name model.xlsx | head -n1)
[ -n "$model" ] || fail "the example model is not in the package"
out=$("$qzxl" audit --json "$model")
echo "$out" | grep -q '"external"' || fail "the packaged tool's audit printed: $out"
QZXL_CONFIG_DIR="$tmp/config" "$qzxl" autocolor -q "$model" -o "$tmp/coloured.xlsx" >/dev/null ||
  fail "the packaged tool could not colour the example"
# The library as a client gets it from the package: headers and the CMake package, found by
# find_package in the unpacked root and built into tests/consumer.
[ -f "$tmp/root/usr/include/qzxl/qzxl.hpp" ] || fail "the public headers are not in the package"
config=$(find "$tmp/root/usr/lib" -name QZXLLibConfig.cmake | head -n1)
[ -n "$config" ] || fail "the CMake package is not in the package"
consumer="$(cd "$(dirname "$0")/../consumer" && pwd)"
if ! { cmake -S "$consumer" -B "$tmp/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$tmp/root/usr" &&
  cmake --build "$tmp/consumer" && "$tmp/consumer/consumer"; } >"$tmp/consumer.log" 2>&1; then
  cat "$tmp/consumer.log" >&2
  fail "a client could not be built against the packaged library"
fi
echo "package_deb: $(basename "$deb") ($(du -k "$deb" | cut -f1) KiB) unpacks and runs"
