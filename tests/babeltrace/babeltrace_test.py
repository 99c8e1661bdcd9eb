#!/usr/bin/env python3
"""What babeltrace2 makes of devices' folders: babeltrace_test.py PLUGINS NIMA-POST DEVICE-HOST TEXT.

PLUGINS is the folder of the plugin; the device is the example one, which works on the lines of TEXT and dies.
"""

import collections
import datetime
import decimal
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
from devices import SECOND, calibration, line, write  # noqa: E402

PLUGINS, POST, HOST, TEXT = (os.path.abspath(each) for each in sys.argv[1:])
EVENT = re.compile(r"^\[(-?\d+)\.(\d{9})\] (.*?)(text|binary|ring|record|crash): (\{ .*earlier_ns = (-?\d+), "
                   r"later_ns = (-?\d+) \}, .*)$")
Event = collections.namedtuple("Event", "time trace kind fields earlier later")


def run(*words, codes=(0,)):
    environment = {**os.environ, "TZ": "UTC", "LC_ALL": "C.UTF-8", "BABELTRACE_PLUGIN_PATH": PLUGINS}
    done = subprocess.run(words, capture_output=True, text=True, check=False, env=environment, errors="replace")
    assert done.returncode in codes, f"{words}: {done.returncode}\n{done.stdout[-2000:]}{done.stderr}"
    return done.stdout if done.returncode == 0 else done.stderr


def events(*words):
    """What babeltrace2 prints, in its order."""
    found = []
    printed = run("babeltrace2", "--clock-seconds", "--clock-gmt", "--no-delta", "--fields=trace", *words)
    for text in printed.splitlines():
        match = EVENT.match(text)
        assert match, text
        seconds, nanoseconds, trace, kind, fields, earlier, later = match.groups()
        sign = -1 if seconds.startswith("-") else 1
        found.append(Event(int(seconds) * SECOND + sign * int(nanoseconds), trace.strip(), kind, fields, int(earlier),
                           int(later)))
    assert found and all(a.time <= b.time for a, b in zip(found, found[1:])), words
    return found


def timeline(folder):
    """The kind, time and bounds in seconds of everything in a folder, as nima-post has them."""
    # A process may have been killed in the middle of a line.
    run(POST, "timeline", folder, "-o", "timeline.json", codes=(0, 1))
    trace = json.loads(pathlib.Path("timeline.json").read_text(encoding="utf-8"), parse_float=decimal.Decimal)
    moment, nanoseconds = trace["otherData"]["origin"].split(".")
    origin = int(datetime.datetime.fromisoformat(moment + "+00:00").timestamp()) * SECOND + int(nanoseconds)
    told = []
    for event in trace["traceEvents"]:
        if event["ph"] == "i":
            known = "unknown" not in event["args"]["time"]
            bounds = [event["args"].get(name, 0 if known else "unbounded")
                      for name in ("earlier_by_seconds", "later_by_seconds")]
            told.append((event["cat"], origin + int(event["ts"] * 1000),
                         *(-1 if bound == "unbounded" else bound for bound in bounds)))
    return sorted(told)


