#!/usr/bin/env python3
"""Generates the COM server's type description and wrappers from the C++ public surface.

Reads include/qzxl/interfaces.hpp (the thirteen dual interfaces, members in slot order) and
writes, under com/generated/:

  qzxllib.idl          the type library source (compiled with widl into the DLL's resource)
  qzxllib_itf.hpp      the vtable interfaces, identifiers and the FmlaPiece record layout
  qzxllib_servers.cpp  one server class per interface: converts arguments, calls the C++
                       object, converts results and writes by-reference arguments back

  gen_com.py           regenerate
  gen_com.py --check   exit 1 when a generated file is not what the header gives (CI)

The outputs are committed so that a reader can review them without running anything.
"""

import argparse
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
HEADER = ROOT / "include" / "qzxl" / "interfaces.hpp"
OUT = ROOT / "com" / "generated"

# Identifiers. The two creatable classes keep the identifiers their existing clients use; all
# others were drawn once and never change, so that a type library registered by one build stays
# valid for the next.
LIBID = "F3E863BC-8689-44FB-B158-81781CBE88D6"
IIDS = {
    "_iXLLibPublic": "00590E89-8478-49E0-8CB1-7938E7C12F22",
    "_iChartXL": "2DC3C672-6127-43AA-B52F-7EAC9BA8F30A",
    "_iWorkbook": "D8ED8FD5-B918-4871-AEFF-5A1C457E9E63",
    "_iWorksheet": "0A663383-C544-4376-BE75-E4ECD89CC7BD",
    "_iControl": "23031705-A98C-46F1-B3C4-591B1D687BE1",
    "_iRange": "BAF48937-7791-4701-BA7D-1E0BF2262715",
    "_iFormula": "C0F40C93-FD9B-44FE-866F-E2EDAE59359F",
    "_iXLLibConst": "DA288E81-AF40-4040-9791-85A0A57CD046",
    "_iMenu": "4EB5BCB4-7922-43F8-858A-494827101AA6",
    "_iXLLibProduct": "B044EEB5-1FA8-433C-AEF4-AE817CD85B3F",
    "_iDisplay": "8D313644-4F94-46F2-AC5A-EBE735D9F360",
    "_iAutoColor": "1FCCD32B-480E-47C2-BC37-F612EA7DD50C",
    "_iUndoRedo": "1B0B02FC-AA57-4F01-A109-87C9E131D4C5",
}
CLSIDS = {
    "iXLLibPublic": "38439CAC-96DE-4FC6-9654-6D492FE43400",
    "iChartXL": "56A6FC8D-4E89-4D13-A8A1-B514AB4CB7AA",
    "iWorkbook": "9FA2DCDB-4CCE-45BA-A92C-42C67C375CB0",
    "iWorksheet": "F8FEC7D3-82B0-4F86-BFEF-C57BCD636BD8",
    "iControl": "B0A54D43-1C0B-47E7-88F3-46F048A096B2",
    "iRange": "509B6569-C3D1-434A-8A94-9A931C8460B6",
    "iFormula": "4B819080-E7E2-4C48-AB0F-B8D2F471E52F",
    "iXLLibConst": "A6F28C87-6E4E-4181-B5A7-DDA029058F95",
    "iMenu": "438760A5-B4F1-4971-A7B4-D253AE0C1277",
    "iXLLibProduct": "27CCED5B-8E87-421C-A230-D5882994F476",
    "iDisplay": "E4A2127D-6366-4CB3-9377-A726560E30C0",
    "iAutoColor": "6A266534-504D-4C22-B197-B410C5EDE0E0",
    "iUndoRedo": "7849389B-84B5-4346-8C1B-1CCCF9DBDA10",
}
CREATABLE = {"iXLLibPublic", "iChartXL"}
# Members whose Variant result holds an array of texts: it goes out as a String array
# (VT_ARRAY | VT_BSTR), not an array of Variants, so that a compiled client can assign it to a
# variable declared as a String array.
STRING_ARRAY_RESULTS = {"WkbCustomNumFormats"}
ENUM_GUID = "CFC2F418-3D17-4DC3-BD2A-1FE6BCB2CED3"
RECORD_GUID = "F15131B4-9E4D-4B1E-95FB-14FE3599BA3F"

