#!/usr/bin/env python3
"""Mutation run: how many small faults in the module's sources does the
suite catch?

A seeded sample of single changes is drawn from the module's sources
(kivo/) and the phonebook library's JSON and text conversion
(standins/phonebook/src/): a relational or logical operator swapped, an integer
constant moved by one, one character of a string literal changed, a
returned constant flipped. Each change is applied alone to a private copy
of the tree, built, and the fast tiers of ctest (unit, platform, corpus)
run against it. A change is "killed" when a test fails (or hangs past the
time-out), "survived" when every test passes, "unbuildable" when it does not
compile. The last line gives the kill rate over the buildable changes.

docs/testing.md says how to read the result.
"""
import argparse
import os
import random
import re
import shutil
import subprocess
import sys
import time

SOURCES = [
    ("kivo", (".cpp", ".h")),
]
PHONEBOOK_CONVERSION = [
    "standins/phonebook/src/request.cpp",
    "standins/phonebook/src/records.cpp",
    "standins/phonebook/src/latin1.cpp",
    "standins/phonebook/src/jsonread.h",
    "standins/phonebook/src/wire.h",
]
FAST_LABELS = "unit|platform|corpus"

SWAPS = [
    ("==", "!="), ("!=", "=="),
    (" <= ", " < "), (" >= ", " > "), (" < ", " <= "), (" > ", " >= "),
    (" && ", " || "), (" || ", " && "),
]
RETURNS = [
    ("return true;", "return false;"), ("return false;", "return true;"),
    ("return 0;", "return 1;"), ("return 1;", "return 0;"),
    ("return -1;", "return 0;"),
]
NUMBER = re.compile(r"(?<![\w.])(0[xX][0-9a-fA-F]+|\d+)(?![\w.])")


def code_spans(line):
    """Yields (start, end, kind) of the code and string-literal parts of a
    line; kind is 'code' or 'str'. Comments end the line."""
    i, n, start = 0, len(line), 0
    while i < n:
        c = line[i]
        if line.startswith("//", i):
            break
        if c == '"' or c == "'":
            if i > start:
                yield start, i, "code"
            j = i + 1
            while j < n and line[j] != c:
                j += 2 if line[j] == "\\" else 1
            yield i, min(j + 1, n), "str" if c == '"' else "chr"
            i = start = min(j + 1, n)
            continue
        i += 1
    end = line.find("//", start)
    end = n if end < 0 else end
    if end > start:
        yield start, end, "code"


def mutations_of(path, text):
    """All candidate changes of one file: (line index, new line, description)."""
    out = []
    in_block = False
    for idx, line in enumerate(text.split("\n")):
        stripped = line.strip()
        if in_block:
            if "*/" in stripped:
                in_block = False
            continue
        if stripped.startswith("/*"):
            in_block = "*/" not in stripped
            continue
        if not stripped or stripped.startswith(("//", "*", "#", "static_assert")):
            continue
        for start, end, kind in code_spans(line):
            part = line[start:end]
            if kind == "code":
                for old, new in SWAPS + RETURNS:
                    pos = part.find(old)
                    while pos >= 0:
                        at = start + pos
                        out.append((idx, line[:at] + new + line[at + len(old):],
                                    "%r -> %r" % (old.strip(), new.strip())))
                        pos = part.find(old, pos + 1)
                for m in NUMBER.finditer(part):
                    tok = m.group(1)
                    val = int(tok, 0)
                    new = hex(val + 1) if tok.lower().startswith("0x") else str(val + 1)
                    at = start + m.start(1)
                    out.append((idx, line[:at] + new + line[at + len(tok):],
                                "%s -> %s" % (tok, new)))
            elif kind == "str" and end - start > 2:
                # One position per literal, chosen from the literal itself so
                # that the candidate list does not depend on the seed.
                body = [k for k in range(start + 1, end - 1)
                        if line[k] != "\\" and line[k - 1] != "\\" and line[k] != "%"
                        and line[k - 1] != "%"]
                if not body:
                    continue
                k = body[sum(map(ord, line[start:end])) % len(body)]
                ch = line[k]
                new = "_" if ch == " " else ("Y" if ch == "X" else "X")
                out.append((idx, line[:k] + new + line[k + 1:],
                            "string %r -> %r" % (line[start:end], line[start:k] + new + line[k + 1:end])))
    return out


