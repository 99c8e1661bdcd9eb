#!/usr/bin/env python3
"""Sample pages, to look at and to test with.

    sample_page.py PAGE_PROGRAM {crash|calm|set_back|empty|hostile|large} FILE.html

The page is built into the program, which is report_page_parts in the build folder.
"""

import json
import pathlib
import random
import subprocess
import sys

sys.dont_write_bytecode = True
import page_rows  # noqa: E402

LEVELS = ["CRASH", "FATAL", "ERROR", "WARN", "PERF", "INFO", "DEBUG", "CAL", "0", "1", "2", "3", ""]
SECOND = 1_000_000_000
ORIGIN_MS = 1795532966046  # 2026-11-24 15:09:26.046
ORIGIN_NS = 886_123
MARKS = [["=", "exact"], ["+", "perhaps later by less than a second"], ["~", "perhaps later by whole seconds"], ["?", "assumed"],
         ["<", "of an overwritten round"]]
HOSTILE = [
    "<script>window.broken = true</script>",
    "</script><img src=x onerror=\"window.broken = true\">",
    "<!-- <script> \" ' ` \\ & &lt; &amp;",
    "nul \0 bell \a escape \x1b[31m delete \x7f next line \x85",
    "separators \u2028 and \u2029, direction \u202e turned",
    "two\nlines\tand a tab\r",
    "surrogates \U0001f525 and wide \u6f22\u5b57",
    "long " + "x" * 1000,
    "",
]


def assemble_packed(data, packed, program):
    """The whole page, as the program makes it that has the page built in."""
    text = json.dumps(data, ensure_ascii=False, separators=(",", ":")).replace("<", "\\u003c")
    page = f'<script type="application/json" id="data">{text}</script>\n{packed}'
    return subprocess.run([program], input=page.encode(), stdout=subprocess.PIPE, check=True).stdout


def assemble(data, program):
    return assemble_packed({**data, "rows": len(data["rows"])}, page_rows.pack(data["rows"]), program)


def rows_of_a_run(count, seconds, randomness):
    messages = {
        "Engine": ["sheet %d leaves tray 2", "fuser at %d C", "transfer roller current %d uA"],
        "Panel": ["screen %d shown", "key 0x%x pressed"],
        "Scanner": ["line %d read", "lamp warm after %d ms", "jam at %d"],
        "Network": ["job %d accepted from 10.0.0.12", "SNMP poll %d"],
    }
    weights = [("DEBUG", 50), ("INFO", 34), ("PERF", 8), ("WARN", 6), ("ERROR", 2)]
    names = list(messages) + ["Trace", "component 2", "component 5", "PrintEngine", "EngineLink"]
    rows = []
    for index in range(count):
        t = int((index + randomness.random()) / count * seconds * SECOND)
        thread = randomness.choice([0, 0, 0, 1, 2, 2, 3])
        kind = randomness.choices([0, 1, 2], [5, 3, 2])[0]
        sure = 2 if index < count // 10 else 0
        if kind == 0:
            name = list(messages)[thread]
            level = randomness.choices([w[0] for w in weights], [w[1] for w in weights])[0]
            text = randomness.choice(messages[name]) % randomness.randrange(400)
            rows.append([t, sure, 0, thread, LEVELS.index(level), names.index(name), text, []])
        elif kind == 1:
            event = randomness.randrange(1, 9)
            component = randomness.choice(["component 2", "component 5"])
            words = [hex(randomness.randrange(1 << 16)) for _ in range(randomness.randrange(4))]
            rows.append([t, 0, 1, thread, LEVELS.index(str(randomness.choice([0, 0, 1]))), names.index(component),
                         " ".join([f"event {event}", *words]), words])
        else:
            ring = randomness.choice(["PrintEngine", "EngineLink"])
            words = [hex(randomness.randrange(1 << 8)), hex(randomness.randrange(1 << 12)), "0x0", "0x0"]
            rows.append([t, 2, 2, thread, LEVELS.index(""), names.index(ring),
                         " ".join([f"code {randomness.randrange(20)}", *words]), words])
    return names, rows


def findings(*sentences):
    return [{"code": "a-code", "sentence": sentence} for sentence in sentences]


