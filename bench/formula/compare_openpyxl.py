#!/usr/bin/python3
"""Times our tokenizer and openpyxl's formula tokenizer on the same formulas, in one run.

Usage (from the project root, after building qzxl_bench_tokenize):
    /usr/bin/python3 bench/formula/compare_openpyxl.py build/<dir>/bench/formula/qzxl_bench_tokenize

Both read corpus formulas/fx/benchmark_formulas.json with "=" put in front, and both time
tokenizing every formula once per pass with the text already in memory (our figure is the
best mean of Google Benchmark's repetitions, openpyxl's the best of five passes). Both are
measured in CPU time of their own process, so that other work on a shared machine weighs on
neither figure.
"""
import json
import os
import subprocess
import sys
import time

from openpyxl.formula import Tokenizer


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    bench = sys.argv[1]
    corpus = os.environ.get("QZXL_CORPUS", "../shared/corpus")
    path = os.path.join(corpus, "formulas", "fx", "benchmark_formulas.json")
    with open(path, encoding="utf-8") as f:
        formulas = ["=" + x if not x.startswith("=") else x for x in json.load(f)]

    passes = []
    for _ in range(5):
        start = time.process_time()
        for text in formulas:
            Tokenizer(text)
        passes.append(time.process_time() - start)
    theirs_ms = min(passes) * 1000

    out = subprocess.run(
        [bench, "--benchmark_filter=BM_TokenizeCorpusA1$", "--benchmark_format=json",
         "--benchmark_repetitions=5"],
        check=True, capture_output=True, text=True).stdout
    runs = [b for b in json.loads(out)["benchmarks"] if b.get("run_type") == "iteration"]
    ours_ms = min(b["cpu_time"] for b in runs)  # reported in milliseconds

    print(f"formulas:            {len(formulas)}")
    print(f"qzxl tokenizer:      {ours_ms:9.3f} ms per pass")
    print(f"openpyxl Tokenizer:  {theirs_ms:9.3f} ms per pass")
    print(f"ratio:               {theirs_ms / ours_ms:9.1f}x")


if __name__ == "__main__":
    main()
