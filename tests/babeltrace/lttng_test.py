#!/usr/bin/env python3
"""A trace of LTTng's beside a device's folder: lttng_test.py PLUGINS BEACON LIBRARY SCRIPTS.

SCRIPTS is the folder of lttng.py. Exit status 77 if LTTng cannot run here; the reason is printed.
"""

import os
import re
import subprocess
import sys

PLUGINS, BEACON, LIBRARY, SCRIPTS = (os.path.abspath(each) for each in sys.argv[1:])
sys.path.insert(0, SCRIPTS)
from lttng import CannotRun, LttngDaemon  # noqa: E402


def record(daemon):
    """A program that both record leaves `device.log` and the trace `lttng`."""
    beacon = daemon.take(BEACON)
    daemon.take(LIBRARY)
    try:
        daemon.lttng("create", "beside", f"--output={daemon.home}/lttng")
        daemon.lttng("enable-event", "-s", "beside", "-u", "beacon:at")
        daemon.lttng("start", "beside")
        done = daemon.run("env", f"LD_LIBRARY_PATH={daemon.home}", "TZ=UTC", beacon, cwd=f"{daemon.home}/unit")
        assert done.returncode == 0, done
        daemon.lttng("stop", "beside")
        daemon.lttng("destroy", "beside")
    except CannotRun as problem:
        print(f"not run: {problem}")
        sys.exit(77)


def main():
    try:
        daemon = LttngDaemon()
    except CannotRun as problem:
        print(f"not run: {problem}")
        sys.exit(77)
    try:
        daemon.run("mkdir", f"{daemon.home}/unit")
        record(daemon)
        merged = subprocess.run(
            ["babeltrace2", "--clock-seconds", f"{daemon.home}/unit", f"{daemon.home}/lttng"], capture_output=True,
            text=True, check=False, env={**os.environ, "BABELTRACE_PLUGIN_PATH": PLUGINS})
        assert merged.returncode == 0, merged.stderr
        order = re.findall(r'place = \d|text = "(?:between|Cal)', merged.stdout)
        assert order == ["place = 1", 'text = "Cal', 'text = "between', "place = 2"], merged.stdout
    finally:
        daemon.close()


main()