# Members that clients see as read-only properties rather than methods.
PROPGET = {
    "_iXLLibConst": "*",
    "_iAutoColor": {"AutoColorOn", "AutoColorHyperlinks", "AutoColorText", "AutoColorDates",
                    "InputColor", "PartialInputColor", "FormulaColor", "WksLinkColor",
                    "WkbLinkColor", "HyperlinkColor", "DummyNumberColor",
                    "NoAutoColorSmartCycleName"},
    "_iRange": {"RangeNameFriendly"},
}

CELL_TYPES = [("CellUnknown", 0), ("CellEmpty", 1), ("CellText", 2), ("CellBool", 3),
              ("CellErr", 4), ("CellDate", 5), ("CellDateTime", 6), ("CellTime", 7),
              ("CellNumeric", 8)]
PIECE_FIELDS = [("BSTR", "ThePiece"), ("long", "StartPos"), ("VARIANT_BOOL", "IsOperator"),
                ("VARIANT_BOOL", "IsFunction"), ("VARIANT_BOOL", "IsRange"),
                ("VARIANT_BOOL", "IsObjectKey"), ("VARIANT_BOOL", "IsValue"),
                ("VARIANT_BOOL", "IsSimpleText")]


class Param:
    """One C++ parameter and how it crosses the boundary."""

    def __init__(self, ctype, name, default):
        self.ctype = ctype
        self.name = name
        self.default = default
        self.kind, self.host = classify_param(ctype)

    @property
    def optional(self):
        return self.default is not None

    def idl(self):
        attrs, t = IDL_PARAM[self.kind]
        attrs = list(attrs)
        if self.default is not None and "optional" not in attrs:
            attrs.append("optional")
            dv = idl_default(self.kind, self.default)
            if dv is not None:
                attrs.append("defaultvalue(%s)" % dv)
        return "[%s] %s %s" % (", ".join(attrs), t, self.name)

    def itf(self):
        return "%s %s" % (ITF_PARAM[self.kind], self.name)


def classify_param(ctype):
    t = " ".join(ctype.split())
    simple = {
        "String&": "str_ref", "const String&": "str", "String*": "str_opt",
        "const Variant&": "var", "Variant*": "var_opt",
        "bool": "bool", "bool*": "bool_opt",
        "int32_t": "long", "int32_t*": "long_opt", "int16_t": "short",
        "const ObjectPtr&": "obj",
        "std::vector<String>&": "strs_ref", "FmlaPieces&": "pieces_ref",
    }
    if t in simple:
        return simple[t], None
    m = re.fullmatch(r"const host::(\w+)Ptr&", t)
    if m:
        return "host", m.group(1)
    m = re.fullmatch(r"host::(\w+)Ptr\*", t)
    if m:
        return "host_opt", m.group(1)
    raise SystemExit("gen_com: no mapping for parameter type '%s'" % t)


