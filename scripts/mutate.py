#!/usr/bin/env python3
"""Mutation testing of the library: how many small faults does the suite catch?

Each mutant is one small change to one line of src/*.cpp:
  compare  flips a comparison (< and <=, > and >=, == and !=)
  bound    shifts an integer literal by one
  drop     deletes a statement
  swap     swaps the operands of a subtraction, division or comparison
The script builds the suite once in a copy of the tree, then for each mutant
writes the changed line, rebuilds, runs the tests and restores the line.

  --sample N --seed S   draw N mutants at random from every candidate site
  --list FILE           replay the mutants recorded in FILE (a TSV written by
                        an earlier run), so that two versions of the tests can
                        be compared on the same faults
  --out DIR             where the list and the report go (default mutants/)

A mutant is killed when a test fails or times out, survives when every test
passes, and is invalid when it does not compile (left out of the rate). A
mutant whose line no longer reads as recorded is stale (also left out).
"""
import argparse
import os
import random
import re
import shutil
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

COMPARE = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
COMPARE_RE = re.compile(r" (<=|>=|==|!=|<|>) ")
INT_RE = re.compile(r"(?<![\w.])(\d+)(?![\w.])")
SWAP_RE = re.compile(r"(?<![\w.>])([A-Za-z_]\w*) (-|/|<|<=|>|>=) ([A-Za-z_]\w*)(?![\w(\[.])")


def code_part(line):
    """The line without a trailing // comment and outside string literals."""
    if '"' in line or "'" in line:
        return None
    cut = line.find("//")
    return line if cut < 0 else line[:cut]


def sites(path, lines):
    """Every (line number, operator, new line) that a mutant may use."""
    out = []
    previous = ""
    for number, line in enumerate(lines):
        stripped = line.strip()
        code = code_part(line)
        ok = code is not None and stripped and not stripped.startswith(("#", "//", "*", "/*"))
        if ok and not re.match(r"\s*(static_assert|template|using|namespace|struct|class|enum)\b", line):
            body = code.rstrip()
            for m in COMPARE_RE.finditer(body):
                out.append((number, "compare", body[: m.start(1)] + COMPARE[m.group(1)] + body[m.end(1):]))
            for m in INT_RE.finditer(body):
                value = int(m.group(1))
                out.append((number, "bound", body[: m.start(1)] + str(value + 1) + body[m.end(1):]))
            for m in SWAP_RE.finditer(body):
                a, op, b = m.groups()
                if a != b:
                    out.append((number, "swap", body[: m.start()] + f"{b} {op} {a}" + body[m.end():]))
            previous_ends = previous.rstrip().endswith((";", "{", "}", ":")) or not previous.strip()
            simple = not stripped.startswith(("return", "case", "default", "}", "else"))
            declaration = re.match(r"\s*[\w:<>,*&\s]+\s[\w]+(\s*=.*|\{.*\}|\(.*\))?;$", body)
            if body.endswith(";") and previous_ends and simple and not declaration:
                out.append((number, "drop", ""))
        if stripped and not stripped.startswith("//"):
            previous = line
    return [(path, n, op, new) for n, op, new in out]


def candidates(src_root):
    found = []
    for base, _, files in os.walk(os.path.join(src_root, "src")):
        for name in sorted(files):
            if name.endswith(".cpp"):
                path = os.path.relpath(os.path.join(base, name), src_root)
                with open(os.path.join(src_root, path)) as f:
                    found.extend(sites(path, f.read().split("\n")))
    found.sort()
    return found


def run(cmd, cwd, timeout):
    try:
        return subprocess.run(cmd, cwd=cwd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              timeout=timeout).returncode
    except subprocess.TimeoutExpired:
        return None


def prepare(copy):
    """A copy of the tree with the suite built, at a low optimisation level."""
    if os.path.exists(copy):
        shutil.rmtree(copy)
    ignore = shutil.ignore_patterns("build*", "mutants", ".git")
    shutil.copytree(ROOT, copy, ignore=ignore)
    build = os.path.join(copy, "build")
    subprocess.run(["cmake", "-S", copy, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                    "-DCMAKE_CXX_FLAGS_RELEASE=-O1", "-DCMAKE_C_FLAGS_RELEASE=-O1", "-DORVEL_BUILD_BENCH=OFF"],
                   check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["ninja", "-C", build], check=True, stdout=subprocess.DEVNULL)
    return build


TARGETS = ["orvel_tests", "c_interface_test", "orvel_tool"]


