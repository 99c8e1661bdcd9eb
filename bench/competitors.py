"""The programs that are compared: one process each, which runs one repetition at a time on request."""

import os
import pathlib
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "scripts/lib"))
from lttng import CannotRun, LttngDaemon  # noqa: E402


class Competitor:
    """A program of bench/competitors, in a working directory of its own until `close`."""

    def __init__(self, name, command, folder, environment=None):
        self.name = name
        self.folder = folder
        os.makedirs(folder, exist_ok=True)
        self._process = subprocess.Popen(
            command, cwd=folder, env={**os.environ, **(environment or {})},
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.jobs = self.ask("jobs").split()

    @property
    def pid(self):
        return self._process.pid

    def ask(self, request):
        try:
            self._process.stdin.write(request + "\n")
            self._process.stdin.flush()
            answer = self._process.stdout.readline().strip()
        except OSError as problem:
            raise CannotRun(f"{self.name}: {problem}") from problem
        if not answer or answer.startswith("error"):
            raise CannotRun(f"{self.name}: {answer or 'ended'} ({request})")
        return answer

    def repeat(self, job, threads, calls, path="-"):
        """One repetition: nanoseconds and allocations per call and thread."""
        nanoseconds, allocations = self.ask(f"{job} {threads} {calls} {path}").split()
        return float(nanoseconds), float(allocations)

    def memory(self):
        """Resident bytes."""
        with open(f"/proc/{self.pid}/statm", encoding="ascii") as statm:
            return int(statm.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")

    def close(self):
        self._process.stdin.close()
        try:
            self._process.wait(30)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self._process.stdout.close()


class LttngSession(LttngDaemon):
    """A flight recorder: what LTTng calls overwrite mode, kept in memory."""

    EVENTS = "bench:plain,bench:three"

    def __init__(self, program):
        super().__init__()
        self.program = self.take(program)
        try:
            self.lttng("create", "bench", "--snapshot", f"--output={self.home}/out")
            self.lttng("enable-channel", "-s", "bench", "-u", "--overwrite", "--subbuf-size=1M",
                       "--num-subbuf=4", "ring")
            self.lttng("add-context", "-s", "bench", "-u", "-c", "ring", "-t", "vtid")
            self.lttng("enable-event", "-s", "bench", "-u", "-c", "ring", self.EVENTS)
            self.lttng("start", "bench")
        except CannotRun:
            self.close()
            raise

    def recorded_bytes(self):
        """The content of a snapshot of the flight recorder; if it is empty, nothing was traced."""
        self.lttng("snapshot", "record", "-s", "bench")
        return sum(os.path.getsize(os.path.join(folder, name))
                   for folder, _, names in os.walk(f"{self.home}/out") for name in names
                   if name.startswith("ring"))