def candidate_files(root):
    files = []
    for top, exts in SOURCES:
        for name in sorted(os.listdir(os.path.join(root, top))):
            if name.endswith(exts):
                files.append(os.path.join(top, name))
    files += [f for f in PHONEBOOK_CONVERSION if os.path.exists(os.path.join(root, f))]
    return files


def run(cmd, cwd, timeout):
    try:
        return subprocess.run(cmd, cwd=cwd, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=timeout).returncode
    except subprocess.TimeoutExpired:
        return "timeout"


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--count", type=int, default=150, help="sample size (default 150)")
    ap.add_argument("--dir", default="build-mutants", help="work directory (default build-mutants)")
    ap.add_argument("--list", action="store_true", help="print the sample and stop")
    ap.add_argument("--file", action="append", help="only mutate these files")
    args = ap.parse_args()

    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    files = args.file or candidate_files(root)
    cands = []
    for f in files:
        with open(os.path.join(root, f), encoding="latin-1") as fh:
            text = fh.read()
        cands += [(f,) + m for m in mutations_of(f, text)]
    rng = random.Random(args.seed)
    sample = rng.sample(cands, min(args.count, len(cands)))
    sample.sort(key=lambda m: (m[0], m[1]))
    print("%d candidate changes in %d files; sample of %d with seed %d"
          % (len(cands), len(files), len(sample), args.seed), flush=True)
    if args.list:
        for f, idx, _, desc in sample:
            print("%s:%d  %s" % (f, idx + 1, desc))
        return 0

    work = os.path.abspath(os.path.join(root, args.dir))
    src, build = os.path.join(work, "src"), os.path.join(work, "build")
    shutil.rmtree(src, ignore_errors=True)
    tracked = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=root,
                             capture_output=True, text=True, check=True).stdout.split("\n")
    for rel in filter(None, tracked):
        if os.path.isfile(os.path.join(root, rel)):
            os.makedirs(os.path.dirname(os.path.join(src, rel)), exist_ok=True)
            shutil.copy2(os.path.join(root, rel), os.path.join(src, rel))
    # -O0 and no benchmarks: each change rebuilds one source and relinks.
    subprocess.run(["cmake", "-S", src, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None", "-DKIVO_WERROR=ON",
                    "-DCMAKE_CXX_FLAGS=-O0", "-DKIVO_BENCH=OFF"],
                   check=True, stdout=subprocess.DEVNULL)
    jobs = str(os.cpu_count() or 2)
    if run(["cmake", "--build", build, "-j", jobs], src, 1800) != 0:
        print("the unchanged tree does not build", file=sys.stderr)
        return 1
    ctest = ["ctest", "--test-dir", build, "-L", FAST_LABELS, "-j", jobs, "--timeout", "60",
             "--stop-on-failure"]
    if run(ctest, src, 600) != 0:
        print("the unchanged tree fails its tests", file=sys.stderr)
        return 1

    counts = {"killed": 0, "survived": 0, "unbuildable": 0}
    survivors = []
    started = time.time()
    for n, (f, idx, new_line, desc) in enumerate(sample, 1):
        path = os.path.join(src, f)
        with open(path, encoding="latin-1") as fh:
            original = fh.read()
        lines = original.split("\n")
        lines[idx] = new_line
        with open(path, "w", encoding="latin-1") as fh:
            fh.write("\n".join(lines))
        try:
            if run(["cmake", "--build", build, "-j", jobs], src, 600) != 0:
                verdict = "unbuildable"
            else:
                verdict = "survived" if run(ctest, src, 600) == 0 else "killed"
        finally:
            with open(path, "w", encoding="latin-1") as fh:
                fh.write(original)
        counts[verdict] += 1
        if verdict == "survived":
            survivors.append("%s:%d  %s" % (f, idx + 1, desc))
        print("[%3d/%d] %-11s %s:%d  %s" % (n, len(sample), verdict, f, idx + 1, desc), flush=True)
    # Leave the build matching the sources again.
    run(["cmake", "--build", build, "-j", jobs], src, 600)
    if survivors:
        print("survivors:")
        for s in survivors:
            print("  " + s)
    tested = counts["killed"] + counts["survived"]
    rate = 100.0 * counts["killed"] / tested if tested else 0.0
    print("seed %d, %d changes in %.0f s: killed %d, survived %d, unbuildable %d; kill rate %.1f%%"
          % (args.seed, len(sample), time.time() - started, counts["killed"], counts["survived"],
             counts["unbuildable"], rate))
    return 0


if __name__ == "__main__":
    sys.exit(main())
