"""For tests in Python: calls of a program, and what devices write."""

import os
import pathlib
import struct
import subprocess
import tempfile

MILLISECOND = 10**6
SECOND = 10**9


class Program:
    """One of the build's programs, which an emulator may have to run."""

    def __init__(self, path, emulator=()):
        self.words, self.code, self.errors = [*emulator, os.path.abspath(path)], 0, ""

    def __call__(self, *arguments, codes=(0,), says=""):
        """What it prints; `codes`: exit statuses that are right, `says`: a part of what goes to standard error."""
        done = subprocess.run([*self.words, *arguments], capture_output=True, encoding="utf-8", check=False)
        self.code, self.errors = done.returncode, done.stderr
        assert self.code in codes and says in self.errors, \
            f"{arguments}: {self.code}\n{done.stdout[-2000:]}{self.errors}"
        return done.stdout


def codes_of(result):
    """Of the findings in what a program prints as JSON."""
    return {finding["code"] for kind in ("damage", "remarks") for finding in result["findings"][kind]}


def write(path, content):
    """Text or bytes; a folder is made for it."""
    path = pathlib.Path(path)
    path.parent.mkdir(exist_ok=True)
    path.write_bytes(content if isinstance(content, bytes) else content.encode())


def counter(time):
    """As the performance counter shows nanoseconds: seconds, and the nanoseconds within one, added up."""
    return time // SECOND + time % SECOND


def line(time, text, thread=1):
    """A line of a text log, stamped as the library does."""
    return f"{counter(time)} <0x{thread:08x}:000> {text}\r\n"


def calibration(time, date, microseconds=54_000, thread=1):
    """`date`: month from 0, day, hours, minutes and seconds, two digits each."""
    return line(time, f"<CAL> <Trace> Calibration freq=1000000, now=0126{date}.{microseconds:05}, type=qpc", thread)


def two_boots(second="1024163140"):
    """A log of lines at 16:31:00.1, .2 and .3, and of two in another boot, half a minute later or at another date."""
    first, later = 5 * SECOND, 2 * SECOND + 500 * MILLISECOND
    return (calibration(first + 54 * MILLISECOND, "1024163100") +
            line(first + 100 * MILLISECOND, "<INFO> <Engine> warm up") +
            line(first + 200 * MILLISECOND, "<ERROR> <Engine> lamp\r\nof the scanner") +
            line(first + 300 * MILLISECOND, "<INFO> <Engine> page 1 of 2", 2) +
            calibration(later + 54 * MILLISECOND, second) +
            line(later + 100 * MILLISECOND, "<INFO> <Engine> Lamp again") +
            line(later + 200 * MILLISECOND, "<WARN> <\"One\"> page 2 of 2", 3))


def ring_dump(ring, records):
    """A text dump of one ring's records, each a time, a thread and four words."""
    text = f"BEGIN RING BUFFER DUMP\r\n\r\n######## Ring Buffer {ring} ########\r\n"
    for time, thread, *words in records:
        text += f"{counter(time):019} 0x{thread:08x} 0x00000005 : " + " ".join(f"0x{word:08x}" for word in words) + "\r\n"
    return text + "\r\nEND RING BUFFER DUMP\r\n"


def crash_log(time, date, file="fuser.cpp", place=54):
    """Of an assertion, without modules, stacks and rings. The date as for a calibration line."""
    when = f"{date[:2]}-{date[2:4]} {date[4:6]}:{date[6:8]}:{date[8:]}"
    return (f"Crash Date/Time: 0126-{when}.54000\r\nTicks: {counter(time)}\r\nFrequency: 1000000\r\n\r\n"
            f"Error Code: 31AC05\r\nFile Name: {file}\r\nLine Numbr: {place}\r\nFault Addr: 0\r\nCrash Type: 2\r\n"
            "Excpt Code: 0\r\nBoot Cycle: 0\r\n\r\nLoaded Modules\r\n\r\n\r\nCall Stacks\r\n\r\n\r\n"
            "Ring Buffers (unformatted)\r\n\r\nBEGIN RING BUFFER DUMP\r\n\r\n\r\nEND RING BUFFER DUMP\r\n\r\nAll Done!!\r\n")


def event_record():
    """One that nothing dates."""
    return struct.pack("<6I32s", 56, 1, 6, 2, 32, 0, b"DeviceHost")


def run(*checks):
    """Each in a fresh working directory of its own."""
    for check in checks:
        with tempfile.TemporaryDirectory() as work:
            os.chdir(work)
            check()
            os.chdir("/")
