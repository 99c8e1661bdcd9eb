#!/usr/bin/env python3
"""Prints which part of the library's lines the tests of a coverage build have reached.

    coverage.py BUILD

One row for each folder, and one for each source with less than nine tenths. Processes that die by a signal leave no counts, so
the figures of the crash handler are too low.
"""

import collections
import os
import pathlib
import re
import subprocess
import sys

SHOWN_BELOW = 0.9
SUMMARY = re.compile(r"^File '([^']+)'\nLines executed:([\d.]+)% of (\d+)$", re.M)


def read_counts(build, root):
    """The lines of each source of the library, and how many of them ran."""
    counts = {}
    for objects in ("nima_objects", "nima_crash_handler"):
        files = sorted(str(file) for file in build.glob(f"CMakeFiles/{objects}.dir/**/*.gcda"))
        output = subprocess.run(["gcov", "-n", "-r", "-s", root, *files], capture_output=True, text=True, check=True).stdout
        for name, percent, lines in SUMMARY.findall(output):
            if name.endswith(".cpp"):
                counts[name] = (int(lines), round(float(percent) * int(lines) / 100))
    return counts


def print_row(name, lines, reached):
    print(f"{name:<46} {lines:>6} {100 * reached / lines:>6.1f} %")


def main():
    build = pathlib.Path(sys.argv[1])
    counts = read_counts(build, pathlib.Path.cwd())
    folders = collections.defaultdict(lambda: [0, 0])
    for name, (lines, reached) in counts.items():
        for folder in (os.path.dirname(name), "all"):
            folders[folder][0] += lines
            folders[folder][1] += reached
    print(f"\n{'folder':<46} {'lines':>6} {'reached':>8}")
    for folder, (lines, reached) in sorted(folders.items(), key=lambda item: (item[0] == "all", item[0])):
        print_row(folder, lines, reached)
    for name, (lines, reached) in sorted(counts.items()):
        if reached < SHOWN_BELOW * lines:
            print_row("  " + name, lines, reached)
    return not counts


sys.exit(main())
