#!/usr/bin/env python3
"""Compares the library with what a user would pick instead, with the machine's floor and with hand-written minima.

    compare.py [--quick] [--job NAME]... BUILD-FOLDER

See doc/performance.md.
"""

import argparse
import glob
import json
import os
import platform
import re
import shutil
import statistics
import subprocess
import sys
import time

import report
from competitors import CannotRun, Competitor, LttngSession

OURS = "nima"
BASELINES = ("floor", "minimum")
PEERS = {"spdlog": "spdlog", "glog": "glog", "boost.log": "boost_log", "log4cplus": "log4cplus"}
PACKAGES = {"spdlog": "libspdlog-dev", "glog": "libgoogle-glog-dev", "boost.log": "libboost-log-dev",
            "log4cplus": "liblog4cplus-dev", "lttng-ust": "liblttng-ust-dev"}

TITLES = {
    "line-own": "Line to a size-limited log file, a tracer per thread",
    "line-shared": "Line to a size-limited log file, one tracer for all threads",
    "filtered": "Line filtered out",
    "record-0": "Binary record without words",
    "record-3": "Binary record of three words",
    "record-0-filtered": "Binary record without words, filtered out",
    "record-3-filtered": "Binary record of three words, filtered out",
    "ring": "Ring event of 32 bytes",
}
MESSAGE = b" of job"  # part of every line of every competitor

# (job, threads, against, limit): the time may be at most `limit` times the other's; "ns" is an absolute limit.
TARGETS = [
    ("line-own", 1, "best peer", 0.75), ("line-own", 1, "minimum", 1.15),
    *[(job, threads, against, limit) for job in ("line-own", "line-shared") for threads in (2, 4)
      for against, limit in (("best peer", 0.65), ("minimum", 1.25))],
    ("filtered", 1, "ns", 3), ("filtered", 1, "spdlog", 0.5),
    ("record-0", 1, "lttng-ust", 0.5), ("record-3", 1, "lttng-ust", 0.7),
    *[(job, threads, "minimum", 1.1) for job in ("record-0", "record-3", "ring") for threads in (1, 2, 4)],
]


