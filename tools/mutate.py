#!/usr/bin/env python3
"""Plants simple faults in the library's sources, one at a time, and runs the tests they
should break.

Each fault is one small change on one line: a comparison flipped (== and !=, < and >=, ...),
&& and || swapped, true and false swapped, a "!" dropped, a whole-number constant one up or one
down, a + or - before a number flipped, an early `return;` or `continue;` taken away, two plain
arguments of a call swapped, a string changed, or a statement dropped. A fault under which the component's tests still pass
has survived: it marks a behaviour no test would notice breaking.

The run is bounded for a small, shared machine:
  - a deterministic sample of faults per file (--per-file, --seed): the same arguments plant
    the same faults again;
  - the faults are planted in a copy of the sources under build/mutants/tree, never in the
    worktree, and built there with ccache;
  - per fault only the component's test programs are rebuilt (one object and a link each) and
    only they run, under a time limit (--timeout); a fault that does not compile is set aside.

  python3 tools/mutate.py                      # every file of src/, 6 faults each
  python3 tools/mutate.py src/range src/formula/rewrite.cpp --per-file 12
  python3 tools/mutate.py --list src/undo      # show the sampled faults, build nothing
  python3 tools/mutate.py --in-place src/range # plant in the worktree, build in build/release

--in-place saves the copy's full build when the worktree's own build is current: each fault is
planted in the worktree's file and taken out again before the next (also when the run is
stopped), and only files without uncommitted edits are touched, so `git diff` shows any fault
a killed run could not take out.

The report (also written to build/mutants/report.txt) lists every fault with its outcome and
sums up the share that survived per directory and overall; build/mutants/killers.txt counts,
per test, the faults it caught and those no other test caught.
"""

import argparse
import fcntl
import hashlib
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time
from collections import defaultdict
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent

# The test programs that cover each source directory (the longest matching prefix wins): the
# component's own, and for a few the one that drives it from outside (the session is loaded and
# released through the factory).
TESTS = {
    "src/range": "tests/range/qzxl_range_tests",
    "src/formula": "tests/formula/qzxl_formula_tests",
    "src/autocolor": "tests/autocolor/qzxl_autocolor_tests",
    "src/undo": "tests/undo/qzxl_undo_tests",
    "src/workbook": "tests/workbook/qzxl_workbook_tests",
    "src/menu": "tests/menu/qzxl_menu_tests",
    "src/chart": "tests/chart/qzxl_chart_tests",
    "src/control": "tests/control/qzxl_control_tests",
    "src/frame": ("tests/frame/qzxl_frame_tests", "tests/factory/qzxl_factory_tests"),
    "src/vblib": "tests/vblib/qzxl_vblib_tests",
    "src/host": ("tests/com/qzxl_host_dispatch_tests", "tests/host/qzxl_intercept_tests"),
    "src/host/intercept.cpp": "tests/host/qzxl_intercept_tests",
    "src/vocab": "tests/vocab/qzxl_vocab_tests",
    "src/factory": "tests/factory/qzxl_factory_tests",
}


def test_for(rel):
    """The test programs of a source file, as a tuple, or None."""
    best = None
    for prefix, program in TESTS.items():
        if (rel == prefix or rel.startswith(prefix + "/")) and (
            best is None or len(prefix) > len(best[0])
        ):
            best = (prefix, program)
    if best is None:
        return None
    return best[1] if isinstance(best[1], tuple) else (best[1],)


# --- Finding the places a fault can go ---------------------------------------------------------

FAILED = re.compile(r"^\[  FAILED  \] (\S+?)(?: \(|,|$)", re.M)
STRING = re.compile(r'(u8|u|U|L)?"(?:[^"\\]|\\.)*"')


def code_spans(line):
    """The line cut into (text, is_string) parts, up to a // comment."""
    parts, pos = [], 0
    while pos < len(line):
        s = STRING.search(line, pos)
        c = line.find("//", pos)
        if c != -1 and (s is None or c < s.start()):
            parts.append((line[pos:c], False))
            return parts
        if s is None:
            parts.append((line[pos:], False))
            return parts
        parts.append((line[pos : s.start()], False))
        parts.append((s.group(0), True))
        pos = s.end()
    return parts


