#!/usr/bin/env python3
"""Checks that what the linker joins points downward, as the floors in doc/code-map.md say.

    linkage.py BUILD [NM]

Takes the objects of the library and of nima-post in a build, as its compile_commands.json lists them. An object may use
the symbols of objects under the same path of the tables or on a lower floor, and units may not use each other in a circle.
Includes alone do not show this: public headers declare functions whose definitions are on many floors. What several
objects define, such as an inline function, belongs to a header. Exit status 1, and a line for each use that is wrong.
"""

import collections
import json
import pathlib
import re
import subprocess
import sys

from floors import CHECKED, PAGE, circles, floors_of, is_below, place_of, unit_of

ROOT = pathlib.Path(__file__).resolve().parents[2]
# Its objects are declared by the units that they belong to, and built in one place for the sake of their order.
BUILT_AT_LOAD = "Diagnostics/LibraryState.cpp"
OBJECT = re.compile(r" -o (\S+\.o) ")


def objects_of(build):
    """{source: object}, both as paths that exist."""
    found = {}
    for entry in json.loads((build / "compile_commands.json").read_text(encoding="utf-8")):
        source = pathlib.Path(entry["file"])
        if not source.is_relative_to(ROOT) or source.relative_to(ROOT).parts[0] not in CHECKED:
            continue
        output = pathlib.Path(entry["directory"]) / OBJECT.search(entry["command"])[1]
        if not output.is_file():
            sys.exit(f"{output}: not built")
        found[str(source.relative_to(ROOT))] = output
    return found


def uses(objects, nm):
    """Triples of a source, another one that it uses, and the symbol."""
    sources = {str(output): source for source, output in objects.items()}
    listing = subprocess.run([nm, "--extern-only", "--print-file-name", "--format=posix", *sources], check=True, text=True,
                             stdout=subprocess.PIPE)
    owners, users = collections.defaultdict(list), []
    for line in listing.stdout.splitlines():
        output, symbol = line.split(": ", 1)
        name, kind = symbol.split()[:2]
        if kind in "Uwv":
            users.append((sources[output], name))
        else:
            owners[name].append(sources[output])
    for source, name in sorted(users):
        if len(owners[name]) == 1 and owners[name][0] != BUILT_AT_LOAD:
            yield source, owners[name][0], name


def main():
    build, nm = pathlib.Path(sys.argv[1]), sys.argv[2] if len(sys.argv) > 2 else "nm"
    floors = floors_of((ROOT / PAGE).read_text(encoding="utf-8"))
    problems, edges = [], {}
    for source, other, name in uses(objects_of(build), nm):
        place, target = place_of(source, floors), place_of(other, floors)
        edges.setdefault(unit_of(source), set()).add(unit_of(other))
        if None not in (place, target) and floors[target] != floors[place] and not is_below(floors[target], floors[place]):
            problems.append(f"{source}: uses {name} of {other}, which is not below it")
    problems += ["a circle: " + " uses ".join(circle + circle[:1]) for circle in circles(edges)]
    print("\n".join(problems), end="\n" if problems else "")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
