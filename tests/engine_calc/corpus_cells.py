#!/usr/bin/python3
"""Writes the cells of workbooks as JSON lines, one workbook per line, for the calculation
check: every cell's cached value, and for formula cells the formula text.

Usage: corpus_cells.py OUTPUT WORKBOOK...

Each line: {"file", "date1904", "sheets": [names], "names": [[name, scope, text]],
"hidden_rows": [[sheet, row]], "tables": [[sheet, name, ref, header_rows, totals_rows,
[column names]]], "cells": [[sheet, "A1", kind, value, formula, array_ref]]} where kind is n (number),
s (text), b (Boolean), e (error) or "" (no cached value). Workbooks that cannot be read
are left out. Reads with the openpyxl package, a reader nobody on this project wrote.
"""
import datetime
import json
import re
import sys
import warnings

import openpyxl
from openpyxl.utils.datetime import to_excel
try:  # newer openpyxl keeps array formulas as objects
    from openpyxl.worksheet.formula import ArrayFormula, DataTableFormula
except ImportError:
    ArrayFormula = DataTableFormula = ()

warnings.filterwarnings("ignore")


def cached(value, epoch):
    if value is None:
        return "", None
    if isinstance(value, bool):
        return "b", value
    if isinstance(value, (int, float)):
        return "n", float(value)
    if isinstance(value, (datetime.datetime, datetime.date, datetime.time, datetime.timedelta)):
        return "n", float(to_excel(value, epoch))
    return "s", unescape(str(value))


def unescape(text):
    """The file writes control characters in text as _xHHHH_ (and an underscore that would
    start such a code as _x005F_); openpyxl leaves the codes in a formula's cached text."""
    return re.sub(r"_x([0-9A-Fa-f]{4})_", lambda m: chr(int(m.group(1), 16)), text)


def workbook(path):
    formulas = openpyxl.load_workbook(path, data_only=False)
    values = openpyxl.load_workbook(path, data_only=True)
    epoch = values.epoch
    out = {"file": path, "date1904": epoch == openpyxl.utils.datetime.MAC_EPOCH,
           "sheets": [ws.title for ws in formulas.worksheets], "names": [], "cells": []}
    if hasattr(formulas.defined_names, "definedName"):  # openpyxl before 3.1
        for dn in formulas.defined_names.definedName:
            scope = -1 if dn.localSheetId is None else int(dn.localSheetId)
            out["names"].append([dn.name, scope, dn.attr_text])
    else:
        for name, dn in formulas.defined_names.items():
            out["names"].append([name, -1, dn.attr_text])
        for index, ws in enumerate(formulas.worksheets):
            for name, dn in ws.defined_names.items():
                out["names"].append([name, index, dn.attr_text])
    out["hidden_rows"] = [[index, r - 1] for index, ws in enumerate(formulas.worksheets)
                          for r, dim in ws.row_dimensions.items() if dim.hidden]
    out["tables"] = []
    for index, ws in enumerate(formulas.worksheets):
        for table in getattr(ws, "tables", {}).values():
            out["tables"].append([index, table.displayName or table.name, table.ref,
                                  1 if table.headerRowCount is None else int(table.headerRowCount),
                                  int(table.totalsRowCount or 0),
                                  [c.name for c in table.tableColumns]])
    for index, ws in enumerate(formulas.worksheets):
        vs = values.worksheets[index]
        for row in ws.iter_rows():
            for c in row:
                f = c.value
                v = vs[c.coordinate]
                kind, val = cached(v.value, epoch)
                if v.data_type == "e":
                    kind, val = "e", str(v.value)
                elif v.data_type == "str" and v.value is None:
                    kind, val = "s", ""  # a formula whose cached value is empty text
                text, ref = None, None
                attrs = getattr(ws, "formula_attributes", {}).get(c.coordinate, {})
                if attrs.get("t") == "array" and isinstance(f, str):
                    text, ref = f, attrs.get("ref")
                elif attrs.get("t") == "dataTable":
                    kind = "t"
                elif isinstance(f, ArrayFormula):
                    text, ref = f.text, f.ref
                elif isinstance(f, DataTableFormula):
                    text = None
                    kind = "t"  # a data table's cells: not a formula we calculate
                elif isinstance(f, str) and c.data_type == "f":
                    text = f
                if text is not None and text.startswith("="):
                    text = text[1:]
                if kind == "" and text is None:
                    continue
                out["cells"].append([index, c.coordinate, kind, val, text, ref])
    return out


def main():
    with open(sys.argv[1], "w", encoding="utf-8") as dest:
        for path in sys.argv[2:]:
            try:
                book = workbook(path)
            except Exception:  # unreadable or hostile files are not ours to check
                continue
            if any(cell[4] is not None for cell in book["cells"]):
                dest.write(json.dumps(book) + "\n")


if __name__ == "__main__":
    main()
