#!/usr/bin/env python3
"""Runs clang-tidy 14 over every tracked source of a build folder, and remembers what was clean.

Usage: check_tidy.py BUILD [file ...]. A source is checked again when anything its compiler sees, its
flags or the checks change; comments count, line numbers do not. Exit status 1 when there is a finding.
"""
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
CACHE = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "zuc-tidy"

FINDING = re.compile(r"^(?=(?:/.*: )?(?:error|warning): )", re.M)


def flags_of(entry):
    """The compiler's arguments without launcher, compiler, source, and output."""
    words = shlex.split(entry["command"]) if "command" in entry else list(entry["arguments"])
    flags, skip = [], False
    for word in words:
        if skip or word in ("-o", "-c"):
            skip = word == "-o" and not skip
        elif flags or word.startswith("-"):
            flags.append(word)
    return [flag for flag in flags if flag != entry["file"]]


def fingerprint(entry, checks):
    """Of everything a finding can depend on; None when clang cannot read the source."""
    flags = flags_of(entry)
    run = subprocess.run(["clang++-14", *flags, "-w", "-E", "-C", "-P", entry["file"]],
                         cwd=entry["directory"], capture_output=True, check=False)
    if run.returncode != 0:
        return None
    portable = " ".join(flags).replace(str(ROOT), "")
    return hashlib.sha256(b"\0".join([checks, portable.encode(), run.stdout])).hexdigest()


def check(build, entry, checks):
    """Findings as text; empty when the source is clean."""
    key = fingerprint(entry, checks)
    if key and (CACHE / key).exists():
        return ""
    # The build's compiler may know warnings that clang does not.
    run = subprocess.run(["clang-tidy-14", "-p", build, "--quiet",
                          "--extra-arg=-Wno-unknown-warning-option", entry["file"]],
                         capture_output=True, text=True, check=False)
    if run.returncode == 0 and key:
        (CACHE / key).touch()
    return "" if run.returncode == 0 else run.stdout or f"error: {run.stderr}"


def main(build, *only):
    tracked = subprocess.run(["git", "-C", ROOT, "ls-files", "-z", "*.cpp"], text=True,
                             capture_output=True, check=True).stdout.split("\0")
    wanted = {str(ROOT / name) for name in tracked if name}
    if only:
        wanted &= {str(pathlib.Path(name).resolve()) for name in only}
    database = json.loads((pathlib.Path(build) / "compile_commands.json").read_text())
    entries = {entry["file"]: entry for entry in database if entry["file"] in wanted}
    checks = b"\0".join((ROOT / name).read_bytes()
                        for name in (".clang-tidy", "tests/.clang-tidy", "scripts/check_tidy.py"))
    CACHE.mkdir(parents=True, exist_ok=True)
    failed, shown = 0, set()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for findings in pool.map(lambda entry: check(build, entry, checks), entries.values()):
            failed += bool(findings)
            for finding in FINDING.split(findings)[1:]:
                if finding not in shown:  # a header's findings come with every source that includes it
                    print(finding, end="", flush=True)
                shown.add(finding)
    print(f"clang-tidy: {len(entries)} sources, {failed} with findings")
    return 1 if failed or not entries else 0


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
