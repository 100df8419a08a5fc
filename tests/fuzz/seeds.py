#!/usr/bin/env python3
"""Writes the fuzz targets' seed inputs, one file each, from the shared test corpus:
formulas (with "=" for the tokenizer, without for the calculation language), references,
and number formats found in the corpus workbooks, each followed by a typed entry.
Usage: seeds.py CORPUS_DIR OUT_DIR"""
import csv, hashlib, json, random, re, shutil, sys, zipfile
from pathlib import Path

corpus, out = Path(sys.argv[1]), Path(sys.argv[2])
formulas_dir = corpus / "formulas"
csv.field_size_limit(1 << 24)


def tsv_column(path, column):
    with open(path, newline="", encoding="utf-8") as f:
        return [row[column] for row in csv.DictReader(f, delimiter="\t") if row.get(column)]


def lines(path):
    return [l.rstrip("\n") for l in open(path, encoding="utf-8", errors="replace") if l.strip()]


formulas = json.load(open(formulas_dir / "fx/benchmark_formulas.json", encoding="utf-8"))
formulas += tsv_column(formulas_dir / "xlsx_corpus/cell_formulas.tsv", "formula")
formulas += [json.loads(l)["formula"] for l in lines(formulas_dir / "xlparser/parser_tests_inputs.jsonl")]
for p in ["xlparser/enron/knownfails.txt", "xlparser/testformulas/structured_references.txt",
          "xlparser/testformulas/user_contributed.txt"]:
    formulas += lines(formulas_dir / p)
references = json.load(open(formulas_dir / "fx/benchmark_refs.json", encoding="utf-8"))
references += tsv_column(formulas_dir / "xlsx_corpus/defined_names.tsv", "formula")
references += tsv_column(formulas_dir / "xlsx_corpus/cell_formulas.tsv", "ref")

codes = set()
for book in sorted((corpus / "workbooks").rglob("*.xls[xm]")):
    try:
        with zipfile.ZipFile(book) as z:
            styles = [n for n in z.namelist() if n.lower().endswith("styles.xml")]
            text = z.read(styles[0]).decode("utf-8", "replace") if styles else ""
    except Exception:
        continue  # the corpus holds broken packages on purpose
    for code in re.findall(r'formatCode="([^"]*)"', text):
        codes.add(code.replace("&quot;", '"').replace("&lt;", "<").replace("&gt;", ">")
                  .replace("&amp;", "&"))
entries = ["1234.5", "-0.25", "12%", "(1,000)", "$1,234.50", "1E-3", "11/14/2026", "14-Nov",
           "9:30 PM", "2026-11-14 9:30", "TRUE", "#N/A", "'007", "text", ""]
numfmts = [c + "\n" + entries[i % len(entries)] for i, c in enumerate(sorted(codes))]


def write(kind, texts, limit=3000):
    unique = sorted(set(texts))
    random.Random(1).shuffle(unique)
    folder = out / kind
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for t in unique[:limit]:
        data = t.encode("utf-8")
        (folder / hashlib.sha1(data).hexdigest()).write_bytes(data)
    print(f"{kind}: {min(len(unique), limit)} seeds")


write("tokenizer", ["=" + f for f in formulas])
write("calc", formulas)
write("address", references)
write("numfmt", numfmts)