IDL_PARAM = {
    "str_ref": (["in", "out"], "BSTR*"),
    "str": (["in"], "BSTR"),
    "str_opt": (["in", "out", "optional"], "BSTR*"),
    "var": (["in"], "VARIANT"),
    "var_opt": (["in", "out", "optional"], "VARIANT*"),
    "bool": (["in"], "VARIANT_BOOL"),
    "bool_opt": (["in", "out", "optional"], "VARIANT_BOOL*"),
    "long": (["in"], "long"),
    "long_opt": (["in", "out", "optional"], "long*"),
    "short": (["in"], "short"),
    "obj": (["in"], "IDispatch*"),
    "host": (["in"], "IDispatch*"),
    "host_opt": (["in", "out", "optional"], "IDispatch**"),
    "strs_ref": (["in", "out"], "SAFEARRAY(BSTR)*"),
    "pieces_ref": (["in", "out"], "SAFEARRAY(FmlaPiece)*"),
}
ITF_PARAM = {
    "str_ref": "BSTR*", "str": "BSTR", "str_opt": "BSTR*", "var": "VARIANT",
    "var_opt": "VARIANT*", "bool": "VARIANT_BOOL", "bool_opt": "VARIANT_BOOL*", "long": "LONG",
    "long_opt": "LONG*", "short": "SHORT", "obj": "IDispatch*", "host": "IDispatch*",
    "host_opt": "IDispatch**", "strs_ref": "SAFEARRAY**", "pieces_ref": "SAFEARRAY**",
}


def idl_default(kind, default):
    d = default.strip()
    if d == "Variant::missing()":
        return None
    if kind == "str":
        m = re.fullmatch(r'u"(.*)"', d)
        if not m:
            raise SystemExit("gen_com: string default '%s'" % d)
        return '"%s"' % m.group(1)
    if kind == "bool":
        return {"true": "-1", "false": "0"}[d]
    if kind in ("long", "short"):
        int(d)
        return d
    if kind in ("host", "obj") and d == "nullptr":
        return "0"
    if d == "nullptr":
        return None
    raise SystemExit("gen_com: default '%s' for kind %s" % (d, kind))


def classify_result(rtype):
    t = " ".join(rtype.split())
    if t == "void":
        return "void", None
    simple = {"String": "str", "bool": "bool", "int32_t": "long", "Variant": "var",
              "QZCellType": "celltype", "ObjectPtr": "obj"}
    if t in simple:
        return simple[t], None
    m = re.fullmatch(r"std::shared_ptr<(_i\w+)>", t)
    if m:
        return "server", m.group(1)
    m = re.fullmatch(r"host::(\w+)Ptr", t)
    if m:
        return "obj", m.group(1)
    raise SystemExit("gen_com: no mapping for result type '%s'" % t)


IDL_RESULT = {"str": "BSTR*", "bool": "VARIANT_BOOL*", "long": "long*", "var": "VARIANT*",
              "celltype": "QZCellType*", "obj": "IDispatch**"}
ITF_RESULT = {"str": "BSTR*", "bool": "VARIANT_BOOL*", "long": "LONG*", "var": "VARIANT*",
              "celltype": "LONG*", "obj": "IDispatch**"}


class Method:
    def __init__(self, iface, rtype, name, params):
        self.iface = iface
        self.cname = name
        self.params = params
        self.rkind, self.rtarget = classify_result(rtype)
        # What clients see: a method, or one accessor of a property.
        self.access = "method"
        self.name = name
        if name.startswith("putref_"):
            self.access, self.name = "putref", name[len("putref_"):]
        elif name.startswith("put_"):
            self.access, self.name = "put", name[len("put_"):]
        else:
            props = PROPGET.get(iface, set())
            if props == "*" or name in props:
                self.access = "get"

    def com_params(self):
        """Parameters in COM order: a property's assigned value comes last."""
        if self.access in ("put", "putref"):
            return self.params[1:] + self.params[:1]
        return self.params

    def itf_name(self):
        return {"method": "", "get": "get_", "put": "put_", "putref": "putref_"}[
            self.access] + self.name


def parse_header(text):
    text = re.sub(r"//[^\n]*", "", text)
    interfaces = []
    for m in re.finditer(r"class (_i\w+) : public Object \{(.*?)\n\};", text, re.S):
        iface = m.group(1)
        methods = []
        for rtype, name, plist in re.findall(r"virtual\s+(.+?)\s+(\w+)\((.*?)\)\s*=\s*0;",
                                            m.group(2), re.S):
            methods.append(Method(iface, rtype, name, parse_params(plist)))
        # A getter whose name also has a setter is the read side of that property.
        assigned = {m.name for m in methods if m.access in ("put", "putref")}
        for m in methods:
            if m.access == "method" and m.name in assigned:
                m.access = "get"
        interfaces.append((iface, methods))
    return interfaces


