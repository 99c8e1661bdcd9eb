#!/usr/bin/env python3
"""What `nima-post export` writes, loaded as doc/schema.md says: export_test.py NIMA-POST SIMULATOR SOURCES MODULES.

The causes that DuckDB finds in it are to be those of `nima-post fleet`. DuckDB comes from npm and is kept in the folder
MODULES. Where npm does not answer, only SQLite runs the statement of the ranking.
"""

import csv
import io
import json
import os
import pathlib
import re
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import time

POST, SIMULATOR, SOURCES, MODULES = sys.argv[1:]


def run(*words, code=0):
    done = subprocess.run(words, capture_output=True, text=True, check=False)
    assert done.returncode == code, f"{words}: {done.returncode}\n{done.stdout}{done.stderr}"
    return done.stdout if code == 0 else done.stderr


def statements(heading):
    """The statements of doc/schema.md below a heading."""
    page = pathlib.Path(SOURCES, "doc/schema.md").read_text(encoding="utf-8")
    block = re.search(rf"^## {heading}\n.*?^```sql\n(.*?)^```", page, re.M | re.S).group(1)
    return [text.strip() for text in block.split(";\n") if text.strip()]


def files(folder):
    return {str(path.relative_to(folder)): path.read_bytes()
            for path in pathlib.Path(folder).rglob("*") if path.is_file()}


def rows(folder, table):
    """The rows of a table, with device and day from their paths."""
    for path in sorted(pathlib.Path(folder, table).rglob("*.zst")):
        text = run("zstd", "-dc", str(path))
        keys = dict(part.split("=", 1) for part in path.parts if "=" in part)
        lines = ([json.loads(line) for line in text.split("\n")[:-1]] if ".jsonl." in path.name
                 else list(csv.DictReader(io.StringIO(text, newline=""))))
        for line in lines:
            yield {**line, **keys}


def plain(row):
    """A row of either form in the words of CSV."""
    def words(value):
        return value if isinstance(value, str) else "" if value is None else json.dumps(value, separators=(",", ":"))
    return {key: words(value) for key, value in row.items()}


def on_sqlite():
    database = sqlite3.connect(":memory:")
    database.execute("CREATE TABLE crashes (device, case_id, crash_id, marks, signature)")
    database.executemany("INSERT INTO crashes VALUES (:device, :case_id, :crash_id, :marks, :signature)",
                         rows("export", "crashes"))
    return [list(row) for row in database.execute(statements("Ranking")[0])]


