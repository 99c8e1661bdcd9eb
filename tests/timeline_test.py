#!/usr/bin/env python3
"""The timeline as a Perfetto trace, taken apart here and held to the JSON form: timeline_test.py NIMA-POST [EMULATOR...]."""

import collections
import decimal
import gzip
import json
import pathlib
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "support"))
from devices import (MILLISECOND, SECOND, Program, calibration, crash_log, event_record, line, ring_dump,  # noqa: E402
                     run, two_boots, write)

post = Program(sys.argv[1], sys.argv[2:])
# 2026-11-24 16:31:00.054, which the first line of `two_boots` gives.
FIRST_DATE = 1_795_537_860_054_000_000


class Message:
    """A message of Protocol Buffers, taken apart: the values of each field."""

    def __init__(self, data):
        self.data, self.at, self.fields = data, 0, collections.defaultdict(list)
        while self.at < len(data):
            field, kind = divmod(self.number(), 8)
            assert kind in (0, 2), "an unknown type of field"
            self.fields[field].append(self.number() if kind == 0 else self.take(self.number()))

    def number(self):
        value = shift = 0
        while True:
            byte = self.take(1)[0]
            value |= (byte & 127) << shift
            shift += 7
            if byte < 128:
                return value

    def take(self, count):
        self.at += count
        assert self.at <= len(self.data), "a field reaches beyond its message"
        return self.data[self.at - count:self.at]

    def __contains__(self, field):
        return field in self.fields

    def one(self, field):
        value, = self.fields[field]
        return value

    def text(self, field):
        return self.one(field).decode()

    def part(self, field):
        return Message(self.one(field))

    def parts(self, field):
        return [Message(data) for data in self.fields.get(field, [])]


class Perfetto:
    """A trace in the words of the JSON form. What an event refers to must stand before it or in its packet."""

    def __init__(self, data):
        self.instants, self.counters, self.about = [], collections.defaultdict(list), {}
        self.tracks, self.processes, self.threads, self.texts = {}, set(), set(), collections.defaultdict(dict)
        self.begun = False
        for packet in Message(data).parts(1):
            self.read(packet)

    def read(self, packet):
        if 5 in packet:
            item = packet.part(5).part(2)
            self.about[item.text(1)] = json.loads(item.text(5)) if 5 in item else item.text(2)
        if 10 in packet:
            assert packet.one(10) == 1 and packet.one(13) == (2 if self.begun else 1), "the sequence's state is cleared once"
            self.begun = True
        for table in (1, 2, 3, 29) if 12 in packet else ():
            for text in packet.part(12).parts(table):
                assert text.one(1) not in self.texts[table], "a number twice"
                self.texts[table][text.one(1)] = text.text(2)
        if 60 in packet:
            self.describe(packet.part(60))
        if 11 in packet:
            self.event(packet.part(11), packet.one(8))

    def describe(self, track):
        number = track.one(1)
        assert number and number not in self.tracks, "a track's number is not its own"
        if 3 in track:
            assert track.part(3).one(1) not in self.processes, "a process twice"
            self.processes.add(track.part(3).one(1))
            self.tracks[number] = track.part(3).text(6), ""
            return
        process, _ = self.tracks[track.one(5)]
        if 4 in track:
            thread = track.part(4)
            assert thread.one(1) in self.processes and thread.one(2) not in self.threads, "a thread of no process, or twice"
            self.threads.add(thread.one(2))
        self.tracks[number] = process, thread.text(5) if 4 in track else track.text(2)

    def event(self, event, time):
        process, title = self.tracks[event.one(11)]
        if event.one(9) == 4:
            self.counters[title].append((time, event.one(30)))
            return
        assert event.one(9) == 3, "neither an instant nor a count"

        def interned(message, table, number, text):
            return self.texts[table][message.one(number)] if number in message else message.text(text)

        def value(each):
            return each.one(3) if 3 in each else hex(each.one(7)) if 7 in each else interned(each, 29, 17, 6)

        self.instants.append({
            "process": process, "thread": title, "time": time, "category": interned(event, 1, 3, 22),
            "name": interned(event, 2, 10, 23), "args": {interned(each, 3, 1, 10): value(each) for each in event.parts(4)}})


