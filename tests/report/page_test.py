#!/usr/bin/env python3
"""What the page of `nima-post report` holds: page_test.py NIMA-POST SIMULATOR [EMULATOR...]."""

import datetime
import json
import os
import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.dont_write_bytecode = True
sys.path[:0] = [str(HERE), str(HERE.parent / "support")]
import page_rows  # noqa: E402
from devices import (MILLISECOND, SECOND, Program, calibration, crash_log, line, ring_dump, run, two_boots,  # noqa: E402
                     write)

post, simulator = (Program(path, sys.argv[3:]) for path in sys.argv[1:3])
LONGEST = 2000
MARKS = {"exact": "=", "cut": "+", "open": "~", "assumed": "?"}
SET_BACK = "1024161040"


def told_by_show(*selection):
    """What `show` and the page both tell of an event."""
    told = []
    for event in json.loads(post("show", "unit", *selection, "--json", codes=(0, 1)))["events"]:
        level = event["level"].removeprefix("level ") if event["kind"] == "binary" else event["level"]
        text = event["text"] if len(event["text"]) <= LONGEST else event["text"][:LONGEST] + " ..."
        mark = MARKS[event["certainty"]] + ("<" if event.get("overwritten") else "")
        told.append([event["time"], mark, event["file"], event["thread"], level, event["name"],
                     [hex(word) for word in event.get("arguments", [])], event["process"] or 0, event["boot"] or 0, text])
    return told


def told_by_page(*selection):
    """The page's data, and what it tells of each row."""
    post("report", "unit", "-o", "page.html", *selection, codes=(0, 1))
    page = page_rows.data_of(pathlib.Path("page.html"))
    origin = page["clock"]["originMs"] * 1_000_000 + page["clock"]["originNs"]

    def moment(time):
        date = datetime.datetime.fromtimestamp((origin + time) // SECOND, datetime.timezone.utc)
        return f"{date:%Y-%m-%dT%H:%M:%S}.{(origin + time) % SECOND:09}"

    def entry(entries, number):
        return None if number < 0 else entries[number]

    told = []
    for time, mark, source, thread, level, name, text, words, process, boot in page["rows"]:
        signs = [sign for sign, _ in page["clock"]["marks"]]
        told.append([None if time is None else moment(time), signs[mark % 4] + signs[4] * (mark // 4), page["sources"][source],
                     entry([each["id"] for each in page["threads"]], thread), entry(page["levels"], level),
                     entry(page["names"], name), words, process, boot, text])
    return page, told


def holds_the_rows_that_show_lists():
    simulator("--fleet", "fleet", "--folders", "1", "--bytes", "8000")
    os.rename("fleet/unit-0000", "unit")
    write("unit/rings.txt", ring_dump("Panel", [(9 * SECOND + i, 0x111, i, 0xFFFFFFFF, 0, 4) for i in range(5)]))
    everything = told_by_show()
    middle, end = everything[len(everything) // 2][0], everything[-1][0]
    assert {"device.log", "SysTrace Buffer", "rings.txt"} <= {row[2] for row in everything}
    for selection in ([], ["--boot", "1"], ["--process", "2"], ["--grep", "page \\d"], ["--not", "ENGINE", "-i"],
                      ["--since", middle, "--until", end], ["--around", "crash", "--within", "1h", "--grep", "code|event"]):
        page, told = told_by_page(*selection)
        assert told == told_by_show(*selection) and told, selection
        assert page["omitted"] == {"rows": 0, "statement": ""}
    post("report", "unit", "-o", "none.html", "--boot", "99", codes=(2,))


def is_not_broken_by_what_a_device_says():
    hostile = [b"</script><script>window.broken = true</script>", b"<!-- <script> \" ' ` \\ & &lt;", b"a\0b",
               "separators \u2028 and \u2029".encode(), "\ufeff of byte order".encode(), b"not UTF-8: \xff\xc3( \xf0\x9f",
               b"half a pair \xed\xa0\xbd, a whole one \xf0\x9f\x94\xa5", "\u6f22\u5b57".encode(), b"x" * 5000, b""]
    lines = [line(100 * MILLISECOND + i, "<INFO> <Engine> ").encode()[:-2] + text + b"\r\n" for i, text in enumerate(hostile)]
    write("unit/device.log", calibration(54 * MILLISECOND, "1024163100").encode() + b"".join(lines) +
          line(200 * MILLISECOND, "<INFO> <</script>> named").encode())
    assert told_by_page()[1] == told_by_show()
    page = pathlib.Path("page.html").read_bytes()
    assert not any(text in page for text in (b"window.broken", b"\0", b"</script>>"))


def keeps_the_newest_rows_in_the_order_of_boots():
    lines = 9_500
    write("unit/device.log", calibration(5 * SECOND, "1024163100") +
          "".join(line(5 * SECOND + (i + 1) * 1000, f"<INFO> <Engine> line {i}") for i in range(lines)) +
          calibration(3 * SECOND, SET_BACK) + line(3 * SECOND + MILLISECOND, "<INFO> <Engine> of the second boot"))
    everything = told_by_show()
    assert len(everything) == lines + 3
    # The rows stand in blocks of 8192.
    for most in (1, 8192, 9000):
        page, told = told_by_page("--rows", str(most))
        assert told == everything[-most:], most
        assert page["omitted"]["rows"] == len(everything) - most and page["omitted"]["statement"]


def marks_what_is_of_an_overwritten_round():
    def log_round(time, lines, last):
        return (calibration(5 * SECOND + time, "1024163100", time // 1000 % 65536) +
                line(5 * SECOND + time - 3 * MILLISECOND, "<WARN> <A> filled") +
                "".join(line(5 * SECOND + time + i * 7 * MILLISECOND, "<WARN> <A> line", 1 + i % 3 if i + 3 < lines else last)
                        for i in range(1, lines + 1)))

    newer, older = log_round(774 * MILLISECOND, 40, 2), log_round(54 * MILLISECOND, 60, 3)
    write("unit/device.log", newer + older[len(newer):])
    _, told = told_by_page()
    assert told == told_by_show() and any(row[1].endswith("<") for row in told)


def lists_every_crash_boot_and_process_with_what_tells():
    write("unit/device.log", two_boots(SET_BACK))
    for name, second in (("crash.txt", "02"), ("crash.txt.1", "01")):
        write(f"unit/{name}", crash_log(5 * SECOND + 400 * MILLISECOND, f"10241631{second}"))
    page, told = told_by_page()
    first, second = page["boots"]
    assert second["processes"] == [2] and "another boot" in second["proof"] and second["last"] < first["first"]
    assert [process["threads"] for process in page["processes"]] == [2, 2]
    assert len(page["crashes"]) == 2
    for crash in page["crashes"]:
        assert page["rows"][crash["row"]][0] == crash["time"]
        assert (told[crash["row"]][4], told[crash["row"]][-1]) == ("CRASH", crash["title"])
    # A crash that is not among the rows is told all the same.
    fewer, _ = told_by_page("--rows", "1", "--grep", "warm")
    assert [crash["row"] for crash in fewer["crashes"]] == [None, None]


run(holds_the_rows_that_show_lists, is_not_broken_by_what_a_device_says,
    keeps_the_newest_rows_in_the_order_of_boots, marks_what_is_of_an_overwritten_round,
    lists_every_crash_boot_and_process_with_what_tells)
