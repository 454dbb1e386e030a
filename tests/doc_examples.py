#!/usr/bin/env python3
"""Compiles the C++ example of STYLE.md, so that it cannot fall behind the framework.

Usage: doc_examples.py ROOT COMPILER. Exit status 1 when the example does not compile.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

PRELUDE = """
#include <algorithm>
#include <array>
#include "Components/TableDriven.h"
#include "kraaudiodsp/Units.h"
namespace zuc::components {
"""


def main(root, compiler):
    text = (root / "STYLE.md").read_text(encoding="utf-8")
    blocks = re.findall(r"```cpp\n(.*?)```", text, re.S)
    if len(blocks) < 2:
        print("STYLE.md: the example is missing")
        return 1
    source = PRELUDE + "\n".join(blocks) + "}\n"
    with tempfile.NamedTemporaryFile("w", suffix=".cpp") as file:
        file.write(source)
        file.flush()
        command = [compiler, "-std=c++20", "-fsyntax-only", "-Wall", "-Werror", f"-I{root}", file.name]
        return subprocess.run(command, check=False).returncode


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]), sys.argv[2]))
