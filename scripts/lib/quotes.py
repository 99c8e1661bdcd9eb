#!/usr/bin/env python3
"""Checks that the pages quote the examples as they are.

    quotes.py [ROOT]

In a page, a block of code after the comment "<!-- from FILE -->" must stand in that file, line for line. Prints a line
for each that does not; exit status 1 if there is any, or if a page has no such quotation left.
"""

import pathlib
import re
import sys

QUOTATION = re.compile(r"^<!-- from (\S+) -->\n+```\w*\n(.*?)^```$", re.M | re.S)
MARK = re.compile(r"^<!-- from ", re.M)
PAGES = ("README.md", "doc/crash-log.md", "doc/rings.md", "doc/text-log.md")


def differs(root, name, text):
    """Why the quotation is wrong; empty if it is right."""
    file = root / name
    if not file.is_file():
        return f"there is no {name}"
    return "" if "\n" + text in "\n" + file.read_text() else f"not what {name} says: {text.splitlines()[0]}"


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".")
    wrong = []
    for page in PAGES:
        text = (root / page).read_text()
        quotations = QUOTATION.findall(text)
        if not quotations or len(quotations) != len(MARK.findall(text)):
            wrong.append(f"{page}: {len(quotations)} blocks of code for {len(MARK.findall(text))} marks")
        wrong += [f"{page}: {why}" for name, quoted in quotations if (why := differs(root, name, quoted))]
    print(*wrong, sep="\n", end="\n" if wrong else "")
    return bool(wrong)


sys.exit(main())