def on_duckdb(events):
    """The ranking; empty where there is no DuckDB."""
    if not (shutil.which("npm") and shutil.which("node")):
        return None
    if not pathlib.Path(MODULES, "node_modules/@duckdb/node-api").is_dir():
        try:
            shutil.rmtree(MODULES, ignore_errors=True)
            # Under its name only when it is whole.
            subprocess.run(["npm", "install", "--prefix", "duckdb", "--no-audit", "--no-fund", "--fetch-retries=0",
                            "@duckdb/node-api@1.5.6-r.1"], capture_output=True, timeout=60, check=True)
            shutil.move("duckdb", MODULES)
        except (subprocess.SubprocessError, OSError):
            return None
    count = ("SELECT count(*), count(time), count(DISTINCT device), sum(thread), sum(len(text)), sum({}), "
             "count(assuming), sum(likely_later_by_seconds), count(earlier_assuming), sum(likely_earlier_by_seconds) "
             "FROM {}")
    lists = [statements("DuckDB") + statements("Ranking"), [count.format("len(arguments)", "events")],
             [count.format("json_array_length(arguments)", "events_csv")]]
    done = subprocess.run(["node", str(pathlib.Path(SOURCES, "tests/export_test.mjs")), MODULES],
                          input=json.dumps(lists), capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr
    ranking, from_json, from_csv = json.loads(done.stdout)
    devices = len({row["device"] for row in rows("export", "events")})
    assert from_json == from_csv, (from_json, from_csv)
    assert (int(from_json[0][0]), int(from_json[0][2])) == (events, devices), (from_json, events, devices)
    return [[row[0], int(row[1]), int(row[2])] for row in ranking]


def loads_and_ranks():
    run(SIMULATOR, "--fleet", "fleet", "--folders", "60", "--bytes", "20000")
    # The last one's name stands for null, and those before it are longer than a folder's may be once escaped.
    for name in ("it's, a \"unit\" äö", "ü" * 100, "ü" * 99 + "u", "__HIVE_DEFAULT_PARTITION__"):
        pathlib.Path("fleet", name).mkdir()
        pathlib.Path("fleet", name, "device.log").write_bytes(
            b'5 <0x00000001:000> <WARN> <"One"> caf\xc3\xa9 \xff, "quoted"\r\nsecond line\r\n')
    # Two threads may have one case at the same moment.
    shutil.copytree("fleet/unit-0001", "fleet/unit-0001-copy/unit-0001")
    run(POST, "index", "fleet", "--db", "fleet.db")
    fleet = json.loads(run(POST, "fleet", "fleet.db", "--json"))
    told = json.loads(run(POST, "export", "fleet", "--to", "export", "--json", "--threads", "1"))
    run(POST, "export", "fleet", "--to", "csv", "--format", "csv")
    assert (told["cases"], told["crashes"]) == (fleet["cases"], fleet["crashes"]), (told, fleet)
    for table in ("events", "crashes", "processes", "files"):
        assert [plain(row) for row in rows("export", table)] == [plain(row) for row in rows("csv", table)], table
    tells_doubts_and_bounds_as_summaries_do()
    wanted = [[each["signature"], each["devices"], each["crashes"]] for each in fleet["signatures"]]
    assert len(wanted) > 3 and on_sqlite() == wanted, (on_sqlite(), wanted)
    on_duck = on_duckdb(told["events"])
    print("DuckDB:", "not run, npm does not answer" if on_duck is None else "the same ranking")
    assert on_duck in (None, wanted), (on_duck, wanted)


def tells_doubts_and_bounds_as_summaries_do():
    def same(told, summed, names):
        bounded = [{name: None if each[name] == "unbounded" else each[name] for name in names} for each in summed]
        assert [{name: each[name] for name in names} for each in told] == bounded, (told, bounded)

    for device in sorted({row["device"] for row in rows("export", "crashes")})[:5]:
        summary = json.loads(run(POST, "summary", f"fleet/{device}", "--json"))
        crashes, processes = ([row for row in rows("export", table) if row["device"] == device] for table in ("crashes", "processes"))
        same(crashes, summary["crashes"], ("title", "time", "certainty", "later_by_seconds", "earlier_by_seconds", "date_cut_ns",
                                           "boot_doubt", "process_doubt"))
        same(processes, summary["processes"], ("process", "boot", "boot_doubt"))
        assert [row["doubts"] or "" for row in processes] == [" ".join(each["doubts"]) for each in summary["processes"]]
        tells_likely_bounds_of_events(device)


def tells_likely_bounds_of_events(device):
    names = ("likely_later_by_seconds", "assuming", "likely_earlier_by_seconds", "earlier_assuming")

    def bounds(events):
        return sorted(([each.get(name) for name in ("file", "text", *names)] for each in events), key=str)

    shown = json.loads(run(POST, "show", f"fleet/{device}", "--json"))["events"]
    told = bounds(row for row in rows("export", "events") if row["device"] == device)
    assert told == bounds(each for each in shown if each["kind"] != "crash") and any(row[3] or row[5] for row in told), told[:9]


def leaves_what_is_not_its_own():
    pathlib.Path("mine").mkdir()
    pathlib.Path("mine/thesis.txt").write_text("years of work", encoding="utf-8")
    assert "no export" in run(POST, "export", "fleet", "--to", "mine", code=2)
    assert files("mine") == {"thesis.txt": b"years of work"}
    assert "another form" in run(POST, "export", "fleet", "--to", "export", "--format", "csv", code=2)


def is_the_same_after_any_end():
    whole = files("export")
    assert all(name.endswith(".jsonl.zst") or name == "_nima-export" for name in whole)
    call = [POST, "export", "fleet", "--to", "fleet/out/"]
    # In the middle of what is read, and killed on the way again and again.
    for attempt in range(6):
        with subprocess.Popen([*call, "--threads", "5"], stdout=subprocess.DEVNULL) as child:
            # Folders come and go meanwhile, which os.walk passes over.
            while child.poll() is None and sum(len(names) for _, _, names in os.walk("fleet/out")) <= 40 * attempt:
                time.sleep(0.001)
            child.kill()
        for name, content in files("fleet/out").items():
            assert name.startswith("_") or whole[name] == content, name
    run(*call, "--threads", "5")
    assert files("fleet/out") == whole


with tempfile.TemporaryDirectory() as place:
    os.chdir(place)
    loads_and_ranks()
    leaves_what_is_not_its_own()
    is_the_same_after_any_end()
    os.chdir("/")
