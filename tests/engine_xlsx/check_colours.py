"""Reads the workbooks a corpus test changed and checks that another reader sees the new font
colour (red). Arguments: the corpus inventory. Input lines: name, path, sheet, cell
(tab-separated). Prints one line per mismatch; nothing when all agree.

Workbooks this reader could not read before they were changed are skipped: those the corpus
inventory lists as unreadable for it, and those whose original cell it cannot make sense of
(it reads neither strict packages nor pre-release vocabularies)."""
import json
import os
import sys
import warnings

try:
    import openpyxl
except ImportError:
    print("no openpyxl")
    sys.exit(2)

warnings.filterwarnings("ignore")
inventory = sys.argv[1]
root = os.path.join(os.path.dirname(inventory), "workbooks")
readable = set()
with open(inventory) as inv:
    for line in inv:
        entry = json.loads(line)
        if entry.get("opx", {}).get("loads"):
            readable.add(entry["file"])


def font_rgb(path, sheet, cell):
    colour = openpyxl.load_workbook(path)[sheet][cell].font.color
    return None if colour is None else colour.rgb


def sees_original(name, sheet, cell):
    try:
        rgb = font_rgb(os.path.join(root, name), sheet, cell)
        return rgb is None or isinstance(rgb, str)
    except Exception:
        return False


for line in sys.stdin:
    name, path, sheet, cell = line.rstrip("\n").split("\t")
    if name not in readable:
        continue
    try:
        rgb = font_rgb(path, sheet, cell)
        problem = None if rgb == "FFFF0000" else f"{sheet}!{cell} has font colour {rgb!r}"
    except Exception as e:  # a reader failing on our output is a finding
        problem = f"{type(e).__name__}: {e}"
    if problem and sees_original(name, sheet, cell):
        print(f"{name}: {problem}")
