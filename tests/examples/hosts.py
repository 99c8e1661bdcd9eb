#!/usr/bin/env python3
"""Checks what is said of hosts whose main thread only opens the log and whose other threads write it.

    hosts.py DEVICE_HOST NIMA_POST WORK

Runs device_host in the folder WORK, kills it, and lets another one run there to its end: a process a run, in the order
of time, whatever tells of it. Exit status 1 if nima-post says something else.
"""

import collections
import json
import pathlib
import shutil
import subprocess
import sys
import time


def told(nima_post, work):
    """The processes, and the numbers of those that the events of each kind bear."""
    run = subprocess.run([nima_post, "show", work, "--json"], capture_output=True, text=True, check=False)
    story = json.loads(run.stdout)
    numbers = collections.defaultdict(set)
    for event in story["events"]:
        if event["thread"] is not None:
            numbers[event["kind"]].add(event["process"])
    return story["processes"], numbers


def kill(device_host, work, lines):
    """Kills a host in the middle of its work."""
    host = subprocess.Popen([device_host, "--input", lines], cwd=work, stdout=subprocess.DEVNULL)
    log = work / "device.log"
    while host.poll() is None and (not log.exists() or log.stat().st_size < 3_000_000):
        time.sleep(0.001)
    host.kill()
    return host.wait()


def differences(device_host, nima_post, work):
    """Lets the hosts run; what is said otherwise than it should be."""
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    lines = work.parent / "hosts.txt"
    lines.write_text("a line of the work\n" * 1_000_000, encoding="utf-8")
    wrong = []

    def expect(what, value, wanted):
        if value != wanted:
            wrong.append(f"{what}: {value} instead of {wanted}")

    expect("the end of the killed host", kill(device_host, work, lines), -9)
    processes, numbers = told(nima_post, work)
    expect("threads of the killed process", [len(each["threads"]) for each in processes], [5])
    expect("its evidence", processes[0]["evidence"], "first")
    expect("who wrote what", numbers, {"text": {1}, "binary": {1}, "ring": {1}})
    killed = set(processes[0]["threads"])

    subprocess.run([device_host, "--input", lines, "--lines", "3000"], cwd=work, stdout=subprocess.DEVNULL, check=True)
    processes, numbers = told(nima_post, work)
    ended = len(processes)
    expect("threads of the other process", len(processes[-1]["threads"]), 5)
    expect("who wrote its lines", numbers["text"] - {None}, {ended})
    expect("what is said of it", [processes[-1][key] for key in ("evidence", "doubts")], ["first", ["one-process"]])
    # The trace tells the killed process where its threads lie far enough from those of the other.
    for earlier in processes[:-1]:
        expect("whether it is the killed one", set(earlier["threads"]) <= killed, True)
        expect("what is said of that", [earlier[key] for key in ("evidence", "doubts")], ["threads", ["times"]])
        expect("who wrote the records", numbers["binary"], {1, 2})

    lines.unlink()
    return wrong


def main():
    device_host, nima_post, work = sys.argv[1], sys.argv[2], pathlib.Path(sys.argv[3])
    # Of a host that was held up between its first line and the next, less is known.
    for _ in range(3):
        wrong = differences(device_host, nima_post, work)
        if not wrong:
            shutil.rmtree(work)
            return 0
        print("\n".join(wrong))
    return 1


if __name__ == "__main__":
    sys.exit(main())
