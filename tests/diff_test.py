#!/usr/bin/env python3
"""How nima-post compares two devices, or two crashes: diff_test.py NIMA-POST [EMULATOR...]."""

import json
import pathlib
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "support"))
from devices import MILLISECOND, SECOND, Program, crash_log, line, run, write  # noqa: E402

post = Program(sys.argv[1], sys.argv[2:])


def said(milliseconds, text):
    return line(100 * SECOND + milliseconds * MILLISECOND, text)


def pages(per_second, more=()):
    """Pages for ten seconds, and more lines at their times."""
    lines = [(i * 1000 // per_second, f"<INFO> <Scanner> page {i} of 0x1f, 3.5 mm") for i in range(10 * per_second)]
    return "".join(said(*each) for each in sorted([*lines, *more]))


WARNINGS = [(2999, "<WARN> <Scanner> early"), (7999, "<WARN> <Scanner> late")]


def told(entries):
    """"Scanner/lamp # is cold 3, Fax/* 2": a name's whole is a star."""
    return ", ".join(f"{each['name']}/{each['message'] or '*'}" + (f" {each['count']}" if "count" in each else "")
                     for each in entries)


def compared(*options):
    return json.loads(post("diff", *options, "--json"))


def what_only_one_says_and_other_rates_are_told():
    write("a/device.log", pages(10, [(9950, "<WARN> <Scanner> lamp 12 is cold"), (9951, "<WARN> <Scanner> lamp 7 is cold"),
                                     (9952, "<INFO> <Fax> dials +493012345"), (9953, "<INFO> <Fax> busy"),
                                     (9954, "<INFO> <Scanner> id 3f2a at -5")]))
    write("b/device.log", pages(25, [(9970, "<ERROR> <Scanner> belt slipped"), (9971, "<INFO> <Scanner> id 9bc1 at 77")]))
    both = compared("a", "b")
    assert told(both["only_first"]) == "Fax/* 2, Scanner/lamp # is cold 2", both
    assert told(both["only_second"]) == "Scanner/belt slipped 1", both
    assert told(both["rates"]) == "Scanner/page # of #, # mm, Scanner/*", both
    assert abs(both["rates"][0]["times"] - 2.5) < 0.05 and abs(both["first"]["seconds"] - 9.95) < 0.05, both
    text = post("diff", "a", "b")
    assert "2x  tracer Fax" in text and "2.5 times as often)  INFO  Scanner  page #" in text, text
    assert "1/2.5 as often" in post("diff", "b", "a")
    assert "no tracer, event or message is only in one" in post("diff", "a", "a")
    write("b/device.log", pages(19))
    assert compared("a", "b")["rates"] == []
    post("diff", "a", "nowhere", codes=(2,))


def crashes_are_compared_by_what_came_before_them():
    write("a/device.log", pages(10, WARNINGS))
    write("a/crash.txt.1", crash_log(103_500 * MILLISECOND, "1024163133"))
    write("a/crash.txt", crash_log(108_500 * MILLISECOND, "1024163138"))
    both = compared("a", "a", "--crash", "1", "--crash", "2", "--within", "2")
    assert told(both["only_first"]) == "Scanner/early 1" and told(both["only_second"]) == "Scanner/late 1", both
    assert both["first"]["records"] == 21, both
    post("diff", "a", "a", "--crash", "3", codes=(2,), says="a: no crash 3; it tells of 2 crashes")


def compares_only_what_is_selected():
    write("a/device.log", pages(10, WARNINGS))
    write("b/device.log", pages(10))
    for selection, only in (([], "Scanner/early 1, Scanner/late 1"), (["--until", "start+5s"], "Scanner/early 1"),
                            (["--around", "end-2s", "--within", "1"], "Scanner/late 1"),
                            (["--not", "LATE", "-i"], "Scanner/early 1"), (["--grep", "page"], "")):
        assert told(compared("a", "b", *selection)["only_first"]) == only, selection
    post("diff", "a", "b", "--process", "9", codes=(2,))
    post("diff", "a", "b", "--crash", "1", "--around", "end", "--within", "1", codes=(2,))


run(what_only_one_says_and_other_rates_are_told,
    crashes_are_compared_by_what_came_before_them, compares_only_what_is_selected)
