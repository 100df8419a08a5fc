#!/usr/bin/python3
"""Writes the cells of a workbook as JSON for the HyperFormula run of bench/recalc/run.sh:
{"sheets": {name: [[cell, ...], ...]}, "names": [[name, "=Sheet1!$B$1"], ...]}, each cell a
number, a text or a formula ("=..."), rows and columns from A1. Reads with openpyxl.
Usage: cells_json.py IN.xlsx OUT.json
"""
import json
import sys

import openpyxl


def main():
    wb = openpyxl.load_workbook(sys.argv[1], read_only=True)
    sheets = {}
    for ws in wb.worksheets:
        rows = []
        for row in ws.iter_rows(values_only=True):
            rows.append([v for v in row])
        sheets[ws.title] = rows
    # openpyxl 3.1 keeps names in a dict; 3.0 (Debian's older releases) in a list.
    defined = wb.defined_names
    pairs = defined.items() if hasattr(defined, "items") else ((d.name, d) for d in defined.definedName)
    names = [[n, "=" + d.attr_text] for n, d in pairs]
    json.dump({"sheets": sheets, "names": names}, open(sys.argv[2], "w"))


if __name__ == "__main__":
    main()