def a_device():
    """The example device: all kinds of files, and a crash."""
    os.mkdir("unit")
    subprocess.run([HOST, "--input", TEXT, "--die", "fatal"], cwd="unit", capture_output=True, check=True,
                   env={**os.environ, "TZ": "UTC"})
    found = events("unit")
    assert {event.kind for event in found} >= {"text", "binary", "ring", "crash"}
    assert sorted((event.kind, event.time, event.earlier // SECOND if event.earlier >= 0 else -1,
                   event.later // SECOND if event.later >= 0 else -1) for event in found) == timeline("unit")

    # The trimmer seeks, which a source has to declare.
    begin, end = found[len(found) // 3].time, found[len(found) // 2].time
    moments = [f"--{name}={time // SECOND}.{time % SECOND:09}" for name, time in (("begin", begin), ("end", end))]
    assert events("--clock-gmt", *moments, "unit") == [event for event in found if begin <= event.time <= end]

    run("babeltrace2", "unit", "--component=sink.ctf.fs", "--params=path=\"ctf\"")
    assert sorted(events("ctf")) == sorted(found)

    run("tar", "-czf", "unit.tar.gz", "unit")
    assert events("unit.tar.gz") == found


def clocks_and_processes():
    """A process whose clock was set back, before a roll of its log, and one that came later."""
    boot = 1_000 * SECOND
    write("set/device.log.1", calibration(boot, "1024163100") + line(boot + 10**6, "<WARN> <A> one") +
          line(boot + 300 * 10**6, "<WARN> <A> two, and so much that the log was full after it" + 80 * "."))
    write("set/device.log", calibration(boot + 340 * 10**6, "1024153000", 21_000) +
          line(boot + 341 * 10**6, "<WARN> <A> three") +
          calibration(boot + 5 * SECOND, "1024153009", 1_000) + line(boot + 6 * SECOND, "<WARN> <B> four", 2))
    traces = collections.defaultdict(list)
    for event in events("set"):
        traces[event.trace].append(re.search(r'text = "(\w+)', event.fields).group(1))
    assert traces == {"set process 1 clock 1": ["Calibration", "one", "two"],
                      "set process 1 clock 2": ["Calibration", "three"],
                      "set process 2": ["Calibration", "four"]}, traces
    # What is only probable stands in the traces' environment.
    run("babeltrace2", "set", "--component=sink.ctf.fs", "--params=path=\"set-ctf\"")
    doubts = {re.search(r'process = (\d+)', text).group(1): re.findall(r'(boot_doubt|doubts) = "([^"]*)"', text)
              for text in (path.read_bytes().decode(errors="replace") for path in pathlib.Path("set-ctf").rglob("metadata"))}
    assert doubts == {"1": [("boot_doubt", "perhaps"), ("doubts", "boot lines")],
                      "2": [("boot_doubt", "perhaps"), ("doubts", "boot")]}, doubts


def dates():
    """Folders without a date are apart from those that have one, unless they are forced together; and time zones."""
    write("undated/device.log", line(SECOND, "<WARN> <A> one") + line(SECOND + 5, "<WARN> <A> two"))
    assert [event.time for event in events("undated")] == [0, 5]
    refused = run("babeltrace2", "undated", "set", codes=(1,))
    assert "clock class" in refused.lower() and "force-absolute=yes makes it merge" in refused, refused
    forced = ["--component=source.nima.folder", '--params=inputs=["undated"],force-absolute=yes']
    assert [event.time for event in events(*forced, "set")[:3]] == [0, 5, events("set")[0].time]

    local = events("set")
    west = events("--component=source.nima.folder", '--params=inputs=["set"],utc-offset=-3600')
    assert [event.time - 3600 * SECOND for event in west] == [event.time for event in local]
    # The manifest of a collection knows the zone.
    write("set/manifest.json", json.dumps({
        "manifest": 1, "tool": {"name": "nima-ctl", "version": "1"}, "time_zone": {"utc_offset_seconds": 7200},
        "clocks": {"wall_ns": 1795540000 * SECOND, "monotonic_ns": 2000 * SECOND, "counter": 2000,
                   "uptime_ns": 2000 * SECOND}}))
    assert [event.time + 7200 * SECOND for event in events("set")] == [event.time for event in local]


def refusals():
    os.mkdir("empty")
    for parameters, reason in (('inputs=["empty"]', "empty: nothing in it"), ("inputs=7", "not an array"),
                               ('inputs=["set"],force=yes', "force: no such parameter"), ("inputs=[]", "no folder is named")):
        refused = run("babeltrace2", "--component=source.nima.folder", "--params=" + parameters, codes=(1,))
        assert reason in refused, refused


with tempfile.TemporaryDirectory(prefix="nima-babeltrace-") as work:
    os.chdir(work)
    a_device()
    clocks_and_processes()
    dates()
    refusals()
    os.chdir("/")
