#!/usr/bin/env python3
"""Joins sources for clang-tidy, which takes most of its time for the headers that each source includes.

    tidy_units.py join FOLDER
    tidy_units.py places < OUTPUT

join rewrites FOLDER/compile_commands.json: the sources of a folder of the tools that are compiled alike become one,
FOLDER/units/..., with the text of each after a line that names it. Included, they would not do: some checks look at the
main file alone. places replaces the places in such files by those in the sources.
"""

import json
import pathlib
import re
import sys

JOINED = ("tools/", "ctl/", "tests/simulator/")
NAME = "//// "
PLACE = re.compile(r"^(\S+/units/\S+\.cpp):(\d+)(?=:)")


def options_of(entry):
    return re.sub(r" -[oc] \S+", "", entry["command"])


def join(folder):
    root = pathlib.Path.cwd()
    listed = folder / "compile_commands.json"
    alone, joined = [], {}
    for entry in json.loads(listed.read_text()):
        source = pathlib.Path(entry["file"]).relative_to(root)
        if source.suffix == ".cpp" and str(source).startswith(JOINED):
            joined.setdefault((source.parent, options_of(entry)), []).append(entry)
        else:
            alone.append(entry)
    for number, ((parent, _), entries) in enumerate(joined.items()):
        unit = folder / "units" / parent / f"{number}.cpp"
        unit.parent.mkdir(parents=True, exist_ok=True)
        sources = [entry["file"] for entry in entries]
        unit.write_text("".join(f"{NAME}{source}\n{pathlib.Path(source).read_text()}" for source in sources))
        alone.append({**entries[0], "file": str(unit), "command": entries[0]["command"].replace(sources[0], str(unit))})
    listed.write_text(json.dumps(alone, indent=2))


def source_place(match):
    lines = pathlib.Path(match[1]).read_text().splitlines()[: int(match[2])]
    start = max(number for number, line in enumerate(lines) if line.startswith(NAME))
    return f"{lines[start].removeprefix(NAME)}:{len(lines) - start - 1}"


def main():
    if sys.argv[1:] == ["places"]:
        for line in sys.stdin:
            print(PLACE.sub(source_place, line), end="")
    elif len(sys.argv) == 3 and sys.argv[1] == "join":
        join(pathlib.Path(sys.argv[2]).resolve())
    else:
        sys.exit(__doc__)


main()
