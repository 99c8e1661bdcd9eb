#!/usr/bin/env python3
"""Many devices in one database: fleet_test.py NIMA-POST SIMULATOR [EMULATOR...].

What `nima-post index` keeps of them and `nima-post fleet` makes of it, on a fleet whose causes of death are known, and
on bundles that overlap or cannot be read.
"""

import contextlib
import io
import json
import os
import pathlib
import re
import shutil
import sqlite3
import subprocess
import sys
import tarfile
import threading

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "support"))
from devices import MILLISECOND, SECOND, Program, calibration, codes_of, crash_log, line, run, write  # noqa: E402

post, simulator = (Program(path, sys.argv[3:]) for path in sys.argv[1:3])


def write_fleet(devices=60):
    simulator("--fleet", "fleet", "--folders", str(devices), "--bytes", "20000")
    return told(json.loads(pathlib.Path("fleet/truth.json").read_text(encoding="utf-8")))


def index(*words, **expected):
    return json.loads(post("index", *words, "--json", **expected))


def fleet(*words):
    return json.loads(post("fleet", *words, "--json"))


def told(result):
    """What the truth and the program both tell of a signature."""
    return [(each["signature"], each["devices"], each["crashes"]) for each in result["signatures"]]


def rows(sql, path="fleet.db"):
    with contextlib.closing(sqlite3.connect(f"file:{path}?mode=ro", uri=True)) as database:
        return database.execute(sql).fetchall()


def count(sql, path="fleet.db"):
    return rows(f"SELECT count(*) FROM {sql}", path)[0][0]


def everything(path):
    """All rows of all tables."""
    return {table: rows(f"SELECT * FROM {table}", path)
            for table, in rows("SELECT name FROM sqlite_master WHERE type = 'table'", path)}


def crash_at(second, place=24):
    return crash_log(second * SECOND + 400 * MILLISECOND, f"10241631{second}", "/src/fuser.cpp", place)


def stack_of(*frames):
    return "".join(f"0x7fe142d026c8: ({frame})\n" for frame in ("signalHandler(int)+0x1d8", "__restore_rt+0x0", *frames))


def write_device(folder, files):
    os.makedirs(folder)
    for name, content in files.items():
        write(f"{folder}/{name}", content)


def write_archive(path, files):
    with tarfile.open(path, "w:gz") as archive:
        for name, content in files.items():
            entry = tarfile.TarInfo(name)
            entry.size = len(content)
            archive.addfile(entry, io.BytesIO(content.encode()))


def ranks_causes_as_they_struck():
    truth = write_fleet()
    # The database is in the middle of what is read, as are notes of somebody and an earlier page.
    write("fleet/notes.txt", "call the customer\n")
    database = "fleet/fleet.db"
    first = index("fleet", "--db", database)
    assert post.errors == "", post.errors
    ranked = fleet(database, "--version-from", "firmware ([0-9.]+)", "--html", "fleet/page.html")
    assert told(ranked) == truth, ranked
    assert ranked["devices"] == 60 and first["new_cases"] == ranked["cases"], (first, ranked)
    for each in ranked["signatures"]:
        assert os.path.isdir(each["example"]) and each["first"] <= each["last"], each
        assert sum(share["crashes"] for share in each["firmware"]) == each["crashes"], each

    # Once more, with more threads: there is nothing new.
    before = everything(database)
    again = index("fleet", "--db", database, "--threads", "7")
    assert (again["new_cases"], again["cases"]) == (0, first["cases"]), again
    assert everything(database) == before

    text = pathlib.Path("fleet/page.html").read_text(encoding="utf-8")
    page = json.loads(re.search(r'id="data">(.*?)</script>', text, re.S)[1])
    assert told(page) == truth, page
    # The struck devices have one thing to say that others have not.
    struck = next(each for each in page["signatures"] if each["signature"] == "0x0031ac05 at fuser.cpp:24")
    assert [(each["text"], each["healthy"]) for each in struck["messages"]] == [("fuser is # degrees too hot", 0)], struck
    # One that was fetched without its log has no date, and its own column.
    undated = sum(crashes for each in page["signatures"] for day, crashes in (day[:2] for day in each["days"]) if day is None)
    assert undated == count("crashes WHERE time IS NULL", database) > 0


