#!/usr/bin/env python3
"""Checks that every preset that can be chosen sets every option of the project.

    presets.py [ROOT]

A build folder keeps the options that it was configured with. A preset that leaves one out would take over what somebody
set there before. Prints a line for each option that is missing; exit status 1 if there is any.
"""

import json
import pathlib
import re
import sys

OPTION = re.compile(r"^\s*option\((\w+)|^\s*set\((\w+) [^)]* CACHE ", re.M)


def settings(presets, name):
    """The variables that a preset sets, with those that it inherits."""
    preset = presets[name]
    parents = preset.get("inherits", [])
    found = set(preset.get("cacheVariables", {}))
    for parent in [parents] if isinstance(parents, str) else parents:
        found |= settings(presets, parent)
    return found


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".")
    options = {a or b for a, b in OPTION.findall((root / "CMakeLists.txt").read_text())} | {"CMAKE_BUILD_TYPE"}
    file = json.loads((root / "CMakePresets.json").read_text())
    presets = {preset["name"]: preset for preset in file["configurePresets"]}
    wrong = 0
    for name, preset in presets.items():
        if not preset.get("hidden"):
            for option in sorted(options - settings(presets, name)):
                print(f"CMakePresets.json: {name} does not set {option}")
                wrong = 1
    return wrong


sys.exit(main())
