#!/usr/bin/python3
"""Times our tokenizer and openpyxl's formula tokenizer on the same formulas, in one run.

Usage (from the project root, after building qzxl_bench_tokenize in a Release build):
    /usr/bin/python3 bench/formula/compare_openpyxl.py build/<dir>/bench/formula/qzxl_bench_tokenize

What is compared, so that the ratio means something:
- The same input: both sides read corpus formulas/fx/benchmark_formulas.json and put "=" in
  front of each formula that lacks one; the script checks that both counted the same formulas.
- The same work: each side turns every formula into its list of pieces and keeps it
  (openpyxl's Tokenizer(...).items, our ParseCellFormula with range replacement off and
  untrimmed pieces, as AutoColor reads formula cells). Neither side includes reading the file
  or converting text; both have the formulas in memory in their own string type.
- The same clock: CPU time of the measuring process (time.process_time here, the benchmark's
  per-thread CPU time there), so that other work on a shared machine weighs on neither figure.
- Several repetitions, interleaved: five rounds, each timing one openpyxl pass over all
  formulas and then one run of the benchmark (the mean of many passes), so that both sides
  meet the same load on a shared machine. The best and the median pass of each side are
  shown, and the ratio is taken of the best against the best and the median against the
  median.
"""
import json
import os
import statistics
import subprocess
import sys
import time

from openpyxl.formula import Tokenizer

REPETITIONS = 5
BENCHMARK = "BM_TokenizeCorpusA1"


def openpyxl_pass(formulas):
    """CPU milliseconds of one pass, and the number of tokens it produced."""
    start = time.process_time()
    tokens = 0
    for text in formulas:
        tokens += len(Tokenizer(text).items)
    return (time.process_time() - start) * 1000, tokens


def qzxl_pass(bench, corpus):
    """Mean CPU milliseconds of one pass, the formulas read and the pieces of one pass."""
    env = dict(os.environ, QZXL_CORPUS=corpus)
    out = subprocess.run(
        [bench, f"--benchmark_filter={BENCHMARK}$", "--benchmark_format=json"],
        check=True, capture_output=True, text=True, env=env).stdout
    runs = [b for b in json.loads(out)["benchmarks"] if b.get("run_type") == "iteration"]
    if len(runs) != 1 or runs[0].get("error_occurred"):
        sys.exit(f"{bench} did not run {BENCHMARK}")
    run = runs[0]
    return run["cpu_time"], int(run["formulas"]), int(run["pieces_per_pass"])


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    corpus = os.path.abspath(os.environ.get("QZXL_CORPUS", "../shared/corpus"))
    path = os.path.join(corpus, "formulas", "fx", "benchmark_formulas.json")
    with open(path, encoding="utf-8") as f:
        formulas = ["=" + x if not x.startswith("=") else x for x in json.load(f)]

    theirs, ours = [], []
    for _ in range(REPETITIONS):
        ms, their_tokens = openpyxl_pass(formulas)
        theirs.append(ms)
        ms, our_formulas, our_pieces = qzxl_pass(sys.argv[1], corpus)
        ours.append(ms)
    if our_formulas != len(formulas):
        sys.exit(f"the benchmark read {our_formulas} formulas, this script {len(formulas)}")

    def row(name, passes, items):
        print(f"{name:20} best {min(passes):9.3f} ms   median {statistics.median(passes):9.3f} ms"
              f"   per pass ({items} pieces)")

    print(f"formulas:            {len(formulas)}")
    row("qzxl tokenizer:", ours, our_pieces)
    row("openpyxl Tokenizer:", theirs, their_tokens)
    print(f"ratio:               best {min(theirs) / min(ours):7.1f}x"
          f"   median {statistics.median(theirs) / statistics.median(ours):7.1f}x")


if __name__ == "__main__":
    main()
