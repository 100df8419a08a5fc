#!/usr/bin/env python3
"""Writes the bad-argument sweep's table of calls from the public interface description the
COM server is generated from (com/tools/gen_com.py reads it): for every member of every
public class, a call with sound arguments, with every optional left out, with each bad value
of each parameter in turn, and with every parameter bad at once.

  gen_sweep.py cpp OUT.inc    the C++ table the in-process sweep runs
  gen_sweep.py vbs OUT_DIR    VBScript files, a few classes each, for the COM sweep

Bad values depend on how a parameter crosses the boundary: objects get Nothing, a range of a
closed workbook and one of a deleted sheet; Variants get Empty, Null, Missing, numbers, text,
objects and arrays of every awkward shape; strings get empty, 40,000-character and
astral-plane text; numbers get 0, negative and huge values; optional outputs are left out."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "com" / "tools"))
import gen_com  # noqa: E402

# How each class is obtained from the factory `lib`.
FACTORY = {
    "_iXLLibPublic": "f.lib",
    "_iXLLibConst": "f.lib->NewConst()",
    "_iXLLibProduct": 'f.lib->NewProduct(u"SweepProduct", Variant(true), Variant(u"Sweep"))',
}

# C++ values by parameter kind: (sound value, [(pattern, bad value)...]). A kind whose values
# must be lvalues (by-reference parameters) is declared as a local first.
HOST_BAD = {
    "Range": [("closed workbook", "f.closed_range"), ("deleted sheet", "f.deleted_range")],
    "Workbook": [("closed workbook", "f.closed_wb")],
    "Worksheet": [("deleted sheet", "f.deleted_ws")],
    "Name": [("deleted name", "f.deleted_name")],
}
VARIANT_BAD = [
    ("Missing", "Variant::missing()"), ("Empty", "Variant()"), ("Null", "Variant::null()"),
    ("zero", "Variant(0.0)"), ("negative", "Variant(-1.0)"), ("huge", "Variant(1e308)"),
    ("text", 'Variant(u"not a number")'), ("long text", "Variant(f.long_text)"),
    ("astral text", "Variant(f.astral)"), ("Nothing", "Variant(ObjectPtr())"),
    ("closed workbook", "Variant(ObjectPtr(f.closed_range))"),
    ("deleted sheet", "Variant(ObjectPtr(f.deleted_range))"),
    ("empty array", "Variant(Array(1, {}))"), ("2-D array", "f.array_2d()"),
    ("0-based array", "Variant(Array(0, {Variant(1.0), Variant(u\"x\")}))"),
]
STRING_BAD = [("empty text", 'u""'), ("long text", "f.long_text"), ("astral text", "f.astral")]
NUMBER_BAD = [("zero", "0"), ("negative", "-1"), ("huge", "2147483647"), ("most negative", "-2147483647 - 1")]


def values(p):
    k = p.kind
    if k == "str":
        return 'String(u"A1")', STRING_BAD
    if k == "str_ref":
        return 'String(u"A1")', STRING_BAD
    if k == "str_opt":
        return "&s_" + p.name, [("left out", "nullptr")]
    if k == "var":
        return 'Variant(u"A1")', VARIANT_BAD
    if k == "var_opt":
        return "&v_" + p.name, [("left out", "nullptr")]
    if k == "bool":
        return "true", [("False", "false")]
    if k == "bool_opt":
        return "&b_" + p.name, [("left out", "nullptr")]
    if k == "long":
        return "1", NUMBER_BAD
    if k == "short":
        return "int16_t(1)", [("zero", "int16_t(0)"), ("negative", "int16_t(-1)"),
                              ("huge", "int16_t(32767)")]
    if k == "long_opt":
        return "&l_" + p.name, [("left out", "nullptr")]
    if k == "obj":
        return "ObjectPtr(f.range)", [("Nothing", "ObjectPtr()"),
                                      ("closed workbook", "ObjectPtr(f.closed_range)"),
                                      ("deleted sheet", "ObjectPtr(f.deleted_range)")]
    if k == "host":
        return "f.sound_" + p.host.lower(), [("Nothing", "nullptr")] + HOST_BAD.get(p.host, [])
    if k == "host_opt":
        return "&h_" + p.name, [("left out", "nullptr")]
    if k == "strs_ref":
        return 'std::vector<String>{u"A1"}', [("empty array", "std::vector<String>{}"),
                                             ("long text", "std::vector<String>{f.long_text}")]
    if k == "pieces_ref":
        return "FmlaPieces{}", [("stale pieces", "f.stale_pieces()")]
    raise SystemExit("gen_sweep: no values for kind " + k)


LOCALS = {"str_opt": "String s_{n};", "var_opt": "Variant v_{n};", "bool_opt": "bool b_{n} = false;",
          "long_opt": "int32_t l_{n} = 0;", "host_opt": "host::{h}Ptr h_{n};"}
BY_REF = {"str_ref": "String", "strs_ref": "std::vector<String>", "pieces_ref": "FmlaPieces"}


def calls(iface, m):
    """(pattern, [argument expressions or None for left out]) for one member."""
    sound = [values(p)[0] for p in m.params]
    yield "sound", sound
    optional = [i for i, p in enumerate(m.params) if p.optional]
    if optional:
        first = optional[0]
        yield "optionals left out", sound[:first]
    for i, p in enumerate(m.params):
        for name, bad in values(p)[1]:
            args = list(sound)
            args[i] = bad
            yield "%s: %s" % (p.name, name), args
    widest = max([len(values(p)[1]) for p in m.params] + [0])
    for k in range(widest):
        yield "all bad #%d" % (k + 1), [values(p)[1][k % len(values(p)[1])][1] for p in m.params]


def cpp(interfaces):
    out = ["// Generated by tests/sweep/gen_sweep.py from include/qzxl/interfaces.hpp; do not edit.",
           "// clang-format off"]
    count = 0
    for iface, methods in interfaces:
        cls = iface[1:]
        getter = FACTORY.get(iface, "f.lib->New%s()" % cls[1:])
        for m in methods:
            for pattern, args in calls(iface, m):
                body = []
                for p in m.params:
                    if p.kind in LOCALS:
                        body.append(LOCALS[p.kind].format(n=p.name, h=p.host))
                call_args = []
                for i, (p, a) in enumerate(zip(m.params, args)):
                    if p.kind in BY_REF:
                        body.append("%s r%d = %s;" % (BY_REF[p.kind], i, a))
                        call_args.append("r%d" % i)
                    else:
                        call_args.append(a)
                body.append("auto o = %s; if (!o) return false;" % getter)
                body.append("(void)o->%s(%s); return true;" % (m.cname, ", ".join(call_args)))
                out.append('{"%s.%s", "%s", [](Fixture& f) -> bool { %s }},' %
                           (cls, m.itf_name(), pattern.replace('"', '\\"'), " ".join(body)))
                count += 1
    out.append("// %d calls" % count)
    return "\n".join(out) + "\n"


# --- VBScript for the COM sweep ------------------------------------------------------------
# Over COM every argument is a Variant, so every parameter gets every bad value, whatever its
# type: the server converts or refuses it.
VBS_BAD = [
    ("Nothing", "Set {v} = Nothing"), ("closed workbook", "Set {v} = ClosedRange"),
    ("deleted sheet", "Set {v} = DeletedRange"), ("Empty", "{v} = Empty"), ("Null", "{v} = Null"),
    ("text", '{v} = "not a number"'), ("number", "{v} = 12345"), ("missing", None),
    ("zero", "{v} = 0"), ("negative", "{v} = -1"), ("huge", "{v} = 2147483647"),
    ("huger", "{v} = 1E+300"), ("empty text", '{v} = ""'), ("long text", "{v} = LongText"),
    ("astral text", "{v} = Astral"), ("empty array", "{v} = Array()"),
    ("2-D array", "{v} = Array2D"), ("0-based array", "{v} = Array(1, \"x\")"),
]
VBS_SOUND = {"str": '{v} = "A1"', "str_ref": '{v} = "A1"', "str_opt": '{v} = ""',
             "var": '{v} = "A1"', "var_opt": "{v} = Empty", "bool": "{v} = True",
             "bool_opt": "{v} = False", "long": "{v} = 1", "short": "{v} = 1",
             "long_opt": "{v} = 0", "obj": "Set {v} = SoundRange", "strs_ref": '{v} = Array("A1")',
             "pieces_ref": "{v} = Empty", "host_opt": "Set {v} = Nothing"}
VBS_HOST = {"Range": "SoundRange", "Workbook": "App.ActiveWorkbook", "Worksheet": "SoundWks",
            "Application": "App", "Chart": "Nothing", "CommandBar": 'App.CommandBars("Standard")',
            "CommandBarControl": 'App.CommandBars("Standard").Controls(1)', "Name": "SoundName"}
VBS_FACTORY = {"_iXLLibPublic": "Lib", "_iXLLibConst": "Lib.NewConst()",
               "_iXLLibProduct": 'Lib.NewProduct("SweepProduct", True, "Sweep")'}
# Patterns on which a member loops without limit by design: SetWksCount on a worksheet count
# that cannot be reached (any bad count), NameWorksheet on a sheet that refuses every name
# (a deleted sheet, or a range of a closed workbook given for the sheet).
VBS_ENDLESS = {"SetWksCount": None, "NameWorksheet": {"deleted sheet", "closed workbook"}}


VBS_PROLOGUE = """Dim SoundRange, SoundWks, SoundName, ClosedRange, DeletedRange, LongText, Astral, Array2D(1, 1)
Sub SweepSession()
  Dim other, gone
  StartSession
  Set SoundWks = App.ActiveWorkbook.Worksheets(1)
  Set SoundRange = SoundWks.Range("A1:B2")
  SoundRange.Value = 2.5
  Set SoundName = App.ActiveWorkbook.Names.Add("Total", "=Sheet1!$A$1:$B$2")
  Set other = App.Workbooks.Add
  Set ClosedRange = other.Worksheets(1).Range("B2")
  other.Close False
  Set gone = App.ActiveWorkbook.Worksheets.Add
  Set DeletedRange = gone.Range("C3")
  App.DisplayAlerts = False
  gone.Delete
  SoundWks.Activate
  LongText = String(40000, "x")
  ' Text outside the Basic Multilingual Plane. A script host whose ChrW stops short of the
  ' surrogates reads it from the UTF-16 file the test setup leaves beside the scripts.
  On Error Resume Next
  Astral = ChrW(&HD83D) & ChrW(&HDE00) & " " & ChrW(&HD840) & ChrW(&HDC00)
  If Err.Number <> 0 Then
    Err.Clear
    Astral = CreateObject("Scripting.FileSystemObject").OpenTextFile("C:\\qzxl\\astral.txt", 1, False, -1).ReadAll
  End If
  If Err.Number <> 0 Then WScript.Echo "FAILED: no text outside the BMP to sweep with"
  On Error GoTo 0
  Array2D(0, 0) = 1 : Array2D(1, 1) = "b"
