#!/usr/bin/env python3
"""Compares the effect table of README.md with `zuc list --json`; --update writes it.

Usage: readme_effects.py ROOT ZUC [--update]. Exit status 1 when the table is out of date.
"""
import json
import pathlib
import re
import subprocess
import sys

TABLE = re.compile(r"(<!-- effects: .*? -->\n)(.*?)(<!-- /effects -->)", re.S)


def make_table(zuc):
    listing = json.loads(subprocess.run([zuc, "list", "--json"], check=True, capture_output=True).stdout)
    rows = ["| Effect | Name in scripts | Category | Parameters | Presets |", "|---|---|---|---|---|"]
    for effect in listing["effects"]:
        described = json.loads(
            subprocess.run([zuc, "describe", effect["effect"], "--json"], check=True, capture_output=True).stdout
        )
        rows.append(
            f'| {effect["title"]} | `{effect["effect"]}` | {effect["category"]} '
            f'| {len(described["parameters"])} | {len(described["presets"])} |'
        )
    return "\n".join(rows) + "\n"


def main(root, zuc, update):
    readme = root / "README.md"
    text = readme.read_text(encoding="utf-8")
    fresh = TABLE.sub(lambda m: m[1] + make_table(zuc) + m[3], text)
    if fresh == text:
        return 0
    if update:
        readme.write_text(fresh, encoding="utf-8")
        return 0
    print("README.md: the effect table is out of date; run tests/readme_effects.py . build/release/bin/zuc --update")
    return 1


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]), sys.argv[2], "--update" in sys.argv[3:]))