FLIP = {"==": "!=", "!=": "==", "<": ">=", ">": "<=", "<=": ">", ">=": "<"}
OPERATORS = [
    ("cmp", re.compile(r"(?<=\s)(==|!=|<=|>=|<|>)(?=\s)"), lambda m: FLIP[m.group(1)]),
    ("logic", re.compile(r"(?<=\s)(&&|\|\|)(?=\s)"), lambda m: "||" if m.group(1) == "&&" else "&&"),
    ("bool", re.compile(r"\b(true|false)\b"), lambda m: "false" if m.group(1) == "true" else "true"),
    ("not", re.compile(r"(?<![\w)\]!])!(?=[\w(])"), lambda m: ""),
    ("num", re.compile(r"(?<![\w.'])(\d+)(?![\w.'])"), lambda m: str(int(m.group(1)) + 1)),
    # Off by one the other way too (a 1 that should be 0 is as likely as one that should be 2).
    ("num-", re.compile(r"(?<![\w.'])(\d+)(?![\w.'])"),
     lambda m: str(int(m.group(1)) - 1) if int(m.group(1)) > 0 else None),
    # Arithmetic on a constant: a + that should be a - and back. Only before a number, where
    # the flip always compiles (strings are joined with + too).
    ("arith", re.compile(r"(?<=\s)([+-])(?=\s+\d)"), lambda m: "-" if m.group(1) == "+" else "+"),
    # An early way out of a function or a loop's round taken away.
    ("exit", re.compile(r"\b(return|continue);"), lambda m: ";"),
    # Two plain arguments of a call in the wrong order (a row for a column, a name for a value).
    ("swap", re.compile(r"(?<=\w\()([\w.:'-]+), ([\w.:'-]+)(?=\))"),
     lambda m: f"{m.group(2)}, {m.group(1)}" if m.group(1) != m.group(2) else None),
]
# A statement on one line that is a call or an assignment (never a declaration: it does not
# begin with a type followed by a name).
STATEMENT = re.compile(
    r"^\s*(?:[A-Za-z_][\w:]*(?:(?:->|\.)[A-Za-z_]\w*)*(?:\([^;]*\))?"
    r"(?:(?:->|\.)[A-Za-z_]\w*(?:\([^;]*\))?)*)(?:\s*(?:=|\+=|-=|\|=|&=)\s*.+)?;\s*$"
)
SKIP_LINE = re.compile(r"^\s*(#|//|\*|/\*|static_assert|namespace|using|template|case |default:)")


def balanced(text):
    return text.count("(") == text.count(")") and text.count("{") == text.count("}")


def faults_in(lines):
    """Every fault that can be planted in the file: (line index, kind, new line)."""
    out, in_block = [], False
    for i, line in enumerate(lines):
        stripped = line.strip()
        if in_block:
            in_block = "*/" not in stripped
            continue
        if stripped.startswith("/*"):
            in_block = "*/" not in stripped
            continue
        if not stripped or SKIP_LINE.match(line) or "constexpr" in line and "[]" in line:
            continue
        parts = code_spans(line)
        offset = 0
        for text, is_string in parts:
            if is_string:
                if "Error(" in line:  # the text of an error nobody is shown
                    offset += len(text)
                    continue
                quote = text.index('"')
                body = text[quote + 1 : -1]
                changed = text[: quote + 1] + (body + "~" if body else "~") + '"'
                out.append((i, "str", line[:offset] + changed + line[offset + len(text) :]))
            else:
                for kind, pattern, replace in OPERATORS:
                    for m in pattern.finditer(text):
                        replacement = replace(m)
                        if replacement is None:
                            continue
                        new = text[: m.start()] + replacement + text[m.end() :]
                        out.append((i, kind, line[:offset] + new + line[offset + len(text) :]))
            offset += len(text)
        code = "".join(t for t, _ in parts).rstrip()
        if (
            STATEMENT.match(code)
            and balanced(code)
            and not code.lstrip().startswith(("return", "break", "continue", "throw", "else"))
        ):
            indent = line[: len(line) - len(line.lstrip())]
            out.append((i, "drop", indent + ";\n"))
    return out


KINDS = ["cmp", "logic", "bool", "not", "num", "num-", "arith", "exit", "swap", "str", "drop"]


def sample(rel, lines, per_file, seed, kinds=None):
    found = [f for f in faults_in(lines) if kinds is None or f[1] in kinds]
    rng = random.Random(f"{seed}:{rel}")
    chosen = rng.sample(found, min(per_file, len(found)))
    return sorted(chosen, key=lambda f: (f[0], f[1]))


# --- The copy of the sources and its build -------------------------------------------------------


