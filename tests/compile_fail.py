#!/usr/bin/env python3
"""Checks that tables with a fault do not compile, each for the reason that is meant.

Usage: compile_fail.py ROOT COMPILER (g++ or clang++). Every case is one change to compile_fail/Tables.cpp,
which compiles as it stands. Exit status 1 when the compiler takes a case, or refuses it for another reason.
"""
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys

ILL_FORMED = "tables are not well formed"
CASES = [  # what is wrong, text in Tables.cpp, what stands there instead, text of the error
    ("index is not the position", "{1, ", "{2, ", ILL_FORMED),
    ("parameter name is no key", "$$$/Effects/Probe/Rate=Rate", "Rate", ILL_FORMED),
    ("parameter key without text", "Rate=Rate", "Rate=", ILL_FORMED),
    ("range upside down", "-10, 300, 100}", "300, -10, 100}", ILL_FORMED),
    ("range empty", "-10, 300, 100}", "100, 100, 100}", ILL_FORMED),
    ("initial value below", "-10, 300, 100}", "-10, 300, -11}", ILL_FORMED),
    ("initial value above", "-10, 300, 100}", "-10, 300, 300.5f}", ILL_FORMED),
    ("logarithmic from 0", "20, 2000, 440}", "0, 2000, 440}", ILL_FORMED),
    ("switch with a range of its own", "0, 1, 0}", "0, 2, 0}", ILL_FORMED),
    ("fewer choices than keys", "4, 5, 4, true", "4, 6, 4, true", ILL_FORMED),
    ("more choices than keys", "4, 5, 4, true", "4, 4.5f, 4, true", ILL_FORMED),
    ("choices of a number", "Kind::kEnum,        4", "Kind::kLinear, 4", ILL_FORMED),
    ("preset value below", "100, 2000, 1", "100, 19.5f, 1", ILL_FORMED),
    ("preset value above", "100, 2000, 1", "100, 2001, 1", ILL_FORMED),
    ("preset of a value too few", "2000, 1, 5)", "2000, 1)", ILL_FORMED),
    ("preset of a value too many", "2000, 1, 5)", "2000, 1, 5, 0)", ILL_FORMED),
    ("preset name is no key", "$$$/Effects/Probe/Wide=Wide", "Wide", ILL_FORMED),
    ("title is no key", "$$$/Effects/Probe/Title=Probe", "Probe", ILL_FORMED),
    ("preset wider than any effect", "2000, 1, 5)", f"2000, 1, 5{', 0' * 61})",
     "more values than parameters are possible"),
]


def errors_of(source, root, compiler):
    command = [compiler, "-std=c++20", "-fsyntax-only", "-I", ".", "-x", "c++", "-"]
    run = subprocess.run(command, cwd=root, input=source, text=True, stderr=subprocess.PIPE, check=False)
    errors = re.findall(r"^.*\berror: .*$", run.stderr, re.M)
    return errors if run.returncode else []


def main(root, compiler):
    control = (pathlib.Path(__file__).parent / "compile_fail" / "Tables.cpp").read_text(encoding="utf-8")
    failures = [f"control: {error}" for error in errors_of(control, root, compiler)]

    def run(case):
        name, old, new, message = case
        if control.count(old) != 1:
            return f"{name}: '{old}' does not stand exactly once in Tables.cpp"
        errors = errors_of(control.replace(old, new), root, compiler)
        expected = [error for error in errors if "static" in error and message in error]
        if not expected or (message == ILL_FORMED and len(errors) > 1):
            return f"{name}: expected a static assertion with '{message}', got {errors or 'none'}"
        return None

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        failures += filter(None, pool.map(run, CASES))
    print(*failures, f"{len(CASES)} cases, {len(failures)} failures", sep="\n")
    return 1 if failures else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
