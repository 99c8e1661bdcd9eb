"""An LTTng session daemon of its own for what is tried with LTTng."""

import os
import shutil
import subprocess
import tempfile
import time


class CannotRun(Exception):
    """What is missing, in words."""


class LttngDaemon:
    """Runs until it is closed, with its files in a folder of its own.

    For root the tools support only one daemon per machine, so they then run as an unprivileged user. Programs that are
    traced must run as that user, too, and be where it can read them: in `home`, for example.
    """

    def __init__(self):
        for tool in ("lttng", "lttng-sessiond"):
            if shutil.which(tool) is None:
                raise CannotRun(f"{tool} is not installed")
        self.home = tempfile.mkdtemp(prefix="nima-lttng-")
        self._user = []
        if os.geteuid() == 0:
            self._user = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
            os.chown(self.home, 65534, 65534)
        self.environment = {"HOME": self.home, "LTTNG_HOME": self.home, "LTTNG_UST_REGISTER_TIMEOUT": "10000"}
        # It ends with this program, whatever ends that.
        self._daemon = subprocess.Popen(
            self.command("setpriv", "--pdeathsig=TERM", "lttng-sessiond", "--no-kernel"),
            env={**os.environ, **self.environment}, stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            self._wait()
        except CannotRun:
            self.close()
            raise

    def take(self, file):
        """A copy of a file where the programs that are traced can read it."""
        copy = shutil.copy(file, self.home)
        if os.geteuid() == 0:
            os.chown(copy, 65534, 65534)
        return copy

    def command(self, *words):
        return [*self._user, *words]

    def run(self, *words, **more):
        """A program as the user that may be traced."""
        return subprocess.run(self.command(*words), env={**os.environ, **self.environment},
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False, timeout=60, **more)

    def lttng(self, *words):
        done = self.run("lttng", *words)
        if done.returncode != 0:
            raise CannotRun(f"lttng {words[0]}: {(done.stderr or done.stdout).strip()}")

    def _wait(self):
        for _ in range(100):
            if os.path.exists(f"{self.home}/.lttng/client-lttng-sessiond"):
                return
            if self._daemon.poll() is not None:
                break
            time.sleep(0.1)
        raise CannotRun("the session daemon does not start")

    def close(self):
        self._daemon.terminate()
        try:
            self._daemon.wait(20)
        except subprocess.TimeoutExpired:
            self._daemon.kill()
            self._daemon.wait()
        shutil.rmtree(self.home, ignore_errors=True)