def split_top(s):
    parts, depth, cur = [], 0, ""
    for ch in s:
        if ch in "(<":
            depth += 1
        elif ch in ")>":
            depth -= 1
        if ch == "," and depth == 0:
            parts.append(cur)
            cur = ""
        else:
            cur += ch
    if cur.strip():
        parts.append(cur)
    return parts


def parse_params(plist):
    params = []
    for p in split_top(" ".join(plist.split())):
        p = p.strip()
        default = None
        if "=" in p:
            p, default = [x.strip() for x in p.split("=", 1)]
        m = re.fullmatch(r"(.+?)\s*\b(\w+)", p)
        params.append(Param(m.group(1), m.group(2), default))
    return params


# ---------------------------------------------------------------------------------------------
# Type library source

def gen_idl(interfaces):
    out = []
    w = out.append
    w("// Generated by com/tools/gen_com.py from include/qzxl/interfaces.hpp; do not edit.")
    w('import "base.idl";')
    w("")
    w("[")
    w("  uuid(%s)," % LIBID)
    w("  version(1.1),")
    w('  helpstring("Quazel 1.1 Excel Library")')
    w("]")
    w("library QZXLLib")
    w("{")
    w('  importlib("stdole2.tlb");')
    w("")
    w("  typedef [uuid(%s), v1_enum] enum QZCellType {" % ENUM_GUID)
    w(",\n".join("    %s = %d" % kv for kv in CELL_TYPES))
    w("  } QZCellType;")
    w("")
    w("  typedef [uuid(%s)] struct FmlaPiece {" % RECORD_GUID)
    for t, n in PIECE_FIELDS:
        w("    %s %s;" % (t, n))
    w("  } FmlaPiece;")
    w("")
    for iface, _ in interfaces:
        w("  interface %s;" % iface)
    for iface, methods in interfaces:
        w("")
        w("  [uuid(%s), dual, oleautomation, nonextensible]" % IIDS[iface])
        w("  interface %s : IDispatch {" % iface)
        ids = {}
        for m in methods:
            dispid = ids.setdefault(m.name, len(ids) + 1)
            attrs = ["id(%d)" % dispid]
            if m.access == "get":
                attrs.append("propget")
            elif m.access == "put":
                attrs.append("propput")
            elif m.access == "putref":
                attrs.append("propputref")
            ps = [p.idl() for p in m.com_params()]
            if m.rkind == "server":
                ps.append("[out, retval] %s** pRetVal" % m.rtarget)
            elif m.rkind != "void":
                ps.append("[out, retval] %s pRetVal" % IDL_RESULT[m.rkind])
            w("    [%s] HRESULT %s(%s);" % (", ".join(attrs), m.name, ", ".join(ps)))
        w("  };")
    for iface, _ in interfaces:
        cls = iface[1:]
        w("")
        attrs = ["uuid(%s)" % CLSIDS[cls]]
        if cls not in CREATABLE:
            attrs.append("noncreatable")
        w("  [%s]" % ", ".join(attrs))
        w("  coclass %s {" % cls)
        w("    [default] interface %s;" % iface)
        w("  };")
    w("};")
    return "\n".join(out) + "\n"


# ---------------------------------------------------------------------------------------------
# C++ interfaces

def guid_init(g):
    p = g.split("-")
    d4 = p[3] + p[4]
    return "{0x%s, 0x%s, 0x%s, {%s}}" % (p[0], p[1], p[2], ", ".join(
        "0x" + d4[i:i + 2] for i in range(0, 16, 2)))