def tracked_files():
    out = subprocess.run(
        ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
        cwd=ROOT, check=True, capture_output=True,
    ).stdout
    return [Path(p.decode()) for p in out.split(b"\0") if p]


def sync_tree(tree):
    """Copies the worktree as it stands (uncommitted edits included) into `tree`, leaving
    files that did not change alone so that their objects stay built. Files the worktree no
    longer has go from the copy too (a moved folder would otherwise be built twice)."""
    wanted = set()
    for rel in tracked_files():
        src, dst = ROOT / rel, tree / rel
        if not src.is_file():
            continue
        wanted.add(Path(rel).as_posix())
        if dst.is_file() and dst.read_bytes() == src.read_bytes():
            continue
        dst.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(src, dst)  # a fresh time stamp, so that the build sees the change
    build = tree / "build"
    for path in tree.rglob("*"):
        if path.is_file() and build not in path.parents:
            if path.relative_to(tree).as_posix() not in wanted:
                path.unlink()


def run(cmd, cwd, timeout=None, env=None):
    try:
        p = subprocess.run(cmd, cwd=cwd, capture_output=True, text=True, timeout=timeout, env=env)
        return p.returncode, p.stdout + p.stderr
    except subprocess.TimeoutExpired:
        return "timeout", ""


def configure(tree, build, jobs):
    env = dict(os.environ, CMAKE_CXX_COMPILER_LAUNCHER="ccache", CCACHE_BASEDIR=str(tree))
    if not (build / "build.ninja").exists():
        code, log = run(
            ["cmake", "-S", str(tree), "-B", str(build), "-G", "Ninja",
             "-DCMAKE_BUILD_TYPE=Release", "-DQZXL_BUILD_BENCH=OFF", "-DQZXL_BUILD_CLI=OFF"],
            cwd=tree, env=env,
        )
        if code != 0:
            sys.exit("configuring the copy failed:\n" + log[-3000:])
    return env


def build(build_dir, programs, jobs, env):
    targets = [Path(p).name for p in programs]
    return run(["cmake", "--build", str(build_dir), "--target", *targets, "-j", str(jobs)],
               cwd=build_dir, env=env)


def run_tests(tree, build_dir, programs, timeout):
    """Runs the programs in turn, stopping at the first that fails."""
    log = ""
    for program in programs:
        code, out = run([str(build_dir / program), "--gtest_brief=1"], cwd=tree, timeout=timeout)
        log += out
        if code != 0:
            return code, log
    return 0, log


