#!/usr/bin/env python3
"""Compares the compiler's own dump of the tables of virtual operations with vtable_order.txt.

Usage: vtable_order.py ROOT COMPILER (a g++). Exit status 1 when any operation is not in its place.
"""
import itertools
import pathlib
import re
import subprocess
import sys

# Concrete classes have a name in every slot; abstract ones do not. The probes add no operation.
PROBES = {
    "kraaudiofilterhost::AudioFilter": "FilterProbe",
    "kraaudiofilterhost::AudioFilterParameterInfo": "ParameterProbe",
    "zuc::components::MultiChannelComponentBase": "ComponentProbe",
}
SOURCE = """
#include "Components/MultiChannelComponentBase.h"
#include "kraaudiofilterhost/AudioFilterParameterInfo.h"
struct FilterProbe : kraaudiofilterhost::AudioFilter { ~FilterProbe() override; };
struct ParameterProbe : kraaudiofilterhost::AudioFilterParameterInfo { ~ParameterProbe() override; };
struct ComponentProbe : zuc::components::MultiChannelComponentBase {
    ~ComponentProbe() override;
    void OnNumberOfChannelsChanged(std::size_t) override;
};
"""


def expected_orders(path):
    """class -> names of its operations from slot 0, and the first number that is out of sequence."""
    orders, current = {}, None
    for line in path.read_text(encoding="utf-8").splitlines():
        words = line.split("#")[0].split()
        if words and words[0].endswith(":"):
            current = orders[words[0][:-1]] = list(orders[words[1]]) if len(words) > 1 else []
        elif words:
            if int(words[0]) != len(current):
                sys.exit(f"{path}: {words[1]} is numbered {words[0]}, not {len(current)}")
            current.append(words[1])
    return orders


def dumped_order(dump, probe):
    """Names in the first table of `probe`; the two slots of the destructor count as one operation."""
    table = re.search(rf"^Vtable for {probe}\n(?:.*\n)*?.*& _ZTI.*\n((?:\d+ +\(int.*\n)+)", dump, re.M)
    if not table:
        sys.exit(f"no table of {probe} in the compiler's dump")
    slots = [line.rsplit("::", 1)[-1] for line in table.group(1).splitlines()]
    if slots[:2] != [f"~{probe}"] * 2:
        sys.exit(f"{probe}: slots 0 and 1 are {slots[:2]}, not the destructor")
    return slots[1:]


def main(root, compiler):
    command = [compiler, "-std=c++20", "-fsyntax-only", "-fdump-lang-class=stdout", "-I", ".", "-x", "c++", "-"]
    dump = subprocess.run(command, cwd=root, input=SOURCE, text=True, stdout=subprocess.PIPE, check=True).stdout
    orders = expected_orders(pathlib.Path(__file__).with_name("vtable_order.txt"))
    wrong = 0
    for name, probe in PROBES.items():
        expected, dumped = orders[name][1:], dumped_order(dump, probe)[1:]
        for slot, (want, have) in enumerate(itertools.zip_longest(expected, dumped), start=1):
            if want != have:
                print(f"{name}: operation {slot} is {have}, not {want}")
                wrong += 1
        print(f"{name}: {1 + len(dumped)} operations, {wrong} out of place so far")
    return 1 if wrong else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
