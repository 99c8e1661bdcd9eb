#!/usr/bin/env python3
"""Prints what a run of scripts/test did.

    summary.py FOLDER STAGE RESULT SECONDS [STAGE RESULT SECONDS]...

One row for each stage, and the slowest ten tests. What a stage has tested is in FOLDER: STAGE.xml, written by ctest, or
STAGE.txt, which says it in words.
"""

import pathlib
import sys
import xml.etree.ElementTree

SLOWEST = 10


def read_tests(folder, stage):
    """The tests of a stage with their seconds, without those that did not run."""
    file = folder / f"{stage}.xml"
    if not file.is_file():
        return []
    try:
        cases = xml.etree.ElementTree.parse(file).iter("testcase")
    except xml.etree.ElementTree.ParseError:
        return []  # ctest was ended while it wrote
    return [(float(case.get("time")), stage, case.get("name")) for case in cases if case.get("status") != "notrun"]


def describe(folder, stage, tests):
    words = folder / f"{stage}.txt"
    if tests:
        return f"{len(tests)} tests"
    return words.read_text().strip() if words.is_file() else ""


def main():
    folder, rows = pathlib.Path(sys.argv[1]), sys.argv[2:]
    slowest = []
    print(f"\n{'stage':<10} {'result':<8} {'seconds':>7}  tests")
    for stage, result, seconds in zip(rows[0::3], rows[1::3], rows[2::3]):
        tests = read_tests(folder, stage)
        slowest = sorted(slowest + tests, reverse=True)[:SLOWEST]
        print(f"{stage:<10} {result:<8} {seconds:>7}  {describe(folder, stage, tests)}".rstrip())
    if slowest:
        print(f"\n{'slowest':<10} {'':<8} {'seconds':>7}")
    for seconds, stage, name in slowest:
        print(f"{stage:<10} {'':<8} {seconds:>7.1f}  {name}")


main()