def gen_itf(interfaces):
    out = []
    w = out.append
    w("// Generated by com/tools/gen_com.py from include/qzxl/interfaces.hpp; do not edit.")
    w("// clang-format off")
    w("// The vtable interfaces of the type library (dual: IDispatch first, then the members in")
    w("// slot order), their identifiers and the FmlaPiece record as clients lay it out.")
    w("#pragma once")
    w("")
    w("#include <oaidl.h>")
    w("#include <windows.h>")
    w("")
    w("namespace qz::com {")
    w("")
    w("inline constexpr GUID kLibId = %s;" % guid_init(LIBID))
    w("inline constexpr WORD kLibMajor = 1;")
    w("inline constexpr WORD kLibMinor = 1;")
    w("inline constexpr GUID kRecordFmlaPiece = %s;" % guid_init(RECORD_GUID))
    w("")
    w("/// FmlaPiece as an element of a SAFEARRAY of records.")
    w("struct FmlaPieceRecord {")
    for t, n in PIECE_FIELDS:
        w("  %s %s;" % ("LONG" if t == "long" else t, n))
    w("};")
    w("")
    w("namespace itf {")
    for iface, _ in interfaces:
        w("struct %s;" % iface)
    for iface, methods in interfaces:
        w("")
        w("inline constexpr GUID kIID%s = %s;" % (iface, guid_init(IIDS[iface])))
        w("inline constexpr GUID kCLSID%s = %s;" % (iface[1:], guid_init(CLSIDS[iface[1:]])))
        w("inline constexpr int kSlots%s = %d;  // members after IDispatch's seven" %
          (iface, len(methods)))
        w("struct %s : public IDispatch {" % iface)
        for m in methods:
            ps = [p.itf() for p in m.com_params()]
            if m.rkind == "server":
                ps.append("%s** pRetVal" % m.rtarget)
            elif m.rkind != "void":
                ps.append("%s pRetVal" % ITF_RESULT[m.rkind])
            w("  virtual HRESULT STDMETHODCALLTYPE %s(%s) = 0;" % (m.itf_name(), ", ".join(ps)))
        w("};")
    w("}  // namespace itf")
    w("")
    w("}  // namespace qz::com")
    return "\n".join(out) + "\n"


# ---------------------------------------------------------------------------------------------
# Servers

def arg_expr(p, locals_):
    """The argument expression for one parameter; by-reference parameters get a local that
    holds the C++ value and writes it back on `commit()`."""
    k = p.kind
    if k == "str":
        return "in_string(%s)" % p.name
    if k == "var":
        return "in_variant(%s)" % p.name
    if k == "bool":
        return "in_bool(%s)" % p.name
    if k in ("long", "short"):
        return p.name
    if k == "obj":
        return "in_object(%s)" % p.name
    if k == "host":
        return "in_host<host::%s>(%s)" % (p.host, p.name)
    holder = {
        "str_ref": "RefString",
        "str_opt": "OptRef<String, BSTR>",
        "var_opt": "OptRefVariant",
        "bool_opt": "OptRef<bool, VARIANT_BOOL>",
        "long_opt": "OptRef<int32_t, LONG>",
        "host_opt": "OptRefHost<host::%s>" % p.host,
        "strs_ref": "RefStrings",
        "pieces_ref": "RefPieces",
    }[k]
    local = "a_" + p.name
    locals_.append((local, "%s %s(%s);" % (holder, local, p.name)))
    if k in ("str_ref", "strs_ref", "pieces_ref"):
        return "%s.value" % local
    return "%s.ptr()" % local