def base(folder, names, rows):
    return {
        "tool": "nima-post 1.0.0", "folder": folder, "generated": "2026-11-24T18:00:00Z", "crashes": [],
        "clock": {"wall": True, "origin": "2026-11-24T15:09:26.046886123", "originMs": ORIGIN_MS, "originNs": ORIGIN_NS,
                  "marks": MARKS, "statement": findings(
            "The counters of device.log and SysTrace.bin count nanoseconds within a second; whole seconds were recovered from "
            "their order and from 3 calibration lines.",
            "If a thread was silent for more than a second, its times may be later by whole seconds (marked ~).",
            "The rings hold no date. Their newest record was placed at the moment of the crash (marked ?).")},
        "files": [
            {"name": "device.log", "kind": "text log", "bytes": 1048533, "state": "ok", "notes": []},
            {"name": "SysTrace.bin", "kind": "binary trace dump", "bytes": 191088, "state": "damaged", "notes": findings(
                "3 records are incomplete: their writers were killed.", "17 entries at the start belong to no record.")},
            {"name": "System Ring Buffers", "kind": "ring segment", "bytes": 503807, "state": "ok", "notes": findings(
                "Ring EngineLink has probably wrapped; where its oldest record is, is not recorded.")},
            {"name": "core.1234", "kind": "unknown", "bytes": 88281088, "state": "skipped", "notes": findings(
                "Not a file of this library.")},
            {"name": "device.log.1", "kind": "text log", "bytes": 0, "state": "unusable", "notes": findings("The file is empty.")},
        ],
        "rings": [
            {"name": "PrintEngine", "entries": 512, "used": 210, "wrapped": "no", "oldest": 2 * SECOND, "newest": 31 * SECOND,
             "sure": 3},
            {"name": "EngineLink", "entries": 2048, "used": 2048, "wrapped": "perhaps", "oldest": None,
             "newest": 31 * SECOND},
            {"name": "Panel", "entries": 256, "used": 12, "wrapped": "no", "oldest": 3 * SECOND, "newest": 5 * SECOND},
            {"name": "Copier", "entries": 512, "used": 0, "wrapped": "no", "oldest": None, "newest": None},
            {"name": "Facsimile", "entries": 512, "used": 0, "wrapped": "no", "oldest": None, "newest": None},
        ],
        "threads": [{"id": "0x979fe6c0", "name": "Engine"}, {"id": "0x971fd6c0", "name": "Panel"},
                    {"id": "0x969fc6c0", "name": "Scanner"}, {"id": "0xb7865740", "name": ""}],
        "sources": ["device.log", "SysTrace.bin", "System Ring Buffers"], "sourceKinds": ["log", "systrace", "ring"],
        "levels": LEVELS, "names": names,
        "rows": rows, "omitted": {"rows": 0, "statement": ""},
    }


def failure(moment):
    return {
        "title": "Assertion through a fatal-error call",
        "summary": [["Crash type", "2, an assertion through DeviceFatalError"], ["File", "/src/device/ways_to_die.cpp"],
                    ["Line", "24"], ["Error code", "0x0031AC05"], ["Fault address", "0x0"], ["Exception code", "0x0"],
                    ["Boot cycle", "42"], ["Crash date", "2026-11-24 15:09:57"]],
        "exception": [["Address", "0x94b84000"], ["Exception", "0xc0000005"], ["Flags", "0x00000000"], ["P00", "0x00000000"]],
        "extra": ["0x11", "0xffffffff"],
        "stacks": [
            {"file": "stacktrace1234-1.txt", "header": ["ways_to_die.cpp, line 54: Message: [the fuser is on fire]",
                                                        "ways_to_die.cpp, line 54: Code: 3255301, 0x0031ac05"],
             "frames": ["0x7fe142d026c8: (HandleFatalCrash+0x1d8)",
                        "0x563f4c87a62d: (WatchOver(std::function<void ()> const&)+0x11d)",
                        "0x563f4c87a6ff: (main+0x6f)", "0x7fe1428461c9: (__libc_start_call_main+0x79)"]},
            {"file": "stacktrace1234-2.txt", "header": [], "frames": ["0x7fe14285b05f: (__sigaction+0x40)",
                                                                      "0x7fe1428a9e2b: (pthread_key_delete+0x14b)"]}],
        "activeRings": [{"ring": "PrintEngine", "newest": moment - 400_000, "sure": 3, "events": 210},
                        {"ring": "EngineLink", "newest": "15:09:57.100", "events": 2048}],
        "time": moment, "sure": 0, "row": None, "boot": 0, "process": 0, "after": "boot cycle",
        "processWords": "probably process 7, boot 2",
    }


def earlier_failure(moment):
    """A process that died of a signal."""
    return {
        "title": "Fatal signal", "summary": [["process id", "977"], ["from", "stacktrace977-1.txt"]], "exception": None, "extra": [],
        "stacks": [{"file": "stacktrace977-1.txt", "header": [], "frames": ["0x1: (signalHandler+0x1)", "0x2: (Feed::Run()+0x8)"],
                    "resolved": [[], ["Feed::Jam(int) at /src/feed.cpp:7, inlined in", "Feed::Run() at <b>feed.cpp:20"]],
                    "statement": ["feed was at 0x0, by 1 of 1 of its frames that have a name."]}],
        "activeRings": [], "time": moment, "sure": 3,
    }


def crash():
    names, rows = rows_of_a_run(3000, 31, random.Random(1))
    moment = 31 * SECOND
    rows.insert(0, [0, 0, 0, -1, LEVELS.index("CAL"), names.index("Trace"), "Calibration freq=1000000", []])
    rows.append([moment - 150_000, 0, 0, 0, LEVELS.index("FATAL"), 0, "DeviceFatalError ErrorCode: 0x0031AC05", ["0x31ac05"]])
    rows.append([moment - 90_000, 0, 1, 0, LEVELS.index("0"), names.index("component 2"), "event 0x1fc0eacf", ["0x31ac05"]])
    rows[5][1] = 5
    rows.append([moment + 200_000_000, 0, 0, 3, LEVELS.index("WARN"), 3, "recovery begins", []])
    page = base("printer-17", names, rows)
    earlier, latest = earlier_failure(11 * SECOND), failure(moment)
    for each in (earlier, latest):
        rows.append([each["time"], each["sure"], 0, 0 if each is latest else -1, LEVELS.index("CRASH"), -1, each["title"], []])
    rows.sort(key=lambda row: row[0])
    for index, row in enumerate(rows):
        if row[4] == LEVELS.index("CRASH"):
            (earlier if row[0] == earlier["time"] else latest)["row"] = index
    page["crashes"] = [earlier, latest]
    return page