def chrome(trace, begin):
    """The events and counters of the JSON form, whose times count from `begin`."""
    events = trace["traceEvents"]
    threads = {(each["pid"], each["tid"]): each["args"]["name"] for each in events if each["name"] == "thread_name"}
    processes = {each["pid"]: each["args"]["name"] for each in events if each["name"] == "process_name"}
    instants, counters = [], collections.defaultdict(list)
    for event in events:
        if event["ph"] == "M":
            continue
        time = begin + int(event["ts"] * 1000)
        if event["ph"] == "C":
            for lane, count in event["args"].items():
                counters[f"{lane} per second"].append((time, count))
            continue
        arguments = {name: value for name, value in event["args"].items() if value is not None}
        is_crash = event["cat"] == "crash"
        if is_crash:
            arguments["file"] = arguments.pop("files")[-1]
        instants.append({"process": processes[event["pid"]],
                         "thread": "crashes" if is_crash else threads[event["pid"], event["tid"]], "time": time,
                         "category": event["cat"], "name": event["name"], "args": arguments})
    return instants, counters


def changes(counts):
    """What changes in a counter; zeros that a common lane of all kinds adds say nothing."""
    return [(time, count) for (_, before), (time, count) in zip([(0, 0), *counts], counts) if count != before]


def compare(begin, *options):
    """Writes both forms of a folder's timeline and compares them. `begin`: of the trace's clock at its first event."""
    for output in ("out.json", "out.pftrace"):
        post("timeline", "unit", "-o", output, *options)
    trace = json.loads(pathlib.Path("out.json").read_text(encoding="utf-8"), parse_float=decimal.Decimal)
    instants, counters = chrome(trace, begin)
    perfetto = Perfetto(pathlib.Path("out.pftrace").read_bytes())
    assert len(perfetto.instants) == len(instants), (len(perfetto.instants), len(instants))
    for told, wanted in zip(perfetto.instants, instants):
        assert told == wanted, (told, wanted)
    for lane, counts in counters.items():
        assert changes(perfetto.counters[lane]) == changes(counts), lane
    assert perfetto.about == trace["otherData"]
    return perfetto


def total(trace, counter):
    return sum(count for _, count in trace.counters[counter])


def tells_the_same_as_a_perfetto_trace():
    write("unit/device.log", two_boots().encode() + line(2_800 * MILLISECOND, "<ERROR> <Fuser> caf\u00e9 \x01 ").encode()[:-2] +
          b"\xff\r\n" + line(2_900 * MILLISECOND, "<ERROR> <Fuser> " + 1000 * "x").encode())
    write("unit/crash.txt", crash_log(3 * SECOND, "1024163141"))
    write("unit/record.bin", event_record())
    dated = compare(FIRST_DATE)
    assert len(dated.instants) == 12 and dated.instants[-1]["name"] == "Fatal error reported by a component", dated.instants
    # Each component has a counter, which knows its own events only, and returns to zero.
    assert total(dated, "event records per second: DeviceHost") == 1
    boot = FIRST_DATE + 40 * SECOND
    assert changes(dated.counters["text lines per second: Engine"]) == [
        (FIRST_DATE, 4), (FIRST_DATE + SECOND, 0), (boot, 1), (boot + SECOND, 0)], dated.counters
    compare(boot + 246 * MILLISECOND, "--grep", "Fuser")

    for path in pathlib.Path("unit").iterdir():
        path.unlink()
    write("unit/rings.txt", ring_dump("Panel", [(5 * SECOND + i, 0x111 + i % 2, i, 0xFFFFFFFF, 0, 4) for i in range(3)]))
    assert total(compare(0), "ring events per second: Panel") == 3