def judge(copy, build, mutant, test_timeout):
    path, number, op, original, new = mutant
    full = os.path.join(copy, path)
    with open(full) as f:
        lines = f.read().split("\n")
    if number >= len(lines) or lines[number] != original:
        return "stale"
    mutated = list(lines)
    mutated[number] = new
    with open(full, "w") as f:
        f.write("\n".join(mutated))
    try:
        if run(["ninja", "-C", build] + TARGETS, copy, 600) != 0:
            return "invalid"
        env_tests = [os.path.join(build, "tests", "orvel_tests"), "--gtest_fail_fast", "--gtest_brief=1"]
        status = run(env_tests, os.path.join(build, "tests"), test_timeout)
        if status != 0:
            return "killed"
        status = run([os.path.join(build, "tests", "c_interface_test")], os.path.join(build, "tests"), 60)
        return "survived" if status == 0 else "killed"
    finally:
        with open(full, "w") as f:
            f.write("\n".join(lines))
        os.utime(full, (time.time() + 1, time.time() + 1))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--sample", type=int, default=240)
    parser.add_argument("--seed", type=int, default=12)
    parser.add_argument("--list")
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("--out", default=os.path.join(ROOT, "mutants"))
    parser.add_argument("--work", default="/tmp/orvel-mutants")
    parser.add_argument("--test-timeout", type=int, default=180)
    args = parser.parse_args()
    os.makedirs(args.out, exist_ok=True)

    if args.list:
        mutants = []
        with open(args.list) as f:
            for row in f.read().splitlines()[1:]:
                number, path, line, op, original, new = row.split("\t")
                mutants.append((path, int(line) - 1, op, original.replace("\\t", "\t"), new.replace("\\t", "\t")))
    else:
        pool = candidates(ROOT)
        chosen = random.Random(args.seed).sample(pool, min(args.sample, len(pool)))
        chosen.sort()
        mutants = []
        for path, number, op, new in chosen:
            with open(os.path.join(ROOT, path)) as f:
                original = f.read().split("\n")[number]
            mutants.append((path, number, op, original, new))
        with open(os.path.join(args.out, "mutants.tsv"), "w") as f:
            f.write("id\tfile\tline\toperator\toriginal\tmutant\n")
            for i, (path, number, op, original, new) in enumerate(mutants):
                f.write(f"{i}\t{path}\t{number + 1}\t{op}\t{original}\t{new}\n")
        print(f"{len(pool)} candidate sites; drew {len(mutants)} with seed {args.seed}", flush=True)

    copies = [f"{args.work}/{j}" for j in range(args.jobs)]
    with ThreadPoolExecutor(args.jobs) as pool:
        builds = list(pool.map(prepare, copies))
    # Mutants are judged against a suite that passes on the sources as they are.
    tests = os.path.join(builds[0], "tests")
    if run([os.path.join(tests, "orvel_tests"), "--gtest_brief=1"], tests, args.test_timeout) != 0:
        sys.exit("the suite fails without any mutant: fix it first")
    queue = list(enumerate(mutants))
    results = [None] * len(mutants)

    def worker(j):
        while queue:
            try:
                i, mutant = queue.pop(0)
            except IndexError:
                return
            results[i] = judge(copies[j], builds[j], mutant, args.test_timeout)
            print(f"{i}\t{results[i]}\t{mutant[0]}:{mutant[1] + 1}\t{mutant[2]}", flush=True)

    with ThreadPoolExecutor(args.jobs) as pool:
        list(pool.map(worker, range(args.jobs)))

    counts = {k: results.count(k) for k in ("killed", "survived", "invalid", "stale")}
    valid = counts["killed"] + counts["survived"]
    rate = 100.0 * counts["killed"] / valid if valid else 0.0
    with open(os.path.join(args.out, "report.txt"), "w") as f:
        f.write(f"killed {counts['killed']} of {valid} valid mutants ({rate:.1f}%); "
                f"{counts['invalid']} did not compile, {counts['stale']} stale\n")
        f.write("survivors:\n")
        for i, mutant in enumerate(mutants):
            if results[i] == "survived":
                f.write(f"  {mutant[0]}:{mutant[1] + 1} {mutant[2]}: {mutant[3].strip()}  =>  {mutant[4].strip()}\n")
    with open(os.path.join(args.out, "report.txt")) as f:
        sys.stdout.write(f.read())
    return 0


if __name__ == "__main__":
    sys.exit(main())