class Run:
    """One run of the comparison; collects the results for the JSON file."""

    def __init__(self, build, quick):
        self.build = build
        self.programs = os.path.join(build, "bench")
        self.folder = os.path.join(build, "run")
        self.rounds = 3 if quick else 15
        self.seconds = 0.002 if quick else 0.025
        self.quick = quick
        self.competitors = {}
        self.missing = {}
        self.lttng = None
        self.files = 0
        self.results = {"machine": machine(), "rounds": self.rounds, "jobs": {}, "ratios": [], "missing": self.missing}
        shutil.rmtree(self.folder, ignore_errors=True)
        os.makedirs(self.folder)

    def program(self, name):
        return os.path.join(self.programs, "bench_" + name)

    def start(self, name, command, **options):
        """A competitor that stays until the end, or a reason why it cannot run."""
        try:
            if not os.path.exists(command[0]):
                raise CannotRun(f"not built: {PACKAGES.get(name, 'the program')} is missing")
            self.competitors[name] = Competitor(name, command, os.path.join(self.folder, name), **options)
        except CannotRun as problem:
            self.missing[name] = str(problem)

    def start_all(self):
        self.start(OURS, [self.program("nima")])
        for peer, program in PEERS.items():
            self.start(peer, [self.program(program)])
        self.start("fprintf", [self.program("plain"), "fprintf"])
        self.start_lttng()
        for baseline in BASELINES:
            self.start(baseline, [self.program("plain"), baseline])

    def start_lttng(self):
        program = self.program("lttng")
        try:
            if not os.path.exists(program):
                raise CannotRun(f"not built: {PACKAGES['lttng-ust']} is missing")
            self.lttng = LttngSession(program)
            self.competitors["lttng-ust"] = Competitor(
                "lttng-ust", self.lttng.command(self.lttng.program), self.lttng.home,
                environment=self.lttng.environment)
        except CannotRun as problem:
            self.missing["lttng-ust"] = str(problem)

    def close(self):
        for competitor in self.competitors.values():
            competitor.close()
        if self.lttng is not None:
            self.lttng.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    # --- repetitions --------------------------------------------------------------------------------------

    def repetition(self, competitor, job, threads, calls):
        """Runs one, checks that all lines were written, each thread's first included, and removes the file."""
        self.files += 1  # if the name is the same, glog continues with the file that is gone
        text = job.startswith("line") or job == "filtered"
        path = os.path.join(competitor.folder, f"log-{self.files}-" if text else f"map-{job}")
        nanoseconds, _ = competitor.repeat(job, threads, calls, path)
        if text:
            expected = 0 if job == "filtered" or competitor.name == "floor" else threads * (calls + 1)
            found = count_and_remove(path)
            if found != expected:
                raise CannotRun(f"{competitor.name}: {found} lines of {expected} in its file ({job})")
        return nanoseconds

    def calls_for(self, competitor, job, threads):
        probe = self.repetition(competitor, job, threads, 2000)
        return max(2000, min(int(self.seconds * 1e9 / max(probe, 0.2)), 20_000_000))

    def job(self, job, thread_counts):
        """Runs every competitor's repetitions in turn, so that a slow moment of the machine hits all of them."""
        measured = self.results["jobs"].setdefault(job, {})
        for threads in thread_counts:
            taking_part = [c for c in self.competitors.values() if job in c.jobs]
            calls = {c.name: self.calls_for(c, job, threads) for c in taking_part}
            for turn in range(self.rounds):
                for i in range(len(taking_part)):
                    competitor = taking_part[(i + turn) % len(taking_part)]
                    nanoseconds = self.repetition(competitor, job, threads, calls[competitor.name])
                    measured.setdefault(competitor.name, {}).setdefault(threads, []).append(nanoseconds)
        if self.lttng is not None and job == "record-3" and self.lttng.recorded_bytes() == 0:
            raise CannotRun("lttng-ust has recorded nothing")
        self.print_job(job, thread_counts)

    # --- ratios -------------------------------------------------------------------------------------------

    def best_peer(self, job, threads):
        peers = {name: statistics.median(by_threads[threads])
                 for name, by_threads in self.results["jobs"][job].items()
                 if name != OURS and name not in BASELINES and threads in by_threads}
        return min(peers, key=peers.get) if peers else None

    def ratio(self, job, threads, other):
        """The median of the rounds' own ratios: within a round the machine was the same for both."""
        measured = self.results["jobs"][job]
        if other not in measured:
            return None
        return statistics.median(a / b for a, b in zip(measured[OURS][threads], measured[other][threads]))

    def verdict(self, job, threads, against):
        """The targets, and whether this run met them."""
        for target_job, target_threads, target_against, limit in TARGETS:
            if (target_job, target_threads, target_against) == (job, threads, against):
                value = (statistics.median(self.results["jobs"][job][OURS][threads]) if against == "ns"
                         else self.ratio(job, threads, self.name_of(job, threads, against)))
                if value is None:
                    return None
                met = value <= limit if against != "ns" else value < limit
                self.results["ratios"].append({"job": job, "threads": threads, "against": against, "value": value,
                                               "target": limit, "met": met})
                return f"{'<' if against == 'ns' else '<='} {limit:g}: {'met' if met else 'MISSED'}"
        return None

    def name_of(self, job, threads, against):
        return self.best_peer(job, threads) if against == "best peer" else against

    def print_job(self, job, thread_counts):
        measured = self.results["jobs"][job]
        header = ["ns per call, median and quartiles", *[f"{n} thread{'s' if n > 1 else ''}" for n in thread_counts]]
        rows = [[name, *[report.cell(by_threads.get(n)) for n in thread_counts]]
                for name, by_threads in measured.items()]
        for against in ("best peer", "spdlog", "lttng-ust", "minimum", "floor", "ns"):
            row = [f"nima / {against}" if against != "ns" else "nima, ns"]
            for threads in thread_counts:
                row.append(self.ratio_cell(job, threads, against))
            if any(value for value in row[1:]):
                rows.append(row)
        report.table(TITLES[job], header, rows)

    def ratio_cell(self, job, threads, against):
        verdict = self.verdict(job, threads, against)
        if against in ("spdlog", "lttng-ust", "ns"):  # shown only if a target asks for it
            if verdict is None:
                return ""
        if against == "ns":
            return f"{report.number(statistics.median(self.results['jobs'][job][OURS][threads]))} {verdict}"
        name = self.name_of(job, threads, against)
        value = self.ratio(job, threads, name) if name else None
        if value is None:
            return ""
        label = f" ({name})" if against == "best peer" else ""
        return f"{value:.2f}x{label}" + (f" {verdict}" if verdict else "")

    # --- growth -------------------------------------------------------------------------------------------

    def fresh(self, name):
        folder = os.path.join(self.folder, "fresh")
        shutil.rmtree(folder, ignore_errors=True)
        return Competitor(name, [self.program("nima")], folder)

    def growth(self):
        growth = self.results["growth"] = {}
        ours = self.competitors[OURS]

        def series(job, threads):
            calls = self.calls_for(ours, job, threads)
            return [self.repetition(ours, job, threads, calls) for _ in range(self.rounds)]

        counts = (1, 2, 4, 8)
        rows = []
        for job in ("line-own", "line-shared", "record-0", "record-3", "ring"):
            growth[job] = {threads: series(job, threads) for threads in counts}
            rows.append([TITLES[job], *[report.cell(growth[job][threads]) for threads in counts]])
        report.table("Growth with threads, ns per call", ["", *[str(n) for n in counts]], rows)

        tracers = {1: "line-own", 10: "line-10-tracers", 100: "line-100-tracers", 1000: "line-1000-tracers"}
        growth["tracers"] = {count: series(job, 1) for count, job in tracers.items()}
        growth["tracer-memory"] = {count: self.memory_of(job) for count, job in tracers.items()}
        report.table("Growth with tracers, each line through the next one",
                     ["", *[str(n) for n in tracers]],
                     [["ns per line", *[report.cell(values) for values in growth["tracers"].values()]],
                      ["resident KiB of the process", *[size // 1024 for size in growth["tracer-memory"].values()]]])

        rows = []
        for job, filling, title in (("ring", 2047, "ring of 2048 events"),
                                    ("record-0", 524287, "trace of 1048576 entries")):
            first, later = self.filling(job, filling)
            growth[job + "-fill"] = {"first": first, "wrapped": later}
            rows.append([title, report.cell(first), report.cell(later)])
        report.table("Growth as rings fill and wrap, ns per call",
                     ["", "first filling, pages being mapped", "wrapped"], rows)

    def memory_of(self, job):
        competitor = self.fresh(OURS)
        try:
            competitor.repeat(job, 1, 2000, os.path.join(competitor.folder, "log"))
            return competitor.memory()
        finally:
            competitor.close()

    def filling(self, job, calls):
        """Times of a fresh process until its ring is full, and after that."""
        first, later = [], []
        for _ in range(self.rounds):
            competitor = self.fresh(OURS)
            try:
                first.append(competitor.repeat(job, 1, calls)[0])
                later.append(competitor.repeat(job, 1, max(calls, 200_000))[0])
            finally:
                competitor.close()
        return first, later

    # --- the line path ------------------------------------------------------------------------------------

    def system_calls(self):
        """Counts the system calls of 10,000 lines: those of 11,000 less those of 1,000."""
        if shutil.which("strace") is None:
            print("\nSystem calls of the line path: not counted, strace is missing")
            return
        try:
            fewer, more = (self.traced(calls) for calls in (1000, 11000))
        except CannotRun as problem:
            print(f"\nSystem calls of the line path: not counted, {problem}")
            return
        # Start and end of a process vary by a call or two; calls that belong to lines grow with their number.
        few = 10
        grown = {name: more[name] - fewer.get(name, 0) for name in more if more[name] - fewer.get(name, 0) > few}
        only_writes = list(grown) == ["write"]
        self.results["system-calls"] = {"lines": 10000, "calls": grown, "only-writes": only_writes}
        shown = ", ".join(f"{count} {name}" for name, count in sorted(grown.items()))
        print(f"\nSystem calls of 10000 lines on one thread: {shown}; nothing but the buffered write: "
              f"{'met' if only_writes else 'MISSED'}")

    def traced(self, calls):
        folder = os.path.join(self.folder, "traced")
        shutil.rmtree(folder, ignore_errors=True)
        os.makedirs(folder)
        done = subprocess.run(["strace", "-f", "-qq", "-o", f"{folder}/calls", self.program("nima")], cwd=folder,
                              input=f"line-own 1 {calls} {folder}/log\n", text=True, capture_output=True, check=False)
        if done.returncode != 0:
            raise CannotRun((done.stderr or "strace failed").strip().splitlines()[-1])
        counts = {}
        with open(f"{folder}/calls", encoding="utf-8", errors="replace") as lines:
            for line in lines:
                call = re.match(r"\d+\s+(\w+)\(", line)
                if call:
                    counts[call[1]] = counts.get(call[1], 0) + 1
        return counts

    def allocations(self):
        """Counts each competitor's allocations with a preloaded allocator."""
        library = os.path.join(self.programs, "libbench_count_allocations.so")
        commands = {OURS: [self.program("nima")], "fprintf": [self.program("plain"), "fprintf"],
                    **{peer: [self.program(program)] for peer, program in PEERS.items() if peer not in self.missing}}
        counted = self.results["allocations"] = {}
        for name, command in commands.items():
            competitor = Competitor(name, command, os.path.join(self.folder, "counted"),
                                    environment={"LD_PRELOAD": library})
            try:
                path = os.path.join(competitor.folder, "log")
                counted[name] = competitor.repeat("line-own", 1, 10000, path)[1]
                count_and_remove(path)
            finally:
                competitor.close()
        shown = ", ".join(f"{name} {count:.4g}" for name, count in counted.items())
        print(f"\nAllocations per line, after a thread's first: {shown}; none in the library: "
              f"{'met' if counted[OURS] == 0 else 'MISSED'}")

    # --- size ---------------------------------------------------------------------------------------------

    def size(self):
        rows, sizes = [], {}
        for name, program in {OURS: "nima", **PEERS, "lttng-ust": "lttng"}.items():
            if not os.path.exists(self.program(program)):
                continue
            libraries = own_libraries(self.program(program), name)
            sizes[name] = entry = {"libraries": [os.path.basename(path) for path in libraries]}
            entry.update(stripped=sum(stripped_size(path, self.folder) for path in libraries),
                         relocations=sum(section_size(path, r"\.rela?\.(dyn|plt)") for path in libraries),
                         bss=sum(section_size(path, r"\.bss") for path in libraries),
                         load=[self.load_time(libraries[0]) for _ in range(self.rounds)])
            rows.append([name, entry["stripped"], entry["relocations"], entry["bss"], report.cell(entry["load"]),
                         " ".join(entry["libraries"])])
        self.results["size"] = sizes
        report.table("Size, bytes; time to load, microseconds",
                     ["", "stripped", "relocations", ".bss", "load", "of"], rows)

    def load_time(self, library):
        done = subprocess.run([self.program("load_time"), library], text=True, capture_output=True, check=True)
        return float(done.stdout)


def count_and_remove(path):
    """The lines with the message in all files that begin with this path."""
    found = 0
    for name in glob.glob(glob.escape(path) + "*"):
        with open(name, "rb") as file:
            found += file.read().count(MESSAGE)
        os.remove(name)
    return found


OWN_LIBRARIES = {OURS: r"libNimaDiagnostics", "spdlog": r"libspdlog|libfmt", "glog": r"libglog|libgflags",
                 "boost.log": r"libboost_log|libboost_\w+", "log4cplus": r"liblog4cplus",
                 "lttng-ust": r"liblttng-ust"}


def own_libraries(program, name):
    """The shared libraries that come with a competitor, first the one that is loaded by name."""
    listed = subprocess.run(["ldd", program], text=True, capture_output=True, check=True).stdout
    paths = re.findall(r"=> (\S+)", listed)
    found = [path for path in paths if re.match(OWN_LIBRARIES[name], os.path.basename(path))]
    first = OWN_LIBRARIES[name].split("|")[0]
    return sorted(found, key=lambda path: not os.path.basename(path).startswith(first + "."))


def stripped_size(library, folder):
    copy = os.path.join(folder, "stripped")
    subprocess.run(["strip", "-o", copy, library], check=True)
    size = os.path.getsize(copy)
    os.remove(copy)
    return size


def section_size(library, pattern):
    listed = subprocess.run(["readelf", "-SW", library], text=True, capture_output=True, check=True).stdout
    return sum(int(size, 16) for name, size in
               re.findall(r"\]\s+(\S+)\s+\S+\s+[0-9a-f]+\s+[0-9a-f]+\s+([0-9a-f]+)", listed)
               if re.fullmatch(pattern, name))


def machine():
    model = platform.processor()
    with open("/proc/cpuinfo", encoding="utf-8") as lines:
        for line in lines:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    return {"processor": model, "cores": os.cpu_count(), "kernel": platform.release(), "libc": platform.libc_ver()[1],
            "load": os.getloadavg()[0], "date": time.strftime("%Y-%m-%d %H:%M:%S")}


JOBS = {"line-own": (1, 2, 4), "line-shared": (1, 2, 4), "filtered": (1, 2, 4), "record-0": (1, 2, 4),
        "record-3": (1, 2, 4), "record-0-filtered": (1, 2, 4), "record-3-filtered": (1, 2, 4), "ring": (1, 2, 4)}
OTHERS = {"growth": Run.growth, "size": Run.size, "system-calls": Run.system_calls, "allocations": Run.allocations}


def compare(run, names):
    run.start_all()
    described = ", ".join(f"{key} {value}" for key, value in run.results["machine"].items())
    print(f"{described}\n{run.rounds} rounds, in each a repetition of every competitor")
    for name, reason in run.missing.items():
        print(f"not taking part: {name}: {reason}")
    for job, thread_counts in JOBS.items():
        if job in names:
            run.job(job, thread_counts)
    for name, action in OTHERS.items():
        if name in names:
            action(run)
    ratios = run.results["ratios"]
    missed = [ratio for ratio in ratios if not ratio["met"]]
    measured = {(ratio["job"], ratio["threads"], ratio["against"]) for ratio in ratios}
    unmeasured = [target for target in TARGETS if target[0] in names and target[:3] not in measured]
    print(f"\n{len(ratios) - len(missed)} of {len(ratios) + len(unmeasured)} targets met in this run")
    for job, threads, against, _ in unmeasured:
        print(f"  not measured: {TITLES[job]}, {threads} thread(s), against {against}")
    for ratio in missed:
        print(f"  missed: {TITLES[ratio['job']]}, {ratio['threads']} thread(s): {ratio['value']:.2f} of "
              f"{ratio['target']:g} against {ratio['against']}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--quick", action="store_true", help="prove that everything runs; figures mean nothing")
    parser.add_argument("--job", action="append", choices=[*JOBS, *OTHERS], help="only this one; may be repeated")
    parser.add_argument("build")
    arguments = parser.parse_args()
    names = arguments.job or [*JOBS, *OTHERS]
    run = Run(os.path.abspath(arguments.build), arguments.quick)
    try:
        compare(run, names)
    except CannotRun as problem:
        print(f"compare.py: {problem}", file=sys.stderr)
        return 1
    finally:
        run.close()
    # A run of only some jobs does not replace the complete results.
    base = "-".join(["bench", *(arguments.job or [])])
    copy = os.path.join(run.build, base + ".json")
    with open(copy, "w", encoding="utf-8") as out:
        json.dump(run.results, out, indent=1)
    plot = os.path.join(run.build, base + ".svg")
    report.draw(plot, run.results["jobs"], TITLES)
    print(f"\nwritten: {copy}, {plot}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