def gen_servers(interfaces):
    out = []
    w = out.append
    w("// Generated by com/tools/gen_com.py from include/qzxl/interfaces.hpp; do not edit.")
    w("// clang-format off")
    w("// One server per interface: each member converts its arguments, calls the library")
    w("// object, converts the result and writes by-reference arguments back, all inside")
    w("// `run`, so that no exception leaves the member.")
    w('#include "com/src/server.hpp"')
    w("")
    w("namespace qz::com {")
    w("namespace {")
    for iface, methods in interfaces:
        cls = "Server" + iface
        w("")
        w("class %s final : public Server<%s, itf::%s, qz::%s> {" % (cls, cls, iface, iface))
        w(" public:")
        w("  using Server::Server;")
        for m in methods:
            ps = [p.itf() for p in m.com_params()]
            if m.rkind == "server":
                ps.append("itf::%s** pRetVal" % m.rtarget)
            elif m.rkind != "void":
                ps.append("%s pRetVal" % ITF_RESULT[m.rkind])
            w("  HRESULT STDMETHODCALLTYPE %s(%s) override {" % (m.itf_name(), ", ".join(ps)))
            locals_ = []
            args = [arg_expr(p, locals_) for p in m.params]
            call = "impl().%s(%s)" % (m.cname, ", ".join(args))
            commits = ["%s.commit();" % name for name, _ in locals_]
            ret = "pRetVal" if m.rkind != "void" else "nullptr"
            w("    return run(%s, [&] {" % ret)
            for _, decl in locals_:
                w("      " + decl)
            if m.rkind == "void":
                w("      %s;" % call)
            else:
                setter = "set_strings_result" if m.name in STRING_ARRAY_RESULTS else "set_result"
                w("      %s(pRetVal, %s);" % (setter, call))
            for c in commits:
                w("      " + c)
            w("    });")
            w("  }")
        w("};")
    w("")
    w("}  // namespace")
    w("")
    for iface, _ in interfaces:
        w("itf::%s* make_server(std::shared_ptr<qz::%s> object) {" % (iface, iface))
        w("  return Server%s::create(std::move(object));" % iface)
        w("}")
    w("")
    w("}  // namespace qz::com")
    return "\n".join(out) + "\n"


def gen_server_decls(interfaces):
    out = []
    w = out.append
    w("// Generated by com/tools/gen_com.py from include/qzxl/interfaces.hpp; do not edit.")
    w("// The server factory of each interface (defined in qzxllib_servers.cpp).")
    w("#pragma once")
    w("")
    w("#include <memory>")
    w("")
    w('#include "com/generated/qzxllib_itf.hpp"')
    w('#include "qzxl/interfaces.hpp"')
    w("")
    w("namespace qz::com {")
    w("")
    w("/// The COM server of a library object (a new reference; the existing server while a")
    w("/// client holds one; null for Nothing).")
    for iface, _ in interfaces:
        w("itf::%s* make_server(std::shared_ptr<qz::%s> object);" % (iface, iface))
    w("")
    w("/// The COM interface type of a library interface.")
    w("template <class Lib>")
    w("struct itf_of;")
    for iface, _ in interfaces:
        w("template <>")
        w("struct itf_of<qz::%s> {" % iface)
        w("  using type = itf::%s;" % iface)
        w("  static constexpr const GUID& iid = itf::kIID%s;" % iface)
        w("};")
    w("")
    w("}  // namespace qz::com")
    return "\n".join(out) + "\n"


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--check", action="store_true",
                    help="fail when a generated file differs from what the header gives")
    args = ap.parse_args()
    interfaces = parse_header(HEADER.read_text())
    if len(interfaces) != 13:
        raise SystemExit("gen_com: expected 13 interfaces, found %d" % len(interfaces))
    files = {
        "qzxllib.idl": gen_idl(interfaces),
        "qzxllib_itf.hpp": gen_itf(interfaces),
        "qzxllib_servers.hpp": gen_server_decls(interfaces),
        "qzxllib_servers.cpp": gen_servers(interfaces),
    }
    stale = []
    for name, text in files.items():
        path = OUT / name
        if args.check:
            if not path.exists() or path.read_text() != text:
                stale.append(name)
        else:
            OUT.mkdir(parents=True, exist_ok=True)
            if not path.exists() or path.read_text() != text:
                path.write_text(text)
    if stale:
        print("gen_com: out of date: %s (run com/tools/gen_com.py)" % ", ".join(stale))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