def goes_on_where_it_was_killed():
    write_fleet()
    post("index", "fleet", "--db", "whole.db")
    cases = count("cases", "whole.db")
    for wanted in range(1, cases, cases // 6):
        with subprocess.Popen([*post.words, "index", "fleet", "--db", "fleet.db"], stdout=subprocess.DEVNULL) as child:
            reached = False
            while not reached and child.poll() is None:
                # Unless it has not begun yet.
                with contextlib.suppress(sqlite3.OperationalError):
                    reached = count("cases") >= wanted
            child.kill()
            assert reached or count("cases") >= wanted, child.returncode
    post("index", "fleet", "--db", "fleet.db")
    assert everything("fleet.db") == everything("whole.db")


def two_writers_and_a_lock_are_waited_for():
    truth = write_fleet(20)
    call = ["index", "fleet", "--db", "fleet.db"]
    writers = [subprocess.Popen([*post.words, *call], stdout=subprocess.DEVNULL) for _ in range(2)]
    assert [writer.wait() for writer in writers] == [0, 0]
    assert count("devices") == 20
    assert count("cases") == count("(SELECT DISTINCT device_id, content FROM cases)")
    assert told(fleet("fleet.db")) == truth

    with contextlib.closing(sqlite3.connect("fleet.db", isolation_level=None, check_same_thread=False)) as holder:
        holder.execute("BEGIN IMMEDIATE")
        release = threading.Timer(0.5, holder.execute, ["COMMIT"])
        release.start()
        post(*call)
        release.join()


def tells_the_same_again():
    """A bundle counts once in whatever form it comes, and so does a crash in whatever bundle of its device."""
    stack = stack_of("Feed(int)+0x11d", "main+0x2")
    bundle = {"crash.txt": crash_at(41), "stacktrace7-1.txt": stack}
    write_device("monday/unit-1", bundle)
    write_device("copy/unit-1", bundle)
    write_archive("unit-1.tar.gz", bundle)
    post("index", "monday", "unit-1.tar.gz", "copy", "--db", "fleet.db")
    assert [count(table) for table in ("devices", "cases", "crashes")] == [1, 1, 2]

    # Later the log has moved on, and there are new ones: another crash log, and another process of the same number that
    # died at another place. A second device has the first one's log, byte for byte.
    write_archive("tuesday.tar.gz", {"bundle/unit-1/crash.txt.1": crash_at(41), "bundle/unit-1/crash.txt": crash_at(55),
                                     "bundle/unit-1/stacktrace7-1.txt": stack_of("Feed(int)+0x11d", "Other()+0x2"),
                                     "bundle/unit-1/stacktrace8-1.txt": stack, "bundle/unit-2/crash.txt": crash_at(41)})
    assert index("tuesday.tar.gz", "--db", "fleet.db")["new_crashes"] == 4
    assert (count("crashes"), count("case_crashes")) == (6, 7)
    ranked = fleet("fleet.db")
    assert told(ranked) == [("0x0031ac05 at fuser.cpp:24", 2, 3), ("Feed(int) | main", 1, 2), ("Feed(int) | Other()", 1, 1)]
    # What the archive's folder is called for --device.
    example = ranked["signatures"][2]
    assert example["example"] == os.path.abspath("tuesday.tar.gz") and example["example_device"] == "bundle/unit-1", example
    post("crash", "tuesday.tar.gz", "--device", "bundle/unit-1")


def takes_a_log_and_a_report_for_one_crash():
    """One bundle has only the log, another only the host's report, and the third shows that they are one."""
    report = ("ways.cpp, line 54: Message: [too hot]\nways.cpp, line 54: Code: 3255301, 0x0031ac05\n"
              "0x5612: (Report()+0x11d)\n")
    write_device("log/unit-3", {"crash.txt": crash_at(41)})
    write_device("report/unit-3", {"stacktrace7-1.txt": report})
    write_device("both/unit-3", {"crash.txt": crash_at(41), "stacktrace7-1.txt": report})
    post("index", "report", "log", "--db", "one.db")
    assert count("crashes", "one.db") == 2
    post("index", "both", "--db", "one.db")
    assert told(fleet("one.db")) == [("0x0031ac05 at fuser.cpp:24", 1, 1)]
    assert count("case_crashes", "one.db") == 3

    # Databases and a page in a device's own folder make it no other case.
    folder, own = "both/unit-3", "both/unit-3/own.db"
    shutil.copy("one.db", f"{folder}/another.db")
    for _ in range(2):
        post("index", folder, "--db", own)
        post("fleet", own, "--html", f"{folder}/page.html")
    os.remove(f"{folder}/another.db")
    post("index", folder, "--db", own)
    assert (count("cases", own), count("files WHERE state = 'ok'", own)) == (1, 2)


def names_devices_as_it_is_told():
    write_device("dated/unit-1-monday", {"crash.txt": crash_at(41)})
    write_device("dated/unit-1-friday", {"crash.txt.1": crash_at(41), "crash.txt": crash_at(42, 25)})
    post("index", "dated", "--db", "dated.db", "--device-from", r"(unit-\d+)-")
    assert count("devices WHERE name = 'unit-1'", "dated.db") == 1
    assert (count("cases", "dated.db"), count("crashes", "dated.db")) == (2, 2)
    # An expression that finds nothing, though in many places, leaves the folder's name.
    post("index", "dated", "--db", "named.db", "--device-from", "(x*)")
    assert count("devices WHERE name LIKE 'unit-1-%'", "named.db") == 2


def knows_the_firmware_of_the_time():
    """After an update, a crash before it is of the firmware that ran then, though no process is known."""
    updated = (calibration(1000, "1024163100", 100) + line(1001, "<INFO> <Main> firmware 4.2.0") +
               calibration(1050, "1024163150", 100, 2) + line(1051, "<INFO> <Main> firmware 4.3.0", 2))
    write_device("updated/unit-1", {"device.log": updated, "crash.txt.1": crash_at(41), "crash.txt": crash_at(55, 25)})
    post("index", "updated", "--db", "fleet.db")
    assert count("crashes WHERE process IS NULL") == 2
    causes = fleet("fleet.db", "--version-from", "firmware (.*)")["signatures"]
    assert {each["signature"]: each["firmware"][0]["version"] for each in causes} == {
        "0x0031ac05 at fuser.cpp:24": "4.2.0", "0x0031ac05 at fuser.cpp:25": "4.3.0"}, causes


def bad_input_costs_itself_alone():
    for name, second in (("good", 41), ("also", 42)):
        write_device(f"fleet/{name}", {"crash.txt": crash_at(second)})
    write_archive("fleet/broken.tar.gz", {"unit/crash.txt": crash_at(43)})
    os.truncate("fleet/broken.tar.gz", os.path.getsize("fleet/broken.tar.gz") // 2)
    os.mkdir("fleet/closed")
    os.symlink("nowhere", "fleet/closed/device.log")
    # What cannot be opened is told again, and kept once.
    for _ in range(2):
        result = index("fleet", "missing", "--db", "fleet.db", codes=(1,))
        assert {"cannot-open", "archive-damaged"} <= codes_of(result), result
        assert count("devices WHERE name IN ('good', 'also')") == 2
        assert count("findings WHERE case_id IS NULL AND code = 'cannot-open'") == 2

    # One in which nothing would be is not made.
    post("index", "missing", "--db", "empty.db", codes=(2,))
    assert not os.path.exists("empty.db")

    write("text.db", 5000 * "x")
    for path, pragma in (("newer.db", "user_version = 2"), ("other.db", "application_id = 7")):
        shutil.copy("fleet.db", path)
        with contextlib.closing(sqlite3.connect(path)) as database:
            database.execute(f"PRAGMA {pragma}")
    for path, words in (("text.db", "no database"), ("newer.db", "version 2"), ("other.db", "another program")):
        before = pathlib.Path(path).read_bytes()
        for call in (["index", "fleet", "--db", path], ["fleet", path]):
            post(*call, codes=(2,), says=words)
            assert "--db" in post.errors, post.errors
        assert pathlib.Path(path).read_bytes() == before, path
    # What SQLite would keep for the moment only.
    post("index", "fleet", "--db", "", codes=(2,))
    post("index", "fleet", "--db", ":memory:", codes=(1,))
    assert os.path.exists(":memory:")
    post("fleet", "fleet", codes=(2,), says="a folder")
    post("fleet", "none.db", codes=(2,))
    assert not os.path.exists("none.db")
    post("index", "fleet", "--db", "fleet.db", "--device-from", "(", codes=(2,))
    post("fleet", "fleet.db", "--html", "fleet.db", codes=(2,))
    post("fleet", "fleet.db")


run(ranks_causes_as_they_struck, goes_on_where_it_was_killed, two_writers_and_a_lock_are_waited_for, tells_the_same_again,
    takes_a_log_and_a_report_for_one_crash, names_devices_as_it_is_told, knows_the_firmware_of_the_time,
    bad_input_costs_itself_alone)