def calm():
    names, rows = rows_of_a_run(40, 5, random.Random(2))
    for row in rows[20:]:
        row += [1, 1] if row[3] in (0, 1) else [2, 0] if row[3] == 2 else [0, 0]
    rows.append([None, 2, 0, 1, LEVELS.index("INFO"), 1, "a line without a time", []])
    page = base("bench-3", names, rows)
    page["clock"] = {"wall": False, "origin": None, "originMs": None, "originNs": None, "marks": MARKS, "statement": findings(
        "No calibration line was found: times are seconds since the first record.")}
    page["boots"] = [{"boot": 1, "first": 0, "last": 3 * SECOND, "processes": [1], "proof": "the first in its log"}]
    page["processes"] = [
        {"words": "process 1, boot 1", "boot": 1, "first": 0, "last": 3 * SECOND, "threads": 2, "proof": "the first in its log",
         "probable": {"lines": False, "records": True}},
        {"words": "process 2, boot unknown", "boot": 0, "first": None, "last": None, "threads": 1, "proof": "no text log"}]
    for thread, process in zip(page["threads"], (1, 1, 2, None)):
        thread["process"] = process
    page["omitted"] = {"rows": 1200, "statement": "1,200 older records were left out; --all keeps them."}
    return page


def set_back():
    """Two boots, the second with earlier dates than the first; nothing tells the processes."""
    names, rows = rows_of_a_run(60, 10, random.Random(4))
    _, later = rows_of_a_run(50, 8, random.Random(5))
    boots = [[row[:8] + [0, 1] for row in rows], [[row[0] - 100 * SECOND, *row[1:8], 0, 2] for row in later]]
    page = base("clock-set-back", names, boots[0] + boots[1])
    page["boots"] = [{"boot": number + 1, "first": boot[0][0], "last": boot[-1][0], "processes": [],
                      "proof": "another boot, or the clock was set back"} for number, boot in enumerate(boots)]
    return page


def empty():
    page = base("nothing", [], [])
    page.update({"files": [], "rings": [], "threads": [], "sources": [], "sourceKinds": []})
    page["clock"] = {"wall": False, "origin": None, "originMs": None, "statement": []}
    return page


def hostile():
    rows = [[index * SECOND, index % 3, 0, 0, index % len(LEVELS), 0, text, ["0xffffffff", hex(index)]]
            for index, text in enumerate(HOSTILE)]
    page = base(HOSTILE[1], [HOSTILE[0]], rows)
    page.update({"threads": [{"id": "0x1", "name": HOSTILE[1]}], "sources": [HOSTILE[2]], "sourceKinds": ["log"],
                 "crashes": [{"title": HOSTILE[0], "summary": [[text, text] for text in HOSTILE], "exception": [[HOSTILE[3]] * 2],
                              "extra": [HOSTILE[1]], "time": 3 * SECOND, "sure": 0, "activeRings": [
                                  {"ring": HOSTILE[0], "newest": HOSTILE[1], "events": 1}],
                              "stacks": [{"file": HOSTILE[1], "header": [HOSTILE[2]], "frames": HOSTILE}]}],
                 "files": [{"name": HOSTILE[0], "kind": HOSTILE[1], "bytes": 1, "state": HOSTILE[2], "notes": findings(*HOSTILE)}],
                 "rings": [{"name": HOSTILE[1], "entries": 2, "used": 1, "wrapped": HOSTILE[0], "oldest": 0, "newest": 1}]})
    page["clock"]["statement"] = findings(*HOSTILE)
    page["omitted"] = {"rows": 1, "statement": HOSTILE[1]}
    return page


def large():
    names, rows = rows_of_a_run(200_000, 3600, random.Random(3))
    rows[123_456][6] = "the needle in the haystack"
    page = base("week-48", names, rows)
    page["crashes"] = [failure(3600 * SECOND)]
    for index in range(20):
        page["threads"].append({"id": f"0x{0x10000000 + index:08x}", "name": f"Worker {index}"})
    for index, row in enumerate(rows):
        if index % 3 == 0:
            row[3] = 4 + index % 20
    return page


PAGES = {"crash": crash, "calm": calm, "set_back": set_back, "empty": empty, "hostile": hostile, "large": large}


def main():
    if len(sys.argv) != 4 or sys.argv[2] not in PAGES:
        sys.exit(__doc__)
    program, name, output = sys.argv[1:]
    pathlib.Path(output).write_bytes(assemble(PAGES[name](), program))


if __name__ == "__main__":
    main()
