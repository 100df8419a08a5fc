"""The AutoColor rules written as a short openpyxl script, the yardstick for `qzxl autocolor`.

    autocolor_openpyxl.py IN OUT

Colours every worksheet of IN as a whole-workbook run with the default settings does, and
saves OUT: a hyperlink takes the link colour; text and dates are left alone; a constant is an
input; a formula with references and typed-in numbers (other than 0 and 1) or text is a
partial input, one with typed-in values only an input; otherwise "]" outside quotes makes a
link to another workbook, "!" one to another sheet, and the rest are plain formulas.
"""
import re
import sys
from copy import copy

import openpyxl
from openpyxl.formula.tokenizer import Token, Tokenizer
from openpyxl.styles.colors import Color

# The default colours, as RGB.
INPUT, PARTIAL, FORMULA = "FF0000FF", "FFFF0000", "FF000000"
SHEET_LINK, BOOK_LINK, HYPERLINK = "FF000000", "FFFF0000", "FF993366"
QUOTED = re.compile(r'"[^"]*"')


def colour_of(cell):
    if cell.hyperlink is not None:
        return HYPERLINK
    if cell.data_type == "s" or cell.is_date:
        return None
    if cell.data_type != "f":
        return INPUT
    has_value = has_ref = False
    for tok in Tokenizer(cell.value).items:
        if tok.type != Token.OPERAND:
            continue
        if tok.subtype == Token.NUMBER:
            if float(tok.value) not in (0.0, 1.0):
                has_value = True
        elif tok.subtype == Token.TEXT:
            has_value = True
        elif tok.subtype == Token.RANGE:
            has_ref = True
    if has_value:
        return PARTIAL if has_ref else INPUT
    body = QUOTED.sub("", cell.value[1:])
    if "]" in body:
        return BOOK_LINK
    if "!" in body:
        return SHEET_LINK
    return FORMULA


def main(src, dst):
    wb = openpyxl.load_workbook(src)
    counts = {}
    for ws in wb.worksheets:
        for row in ws.iter_rows():
            for cell in row:
                if cell.value is None:
                    continue
                rgb = colour_of(cell)
                counts[rgb] = counts.get(rgb, 0) + 1
                if rgb is None:
                    continue
                font = copy(cell.font)
                font.color = Color(rgb=rgb)
                cell.font = font
    wb.save(dst)
    print("openpyxl: cells per colour:", {k or "left as is": v for k, v in sorted(counts.items(), key=str)})


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2])
