#!/usr/bin/python3
"""Writes a workbook from JSON, for the comparison of the engine's functions with another
spreadsheet program: the cells come typed, so that each reads back as the kind it was meant.

Usage: write_workbook.py INPUT.json OUTPUT.xlsx

INPUT.json: {"sheets": [{"name": ..., "cells": [[A1, kind, value], ...]}, ...]} where kind is
n (number), s (text), b (Boolean), e (error literal) or f (formula text without "=").
Writes with the openpyxl package, a writer nobody on this project wrote.
"""
import json
import sys

import openpyxl
from openpyxl.cell.cell import TYPE_STRING


def main():
    book = json.load(open(sys.argv[1], encoding="utf-8"))
    wb = openpyxl.Workbook()
    wb.remove(wb.active)
    for sheet in book["sheets"]:
        ws = wb.create_sheet(sheet["name"])
        for at, kind, value in sheet["cells"]:
            cell = ws[at]
            if kind == "f":
                cell.value = "=" + value
            elif kind == "s":
                # Text that looks like a formula or an error stays text.
                cell.value = value
                cell.data_type = TYPE_STRING
            else:
                cell.value = value  # numbers, Booleans, and error literals ("#DIV/0!")
    wb.save(sys.argv[2])


if __name__ == "__main__":
    main()
