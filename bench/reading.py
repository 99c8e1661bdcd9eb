#!/usr/bin/env python3
"""Measures how fast nima-post reads a large log, against what grep and gzip take for the same bytes.

    reading.py [--quick] [--size MB] BUILD-FOLDER

User time and memory of each program, the best of five runs in turn. See doc/performance.md.
"""

import argparse
import os
import random
import subprocess
import sys
import tempfile

RARE = "opened"  # a word
LEVELS = ["INFO"] * 40 + ["DEBUG"] * 45 + ["PERF"] * 8 + ["WARN"] * 5 + ["ERROR"] * 2
TRACERS = ["Engine", "Scanner", "Network", "PaperPath", "Fuser", "JobQueue", "Ui"]
THREADS = [0x979FE6C0, 0x97A0E6C0, 0x97B0F6C0, 0x98A0E6C0, 0x98B1E6C0, 0x99A0E6C0]
MESSAGES = ["page %d of job %d is at the fuser, %d degrees",
            "queue holds %d jobs, the oldest waits for %d ms and has %d pages",
            "frame %d from 192.168.1.%d dropped, checksum %d",
            "motor %d at %d steps, speed %d",
            "lamp warm after %d ms, gain %d, offset %d of the sensor"]
RUNS = 5
MOST_MEMORY = 64 << 10  # KiB


def write_log(path, size):
    """Lines of about 98 bytes, a rare one in each 20 MB."""
    choose = random.Random(7)
    second, nanosecond, number, done = 1000, 500_000_000, 0, 0
    with open(path, "wb") as log:
        lines = ["500001000 <0x979fe6c0:000> <CAL> <Trace> Calibration freq=1000000, now=01261024150926.46886, "
                 "type=qpc\r\n"]
        while done < size:
            nanosecond += choose.randrange(1000, 60000)
            if nanosecond >= 1_000_000_000:
                nanosecond -= 1_000_000_000
                second += 1
            number += 1
            message = (f"the door was {RARE}, code {number}" if number % 200_001 == 0 else choose.choice(MESSAGES) %
                       (number % 997, choose.randrange(255), choose.randrange(100000)))
            lines.append(f"{second + nanosecond} <0x{choose.choice(THREADS):08x}:000> <{choose.choice(LEVELS)}> "
                         f"<{choose.choice(TRACERS)}> {message}\r\n")
            if len(lines) == 10000:
                block = "".join(lines).encode()
                log.write(block)
                done += len(block)
                lines = []
    return number


def measure(command, stdin=None):
    """User seconds and the most memory, in KiB. What is printed goes into a pipe."""
    with open(stdin or os.devnull, "rb") as source:
        process = subprocess.Popen(command, stdin=source, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                   env={**os.environ, "LC_ALL": "C"})
        for _ in iter(lambda: process.stdout.read(1 << 20), b""):
            pass
        _, status, used = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{' '.join(command)}: exit status {process.returncode}")
    return used.ru_utime, used.ru_maxrss


def best_of(commands, runs):
    """In turn, so that a slow moment of the machine hits all."""
    best = {}
    for _ in range(runs):
        for name, (command, stdin) in commands.items():
            seconds, memory = measure(command, stdin)
            known = best.get(name, (seconds, memory))
            best[name] = (min(known[0], seconds), max(known[1], memory))
    return best


def report(best, peer, limits):
    """Prints a row for each command; false if a limit was missed."""
    kept = True
    print(f"{peer}: {best[peer][0]:.2f} s")
    for name, limit in limits.items():
        seconds, memory = best[name]
        ratio = seconds / best[peer][0]
        fine = ratio <= limit and memory <= MOST_MEMORY
        kept = kept and fine
        print(f"  {name:34} {seconds:6.2f} s  {ratio:5.2f} of {limit:<4} {memory / 1024:5.1f} MiB  "
              f"{'kept' if fine else 'MISSED'}")
    return kept


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--quick", action="store_true", help="6 MB, once: the figures mean nothing")
    parser.add_argument("--size", type=int, default=600, help="of the log, in MB")
    parser.add_argument("build")
    options = parser.parse_args()
    post = os.path.abspath(os.path.join(options.build, "tools", "nima-post"))
    size, runs = (6, 1) if options.quick else (options.size, RUNS)
    with tempfile.TemporaryDirectory(prefix="nima-reading.") as folder:
        device = os.path.join(folder, "device")
        os.mkdir(device)
        log = os.path.join(device, "device.log")
        count = write_log(log, size * 1_000_000)
        print(f"{os.path.getsize(log) / 1e6:.0f} MB, {count} lines; user time, best of {runs}")
        kept = report(best_of({
            "grep -F": (["grep", "-F", RARE, log], None),
            "log --grep TEXT": ([post, "log", log, "--grep", RARE], None),
            "log --grep EXPRESSION": ([post, "log", log, "--grep", "door.*code [0-9]+1"], None),
            "log --level ERROR": ([post, "log", log, "--level", "ERROR"], None),
        }, runs), "grep -F", {"log --grep TEXT": 3, "log --grep EXPRESSION": 4, "log --level ERROR": 4})
        packed = os.path.join(folder, "out.json.gz")
        plain = os.path.join(folder, "out.json")
        measure([post, "timeline", device, "-o", plain])
        kept = report(best_of({
            "gzip -1": (["gzip", "-1"], plain),
            "timeline -o out.json.gz": ([post, "timeline", device, "-o", packed], None),
        }, min(runs, 3)), "gzip -1", {"timeline -o out.json.gz": 1.2}) and kept
        with subprocess.Popen(["gzip", "-dc", packed], stdout=subprocess.PIPE) as unpacked:
            if subprocess.run(["cmp", "-", plain], stdin=unpacked.stdout, check=False).returncode != 0:
                sys.exit("the compressed timeline holds something else than the plain one")
    return 0 if kept or options.quick else 1


if __name__ == "__main__":
    sys.exit(main())
