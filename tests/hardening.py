#!/usr/bin/env python3
"""Checks how programs and libraries were built: what a fault of memory must not turn into a way in.

Usage: hardening.py [--protected] FILE... Each must be position independent, have its tables read-only once it is
loaded (relro, now), no executable stack, and no segment that is both written and executed. With --protected it must
also call the checks of the compiler and, where it prints, of the C library (stack protector, fortified functions).
--self-test checks that a program built without all that is found out.
Exit status 1 when something is missing.
"""
import pathlib
import re
import subprocess
import sys
import tempfile


def output_of(*command):
    return subprocess.run(command, text=True, capture_output=True, check=True).stdout


def faults_of(path, is_protected):
    header = output_of("readelf", "-hW", path)
    segments = output_of("readelf", "-lW", path)
    dynamic = output_of("readelf", "-dW", path)
    symbols = output_of("nm", "-D", "--undefined-only", path)
    stack = re.search(r"GNU_STACK(?: +0x\w+){5} ([RWE ]{3})", segments)
    loads = re.findall(r"^ +LOAD(?: +0x\w+){5} ([RWE ]{3})", segments, flags=re.M)
    checks = {
        "is not position independent": re.search(r"Type: +DYN", header),
        "has tables that stay writable (relro)": "GNU_RELRO" in segments,
        "binds names late (now)": re.search(r"\(FLAGS_1\).*\bNOW\b|BIND_NOW", dynamic),
        "has an executable stack": stack and "E" not in stack[1],
        "has segments that are written and executed":
            loads and not any("W" in flags and "E" in flags for flags in loads),
    }
    if is_protected:
        checks["has no stack protector"] = "__stack_chk_fail" in symbols
        checks["calls functions that are not fortified"] = \
            re.search(r" U __\w+_chk\b", symbols) or not re.search(r" U \w*printf\b", symbols)
    return [f"{path}: {what}" for what, good in checks.items() if not good]


def self_test():
    """A program of which every check that can fail together must fail."""
    source = """#include <cstdio>
        __asm__(".section both,\\"awx\\",@progbits\\n.byte 0\\n.previous");
        int main(int n, char** words) { char text[9]; return std::snprintf(text, n, words[0]); }
        """
    with tempfile.TemporaryDirectory() as folder:
        path = str(pathlib.Path(folder) / "soft")
        subprocess.run(["c++", "-x", "c++", "-", "-o", path, "-O2", "-U_FORTIFY_SOURCE", "-fno-stack-protector",
                        "-no-pie", "-fno-pie", "-Wl,-z,norelro,-z,lazy,-z,execstack"],
                       input=source, text=True, check=True)
        found = faults_of(path, True)
    print(*found, sep="\n")
    return [] if len(found) == 7 else [f"hardening.py finds {len(found)} of 7 planted faults"]


def main(arguments):
    is_protected = "--protected" in arguments
    paths = [word for word in arguments if not word.startswith("--")]
    wrong = self_test() if "--self-test" in arguments else []
    for path in paths:
        wrong += faults_of(path, is_protected)
    print(*wrong, f"{len(paths)} files, {len(wrong)} wrong", sep="\n")
    return 1 if wrong else 0


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1:]))