def tells_a_log_that_begins_in_a_message_as_its_lines_stand():
    # A round that went on at the file's start, up to the middle of an older one's header.
    write("unit/device.log", calibration(2554 * MILLISECOND, "1024163140") +
          line(2551 * MILLISECOND, "<WARN> <Engine> filled it") + line(2600 * MILLISECOND, "<WARN> <Engine> new", 2) +
          "0001:000> <WARN> <Engine> lost\r\nand its second line\r\n" +
          "".join(line((3300 + i) * MILLISECOND, "<WARN> <Engine> old", 1 + i % 2) for i in range(300)))
    write("unit/other.log", calibration(2800 * MILLISECOND, "1024163135", 34_464, 0x40000001) +
          line(2900 * MILLISECOND, "<WARN> <Other> between", 0x40000001))
    write("unit/crash.txt", crash_log(2800 * MILLISECOND, "1024163141"))

    def told(lines, text):
        return [[each[text], *(each[name] for name in ("time", "certainty", "process", "overwritten")),
                 each.get("thread"), each.get("continues", False)] for each in lines]

    *shown, crash = json.loads(post("show", "unit", "--json"))["events"]
    assert crash["kind"] == "crash", crash
    events = told(shown, "text")
    assert events == told(json.loads(post("log", "unit/device.log", "unit/other.log", "--json"))["lines"], "message")
    assert events[1][0] == "between" and shown[4]["assuming"] == "rounds-as-found", shown[:5]
    assert events[2:4] == [["0001:000> <WARN> <Engine> lost", None, "assumed", 2, True, None, False],
                           ["and its second line", None, "assumed", 2, True, None, True]], events[2:4]
    for call in (["show", "unit"], ["log", "unit/device.log"]):
        assert post(*call, "--format", "short", "--grep", "second") == "0001:000> <WARN> <Engine> lost\nand its second line\n"
    # What has no time is no end of a process; what has one has the same mark everywhere.
    ends = [(process[f"{end}_certainty"], event["certainty"])
            for process in json.loads(post("summary", "unit", "--json"))["processes"] for end in ("first", "last")
            for event in shown if (event["process"], event["time"]) == (process["process"], process[end])]
    assert len(ends) == 4 and all(marked == known for marked, known in ends), ends
    assert " ~< to " in post("summary", "unit")

    instants = compare(FIRST_DATE + 34_980_464_000).instants
    assert len(instants) == len(events) + 1
    lost = next(i for i, instant in enumerate(instants) if instant["args"].get("message") == "and its second line")
    assert instants[lost]["time"] == instants[lost + 1]["time"] and instants[lost]["thread"] == "no thread", instants[lost]
    assert instants[lost]["args"]["time"] == "unknown, put in front of the line after it", instants[lost]


def writes_over_its_own_traces_and_passes_them_over():
    events = 17_000
    write("unit/device.log", "".join(line(i, f"<WARN> <Tracer {i}> line") for i in range(events)))
    for output in ("unit/out.pftrace", "unit/out.pftrace.gz") * 2:
        assert json.loads(post("timeline", "unit", "-o", output, "--json"))["events"] == events
    plain = pathlib.Path("unit/out.pftrace").read_bytes()
    assert gzip.decompress(pathlib.Path("unit/out.pftrace.gz").read_bytes()) == plain
    # What is interned, and what has a counter, does not grow with the names that a log makes up.
    trace = Perfetto(plain)
    assert len(trace.instants) == events and trace.instants[-1]["name"] == f"WARN Tracer {events - 1}"
    assert len(trace.counters) == 1001 and max(len(texts) for texts in trace.texts.values()) < events


run(tells_the_same_as_a_perfetto_trace, tells_a_log_that_begins_in_a_message_as_its_lines_stand,
    writes_over_its_own_traces_and_passes_them_over)
