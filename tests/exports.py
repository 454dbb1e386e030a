#!/usr/bin/env python3
"""Checks that the shared library exports what public headers mark ZUC_API, all of it and nothing else.

Usage: exports.py ROOT LIBRARY. It first looks whether it sees a symbol planted in a library of its own. What the standard library and Boost make visible themselves is weak and no
concern of ours. Exit status 1 when there is a symbol too many or too few.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

PUBLIC = ["Components", "kraaudiofilterhost", "kramediatypes", "kracore", "ZuCore"]
FOREIGN = ["std", "boost"]
CLASS = re.compile(r"\b(?:class|struct)\s+ZUC_API\s+(\w+)(?!\s*;)")
FUNCTION = re.compile(r"\bZUC_API\b[^;{}()]*?(\w+|operator\S+?)\s*\(")


def marked_names(root):
    """name -> the header that marks it."""
    names = {}
    for folder in PUBLIC:
        for header in sorted((root / folder).glob("*.h")):
            text = re.sub(r"//.*|^#.*", "", header.read_text(encoding="utf-8"), flags=re.M)
            for pattern in (CLASS, FUNCTION):
                names.update((name, header.relative_to(root)) for name in pattern.findall(text))
    return names


def exported_symbols(library):
    """Each symbol's type letter and demangled name."""
    lines = subprocess.run(["nm", "-DC", "--defined-only", library], text=True, capture_output=True,
                           check=True).stdout.splitlines()
    return [(line.split()[1], line.split(maxsplit=2)[2]) for line in lines]


def scopes(symbol):
    """["zuc", "components", "Amplify", "Resume"], also for what the compiler makes of a class."""
    name = symbol.replace("[abi:cxx11]", "").replace("operator<", "operator").replace("operator>", "operator")
    while (shorter := re.sub(r"<[^<>]*>", "", name)) != name:
        name = shorter
    name = name.split("(")[0].rstrip().split(" ")[-1]  # "vtable for X", a template's result type
    return name.split("-in-")[-1].split("::")  # "construction vtable for A-in-B"


def find_faults(marked, symbols):
    seen, wrong = set(), []
    for kind, symbol in symbols:
        parts = scopes(symbol)
        if parts[0] in FOREIGN and kind in "WVu":
            continue
        owners = marked.keys() & set(parts)
        seen |= owners
        if not owners:
            wrong.append(f"exported without ZUC_API: {symbol}")
    return wrong + [f"marked ZUC_API in {header} and not exported: {name}"
                    for name, header in marked.items() if name not in seen]


def sees_planted_symbol(marked):
    with tempfile.TemporaryDirectory() as folder:
        library = f"{folder}/planted.so"
        subprocess.run(["c++", "-x", "c++", "-", "-shared", "-fPIC", "-o", library], text=True, check=True,
                       input="namespace zuc { struct Planted { void Sound(); }; void Planted::Sound() {} }")
        return "exported without ZUC_API: zuc::Planted::Sound()" in find_faults(marked, exported_symbols(library))


def main(root, library):
    marked = marked_names(pathlib.Path(root))
    symbols = exported_symbols(library)
    wrong = find_faults(marked, symbols)
    if not sees_planted_symbol(marked):
        wrong.append("exports.py does not see a symbol that was planted")
    print(*wrong, f"{len(symbols)} symbols of {len(marked)} marked names, {len(wrong)} wrong", sep="\n")
    return 1 if wrong or not symbols else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
