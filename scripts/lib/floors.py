#!/usr/bin/env python3
"""Checks that includes point downward, as the floors in doc/code-map.md say.

    floors.py [ROOT]

A table of the page whose first column is headed "floor" gives a floor to each path in backticks: a folder with
everything in it ("tools/base/"), or a unit, which is a header and its source ("Diagnostics/TraceDevice"). The longest
path that matches a file counts, and paths with the word "with" between them count as one. A floor may have several
rows. The first table is the ground; each of the others builds on it alone. A file may include its own header, files
under the same path, files on a lower floor of its table, and the ground. Units must not include each other in a circle,
and every source must have a floor. Prints a line for each include that is wrong; exit status 1 if there is any.
"""

import pathlib
import re
import sys

PAGE = "doc/code-map.md"
CHECKED = ("catalogue", "include", "platform", "ini", "Diagnostics", "crashHandler", "tools")
INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<(Diagnostics/[^>]+)>)', re.M)


def floors_of(page):
    """{path: (house, floor, group)}. Each table of floors is a house; house 0 is the ground. Paths that count as one share
    a group."""
    floors, house, group, inside = {}, -1, 0, False
    for line in page.splitlines():
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        if not line.startswith("|"):
            inside = False
        elif cells[0] == "floor":
            inside, house = True, house + 1
        elif inside and cells[0].isdigit():
            for before, path in re.findall(r"([^`]*)`([^`]+)`", cells[1]):
                group += before != " with "
                floors[path] = (house, int(cells[0]), group)
    return floors


def is_below(target, place):
    """Whether code at `target` may be included from `place`."""
    return target[0] == 0 < place[0] or (target[0] == place[0] and target[1] < place[1])


def unit_of(path):
    return re.sub(r"\.(h|cpp|c)$", "", path)


def place_of(path, floors):
    """The longest path of the page that a file is under, or None."""
    unit = unit_of(path)
    fits = [each for each in floors if unit == each or path == each or (each.endswith("/") and path.startswith(each))]
    return max(fits, key=len, default=None)


def circles(edges):
    """Units that reach themselves, each circle once."""
    found, done = [], set()

    def walk(unit, trail):
        if unit in trail:
            circle = trail[trail.index(unit):]
            if sorted(circle) not in [sorted(known) for known in found]:
                found.append(circle)
        elif unit not in done:
            for other in sorted(edges.get(unit, ())):
                walk(other, trail + [unit])
            done.add(unit)

    for unit in sorted(edges):
        walk(unit, [])
    return found


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
    floors = floors_of((root / PAGE).read_text(encoding="utf-8"))
    files = sorted(str(path.relative_to(root)) for folder in CHECKED for path in (root / folder).rglob("*")
                   if path.suffix in (".h", ".cpp", ".c"))
    problems, edges = [], {}
    for file in files:
        place = place_of(file, floors)
        if place is None:
            problems.append(f"{file}: has no floor in {PAGE}")
            continue
        for quoted, public in INCLUDE.findall((root / file).read_text(encoding="utf-8")):
            other = quoted or "include/" + public
            if not (root / other).is_file():
                continue  # written by the build
            if unit_of(other) == unit_of(file) or pathlib.Path(other).stem == pathlib.Path(file).stem:
                continue
            edges.setdefault(unit_of(file), set()).add(unit_of(other))
            target = place_of(other, floors)
            if target is not None and floors[target] != floors[place] and not is_below(floors[target], floors[place]):
                problems.append(f"{file}: includes {other}, which is not below it")
    problems += ["a circle: " + " includes ".join(circle + circle[:1]) for circle in circles(edges)]
    print("\n".join(problems), end="\n" if problems else "")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
