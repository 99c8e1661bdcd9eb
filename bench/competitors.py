"""The programs that are compared: one process each, which runs one repetition at a time on request."""

import os
import shutil
import subprocess
import tempfile
import time


class CannotRun(Exception):
    """Why a competitor is not in the comparison."""


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


class LttngSession:
    """A separate session daemon with a flight recorder: what LTTng calls overwrite mode, kept in memory.

    For root the tools support only one daemon per machine, so they then run as an unprivileged user.
    """

    EVENTS = "bench:plain,bench:three"

    def __init__(self, program):
        for tool in ("lttng", "lttng-sessiond"):
            if shutil.which(tool) is None:
                raise CannotRun(f"{tool} is not installed")
        self.home = tempfile.mkdtemp(prefix="bench-lttng-")
        self.program = shutil.copy(program, self.home)
        self._user = []
        if os.geteuid() == 0:
            self._user = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
            for path in (self.home, self.program):
                os.chown(path, 65534, 65534)
        self.environment = {"HOME": self.home, "LTTNG_HOME": self.home, "LTTNG_UST_REGISTER_TIMEOUT": "10000"}
        self._daemon = subprocess.Popen(
            self.command("lttng-sessiond", "--no-kernel"), env={**os.environ, **self.environment},
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            self._wait_for_daemon()
            self._lttng("create", "bench", "--snapshot", f"--output={self.home}/out")
            self._lttng("enable-channel", "-s", "bench", "-u", "--overwrite", "--subbuf-size=1M",
                        "--num-subbuf=4", "ring")
            self._lttng("add-context", "-s", "bench", "-u", "-c", "ring", "-t", "vtid")
            self._lttng("enable-event", "-s", "bench", "-u", "-c", "ring", self.EVENTS)
            self._lttng("start", "bench")
        except CannotRun:
            self.close()
            raise

    def command(self, *words):
        return [*self._user, *words]

    def _lttng(self, *words):
        done = subprocess.run(self.command("lttng", *words), env={**os.environ, **self.environment},
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False, timeout=60)
        if done.returncode != 0:
            raise CannotRun(f"lttng {words[0]}: {(done.stderr or done.stdout).strip()}")

    def _wait_for_daemon(self):
        for _ in range(100):
            if os.path.exists(f"{self.home}/.lttng/client-lttng-sessiond"):
                return
            if self._daemon.poll() is not None:
                break
            time.sleep(0.1)
        raise CannotRun("the session daemon does not start")

    def recorded_bytes(self):
        """The content of a snapshot of the flight recorder; if it is empty, nothing was traced."""
        self._lttng("snapshot", "record", "-s", "bench")
        return sum(os.path.getsize(os.path.join(folder, name))
                   for folder, _, names in os.walk(f"{self.home}/out") for name in names
                   if name.startswith("ring"))

    def close(self):
        self._daemon.terminate()
        try:
            self._daemon.wait(20)
        except subprocess.TimeoutExpired:
            self._daemon.kill()
            self._daemon.wait()
        shutil.rmtree(self.home, ignore_errors=True)
