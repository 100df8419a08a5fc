#!/usr/bin/env python3
"""Checks a built COM server DLL without running it (the 32-bit one cannot run here).

  check_dll.py <dll> --arch x64|x86 [--typelib <tlb>]

- the machine type is the expected one;
- it exports exactly the four in-process server entry points, by their plain names;
- it imports only system DLLs (the runtime is linked in statically);
- with --typelib: its TYPELIB resource 1 is that type library, which carries the help string,
  the class and interface identifiers clients use, and the right system kind.

Exits 77 (skipped) when the DLL has not been built.
"""

import argparse
import pathlib
import struct
import sys
import uuid

ENTRY_POINTS = {"DllCanUnloadNow", "DllGetClassObject", "DllRegisterServer", "DllUnregisterServer"}
SYSTEM_DLLS = {"kernel32.dll", "user32.dll", "gdi32.dll", "advapi32.dll", "ole32.dll",
               "oleaut32.dll", "shell32.dll", "comdlg32.dll", "msvcrt.dll"}
MACHINES = {"x64": 0x8664, "x86": 0x14C}
SYSKIND = {"x64": 3, "x86": 1}  # SYS_WIN64, SYS_WIN32
HELP_STRING = b"Quazel 1.1 Excel Library"
IDENTIFIERS = {
    "iXLLibPublic": "38439CAC-96DE-4FC6-9654-6D492FE43400",
    "_iXLLibPublic": "00590E89-8478-49E0-8CB1-7938E7C12F22",
    "iChartXL": "56A6FC8D-4E89-4D13-A8A1-B514AB4CB7AA",
    "_iChartXL": "2DC3C672-6127-43AA-B52F-7EAC9BA8F30A",
}


class PE:
    def __init__(self, data):
        self.data = data
        if data[:2] != b"MZ":
            raise ValueError("not an executable")
        pe = struct.unpack_from("<I", data, 0x3C)[0]
        if data[pe:pe + 4] != b"PE\0\0":
            raise ValueError("no PE signature")
        self.machine, nsections = struct.unpack_from("<HH", data, pe + 4)
        opt_size = struct.unpack_from("<H", data, pe + 20)[0]
        opt = pe + 24
        magic = struct.unpack_from("<H", data, opt)[0]
        dirs = opt + (112 if magic == 0x20B else 96)
        self.dirs = [struct.unpack_from("<II", data, dirs + 8 * i) for i in range(16)]
        self.sections = []
        sec = opt + opt_size
        for i in range(nsections):
            vsize, va, rsize, raw = struct.unpack_from("<IIII", data, sec + 40 * i + 8)
            self.sections.append((va, max(vsize, rsize), raw))

    def offset(self, rva):
        for va, size, raw in self.sections:
            if va <= rva < va + size:
                return raw + rva - va
        raise ValueError("address outside the sections: %#x" % rva)

    def cstring(self, rva):
        o = self.offset(rva)
        return self.data[o:self.data.index(b"\0", o)].decode("ascii")

    def exports(self):
        rva, size = self.dirs[0]
        if not rva:
            return []
        o = self.offset(rva)
        nnames = struct.unpack_from("<I", self.data, o + 24)[0]
        names = struct.unpack_from("<I", self.data, o + 32)[0]
        return [self.cstring(struct.unpack_from("<I", self.data, self.offset(names) + 4 * i)[0])
                for i in range(nnames)]

    def imports(self):
        rva, size = self.dirs[1]
        out = []
        o = self.offset(rva)
        while True:
            entry = struct.unpack_from("<IIIII", self.data, o)
            if entry == (0, 0, 0, 0, 0):
                return out
            out.append(self.cstring(entry[3]))
            o += 20

    def resource(self, type_name, ident):
        rva, size = self.dirs[2]
        if not rva:
            return None
        base = self.offset(rva)

        def entries(o):
            named, ids = struct.unpack_from("<HH", self.data, o + 12)
            for i in range(named + ids):
                name, target = struct.unpack_from("<II", self.data, o + 16 + 8 * i)
                if name & 0x80000000:
                    s = base + (name & 0x7FFFFFFF)
                    n = struct.unpack_from("<H", self.data, s)[0]
                    key = self.data[s + 2:s + 2 + 2 * n].decode("utf-16-le")
                else:
                    key = name
                yield key, target

        for key, target in entries(base):
            if key != type_name or not target & 0x80000000:
                continue
            for key2, target2 in entries(base + (target & 0x7FFFFFFF)):
                if key2 != ident or not target2 & 0x80000000:
                    continue
                for _, leaf in entries(base + (target2 & 0x7FFFFFFF)):
                    data_rva, data_size = struct.unpack_from("<II", self.data, base + leaf)
                    o = self.offset(data_rva)
                    return self.data[o:o + data_size]
        return None


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("dll")
    ap.add_argument("--arch", choices=sorted(MACHINES), required=True)
    ap.add_argument("--typelib")
    args = ap.parse_args()
    path = pathlib.Path(args.dll)
    if not path.exists():
        print("SKIPPED: %s is not built (run scripts/build-windows.sh)" % path)
        return 77
    pe = PE(path.read_bytes())
    problems = []
    if pe.machine != MACHINES[args.arch]:
        problems.append("machine %#x, expected %s" % (pe.machine, args.arch))
    exports = set(pe.exports())
    if exports != ENTRY_POINTS:
        problems.append("exports %s, expected %s" % (sorted(exports), sorted(ENTRY_POINTS)))
    foreign = sorted(d for d in pe.imports() if d.lower() not in SYSTEM_DLLS)
    if foreign:
        problems.append("imports DLLs that are not part of the system: %s" % ", ".join(foreign))
    if args.typelib:
        embedded = pe.resource("TYPELIB", 1)
        built = pathlib.Path(args.typelib).read_bytes()
        if embedded is None:
            problems.append("no TYPELIB resource 1")
        else:
            if embedded != built:
                problems.append("the TYPELIB resource is not %s" % args.typelib)
            if embedded[:4] != b"MSFT":
                problems.append("the type library is not in the MSFT format")
            elif struct.unpack_from("<I", embedded, 20)[0] & 0xF != SYSKIND[args.arch]:
                problems.append("the type library is for another system kind")
            if HELP_STRING not in embedded:
                problems.append("the type library lacks its help string")
            for name, guid in IDENTIFIERS.items():
                if uuid.UUID(guid).bytes_le not in embedded:
                    problems.append("the type library lacks %s {%s}" % (name, guid))
    for p in problems:
        print("FAILED: %s: %s" % (path.name, p))
    if not problems:
        print("%s (%s): exports, imports%s as expected" %
              (path.name, args.arch, " and type library" if args.typelib else ""))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