# --- The run -----------------------------------------------------------------------------------


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("paths", nargs="*", default=["src"], help="files or folders (default: src)")
    ap.add_argument("--per-file", type=int, default=6, help="faults sampled per file")
    ap.add_argument("--seed", default="1", help="seed of the sample")
    ap.add_argument("--jobs", type=int, default=2, help="compile jobs")
    ap.add_argument("--timeout", type=int, default=120, help="seconds a test program may run")
    ap.add_argument("--minutes", type=float, default=0,
                    help="plant no new fault after this many minutes (0: no limit)")
    ap.add_argument("--kinds", default=",".join(KINDS),
                    help="the kinds of fault to sample from, comma-separated (default: all: "
                    + ",".join(KINDS) + "); the same kinds and seed give the same sample")
    ap.add_argument("--list", action="store_true", help="list the sampled faults and stop")
    ap.add_argument("--in-place", action="store_true",
                    help="plant in the worktree and build in build/release")
    args = ap.parse_args()
    # A stopped run still takes its fault out (the `finally` below).
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("stopped"))

    kinds = set(args.kinds.split(","))
    if not kinds <= set(KINDS):
        sys.exit(f"unknown kinds: {','.join(sorted(kinds - set(KINDS)))}")
    files = []
    for p in args.paths:
        path = (ROOT / p).resolve()
        found = sorted(path.rglob("*.cpp")) if path.is_dir() else [path]
        files += [f for f in found if f.suffix == ".cpp"]
    plan = []
    for f in files:
        rel = f.relative_to(ROOT).as_posix()
        program = test_for(rel)
        if program is None:
            print(f"no tests known for {rel}; left out", file=sys.stderr)
            continue
        lines = f.read_text().splitlines(keepends=True)
        for i, kind, new in sample(rel, lines, args.per_file, args.seed, kinds):
            plan.append((rel, program, i, kind, lines[i], new))
    # In a mixed order, so that a run cut short by --minutes still samples every folder.
    random.Random(args.seed).shuffle(plan)
    if args.list:
        for rel, program, i, kind, old, new in plan:
            print(f"{rel}:{i + 1} {kind}: {old.strip()}  ->  {new.strip()}")
        print(f"{len(plan)} faults in {len(files)} files")
        return

    work = ROOT / "build" / "mutants"
    tree, build_dir = work / "tree", work / "tree" / "build"
    if args.in_place:
        tree, build_dir = ROOT, ROOT / "build" / "release"
        edited = run(["git", "status", "--porcelain", "--"] + sorted({r for r, *_ in plan}),
                     cwd=ROOT)[1]
        if edited.strip():
            sys.exit("these files have uncommitted edits; commit them first:\n" + edited)
    work.mkdir(parents=True, exist_ok=True)
    tree.mkdir(parents=True, exist_ok=True)
    # One run at a time: two would plant faults in each other's copy.
    lock = open(work / "lock", "w")
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except OSError:
        sys.exit("another run of this tool is planting faults; wait for it to end")
    if args.in_place:
        env = dict(os.environ, CMAKE_CXX_COMPILER_LAUNCHER="ccache", CCACHE_BASEDIR=str(ROOT.parent))
    else:
        sync_tree(tree)
        env = configure(tree, build_dir, args.jobs)

    # Each program must build and pass unchanged, or its faults would say nothing.
    healthy = set()
    for program in sorted({p for _, p, *_ in plan}):
        code, log = build(build_dir, program, args.jobs, env)
        if code == 0:
            code, log = run_tests(tree, build_dir, program, args.timeout)
        if code == 0:
            healthy.add(program)
        else:
            print(f"{program} does not build or pass unchanged; its faults are left out:\n"
                  + log[-2000:], file=sys.stderr)

    results, started = [], time.time()
    killers = defaultdict(lambda: [0, 0])  # test: faults it caught, faults only it caught
    report = open(work / "report.txt", "w")

    def say(text):
        print(text, flush=True)
        report.write(text + "\n")

    say(f"faults planted: {len(plan)} in {len(files)} files (seed {args.seed}, "
        f"{args.per_file} per file)")
    for rel, program, i, kind, old, new in plan:
        if program not in healthy:
            continue
        if args.minutes and time.time() - started > args.minutes * 60:
            say(f"time is up: the last {len(plan) - len(results)} faults were not planted")
            break
        target = tree / rel
        original = target.read_text()
        lines = original.splitlines(keepends=True)
        lines[i] = new
        target.write_text("".join(lines))
        try:
            code, _ = build(build_dir, program, args.jobs, env)
            if code != 0:
                outcome = "no-build"
            else:
                code, log = run_tests(tree, build_dir, program, args.timeout)
                outcome = "survived" if code == 0 else "killed"
                failed = sorted(set(FAILED.findall(log)))
        finally:
            target.write_text(original)
        results.append((rel, outcome))
        say(f"{outcome:9} {rel}:{i + 1} {kind}: {old.strip()}  ->  {new.strip()}")
        if outcome == "killed":
            for t in failed:
                killers[t][0] += 1
                killers[t][1] += len(failed) == 1
    # Put the last file's object back in step with its source.
    for program in healthy:
        build(build_dir, program, args.jobs, env)

    per_dir = defaultdict(lambda: defaultdict(int))
    for rel, outcome in results:
        per_dir[str(Path(rel).parent)][outcome] += 1
        per_dir["all"][outcome] += 1
    say(f"\n{'directory':24} {'built':>6} {'killed':>7} {'survived':>9} {'survival':>9}")
    for d in sorted(per_dir, key=lambda d: (d == "all", d)):
        n = per_dir[d]
        built = n["killed"] + n["survived"]
        rate = f"{100 * n['survived'] / built:.0f}%" if built else "-"
        say(f"{d:24} {built:6} {n['killed']:7} {n['survived']:9} {rate:>9}"
            + (f"   ({n['no-build']} did not build)" if n["no-build"] else ""))
    say(f"\n{len(results)} faults in {time.time() - started:.0f} s")
    with open(work / "killers.txt", "w") as out:
        out.write("# test: faults it caught, faults no other test caught\n")
        for t, (n, alone) in sorted(killers.items(), key=lambda kv: (-kv[1][1], -kv[1][0])):
            out.write(f"{t}: {n} {alone}\n")


if __name__ == "__main__":
    main()