End Sub
' The errors the automation layer answers with when an argument does not convert, is left
' out where it must be given, or is Nothing where an object must be: the member never ran.
' Any other error reaching the script is one a member let escape.
Sub CheckBoundary(what)
  gChecks = gChecks + 1
  Select Case Err.Number
    Case 0, 5, 6, 13, 94, 424, 449, 450
    Case Else
      gFailures = gFailures + 1
      WScript.Echo "FAILED: " & what & ": error " & Err.Number & " (" & Err.Description & ")"
  End Select
  Err.Clear
End Sub
"""


def vbs_sound(p):
    if p.kind == "host":
        return "Set {v} = " + VBS_HOST[p.host]
    return VBS_SOUND[p.kind]


def vbs_call(m, setup, present):
    """The statements of one call: argument variables, then the call."""
    lines = [s.format(v="a%d" % i) for i, s in enumerate(setup) if s]
    params = m.com_params()
    args = ["a%d" % i if present[i] else "" for i in range(len(params))]
    while args and not args[-1]:
        args.pop()
    if m.access in ("put", "putref"):
        value = args[-1] if len(args) == len(params) else "Empty"
        idx = "(%s)" % ", ".join(args[:-1]) if len(params) > 1 else ""
        lines.append("%sO.%s%s = %s" % ("Set " if m.access == "putref" else "", m.name, idx, value or "Empty"))
    elif m.rkind in ("obj", "server"):
        lines.append("Set R = O.%s(%s)" % (m.name, ", ".join(args)))
    elif m.rkind == "void":
        lines.append("Call O.%s(%s)" % (m.name, ", ".join(args)))
    else:
        lines.append("R = O.%s(%s)" % (m.name, ", ".join(args)))
    return lines


def vbs(interfaces, out_dir, per_file=20):
    out_dir.mkdir(parents=True, exist_ok=True)
    for old in out_dir.glob("sweep_*.vbs"):
        old.unlink()
    files, total = [], 0
    for iface, methods in interfaces:
        cls = iface[1:]
        getter = VBS_FACTORY.get(iface, "Lib.New%s()" % cls[1:])
        for start in range(0, len(methods), per_file):
            body = []
            for m in methods[start:start + per_file]:
                params = m.com_params()
                sound = [vbs_sound(p) for p in params]
                cases = [("sound", sound, [True] * len(params))]
                endless = VBS_ENDLESS.get(m.name, set())
                if m.access == "putref" and endless is not None:
                    # "Set O.P = value" with a value that is no object stops in the script
                    # language itself (object required): it never reaches the member.
                    endless = set(endless) | {n for n, b in VBS_BAD if not (b or "").startswith("Set ")}
                if endless is not None:
                    for i, p in enumerate(params):
                        for name, bad in VBS_BAD:
                            if name in endless:
                                continue
                            setup, present = list(sound), [True] * len(params)
                            setup[i], present[i] = bad, bad is not None
                            cases.append(("%s: %s" % (p.name, name), setup, present))
                    for k, (name, bad) in enumerate(VBS_BAD if params else []):
                        if name in endless:
                            continue
                        cases.append(("all " + name, [bad] * len(params), [bad is not None] * len(params)))
                for pattern, setup, present in cases:
                    body.append("Set O = " + getter)
                    lines = vbs_call(m, setup, present)
                    body += lines[:-1] + ["Err.Clear"] + lines[-1:]
                    body.append('CheckBoundary "%s.%s (%s)"' % (cls, m.itf_name(), pattern))
                    total += 1
            name = "sweep_%s_%d.vbs" % (cls[1:].lower(), start // per_file + 1)
            text = ("' Generated by tests/sweep/gen_sweep.py; bad arguments to %s over COM.\n" % cls +
                    "Dim O, R, a0, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13\n" +
                    VBS_PROLOGUE + "SweepSession\nOn Error Resume Next\n" + "\n".join(body) + "\nOn Error GoTo 0\n")
            (out_dir / name).write_text(text, encoding="utf-8")
            files.append(name)
    return files, total


def main():
    interfaces = gen_com.parse_header(gen_com.HEADER.read_text(encoding="utf-8"))
    mode, target = sys.argv[1], pathlib.Path(sys.argv[2])
    if mode == "cpp":
        text = cpp(interfaces)
        if not target.exists() or target.read_text(encoding="utf-8") != text:
            target.write_text(text, encoding="utf-8")
    elif mode == "vbs":
        files, total = vbs(interfaces, target)
        print("%d calls in %d scripts" % (total, len(files)))
    else:
        raise SystemExit("usage: gen_sweep.py cpp OUT.inc | vbs OUT_DIR")


if __name__ == "__main__":
    main()
