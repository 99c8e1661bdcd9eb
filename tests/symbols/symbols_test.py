#!/usr/bin/env python3
"""Addresses of stack traces, resolved by programs, libraries and debug files of several builds.

    symbols_test.py NIMA-POST HOSTS LIBRARY OBJCOPY

HOSTS is the folder of the programs that die, LIBRARY what they call.
"""

import json
import os
import pathlib
import re
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.dont_write_bytecode = True
sys.path[:0] = [str(HERE.parent / "report"), str(HERE.parent / "support")]
import page_rows  # noqa: E402
from devices import Program, codes_of, run, write  # noqa: E402

post = Program(sys.argv[1])
HOSTS, LIBRARY, OBJCOPY = sys.argv[2:]
ARM = "arm-linux-gnueabihf-"


def do(command):
    return subprocess.run(command, shell=True, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout


def line_of(mark, source="host.cpp"):
    """"host.cpp:31", the line that ends with the comment."""
    lines = (HERE / source).read_text(encoding="utf-8").splitlines()
    return f"{source}:{next(i for i, text in enumerate(lines, 1) if text.endswith('// ' + mark))}"


def calls(symbols):
    """"Jam<host.cpp:28 Pull<host.cpp:32 main@host.cpp:70 ": the calls that were resolved, without parameters and folders.

    Only those of the sources here; candidates of one frame are parted by "|".
    """
    told = ""
    for frame in symbols["frames"]:
        for index, candidate in enumerate(frame):
            told += "| " if index else ""
            for call in candidate["calls"]:
                file = pathlib.Path(call["file"] or "").name
                if file in ("host.cpp", "library.cpp", "arm.cpp"):
                    name = re.match(r".[^(]*", call["function"])[0].rsplit("::")[-1]
                    told += f"{name}{'<' if call['inlined'] else '@'}{file}:{call['line']} "
    return told


def renew(folder):
    shutil.rmtree(folder, ignore_errors=True)
    os.mkdir(folder)


def keep(*programs):
    """What is in the folder of symbols."""
    renew("symbols")
    for path in programs:
        shutil.copy(path, "symbols")


def host(name="symbols_host"):
    return f"{HOSTS}/{name}"


def die(way, name="symbols_host", strip=""):
    """Lets a copy of the host die. Returns the file of its first entry into the handler."""
    renew("run")
    for path in (host(name), LIBRARY):
        do(f"{OBJCOPY} {strip} {path} run/{os.path.basename(path)}" if strip else f"cp {path} run")
    with open("run/out", "wb") as out:
        subprocess.run([f"./{name}", way], cwd="run", env={**os.environ, "LD_LIBRARY_PATH": "."}, stdout=out,
                       stderr=subprocess.STDOUT, check=False)
    trace = next(pathlib.Path("run").glob("stacktrace*-1.txt"))
    shutil.copy(trace, trace.name)
    return trace.name


def crash(file, *folders, codes=(0, 1), finds=()):
    """What is told of a stack trace with symbols from these folders, and that the findings have these codes."""
    options = [word for folder in folders or ("symbols",) for word in ("--symbols", folder)]
    told = json.loads(post("crash", file, *options, "--json", codes=codes))
    assert set(finds) <= codes_of(told), told["findings"]
    return told


def called(file, *folders, **wanted):
    return calls(crash(file, *folders, **wanted)["symbols"])


def of_the_library():
    return (f"LightLamp@{line_of('lamp', 'library.cpp')} ScanPage@{line_of('scan', 'library.cpp')} ",
            f"main@{line_of('main library')} ")


def every_way_to_die_is_traced_to_its_lines():
    feed = f"Jam<{line_of('jam')} Pull<{line_of('pull')} FeedFrom@{line_of('feed')} "
    expected = {"first": f"AtTheFirstInstruction@{line_of('first')} ", "feed": feed,
                "deep": f"{feed}Deep@{line_of('bottom')} " + 40 * f"Deep@{line_of('deep')} ",
                "throw": f"Throw@{line_of('throw')} ", "report": f"Report@{line_of('report')} ",
                "library": of_the_library()[0]}
    for name in ("symbols_host", "symbols_host_fixed"):
        keep(host(name), LIBRARY)
        for way, wanted in expected.items():
            told = called(die(way, name), codes=(0,), finds=["symbols-placed"])
            assert told == f"{wanted}main@{line_of('main ' + way)} ", (name, told)


def a_stripped_program_is_read_by_what_was_kept():
    library, main = of_the_library()
    # The library exports a name, by which it is found. The program exports none.
    file = die("library", strip="--strip-all")
    keep(host(), LIBRARY)
    assert called(file, codes=(0,), finds=["symbols-nameless"]) == library

    # A manifest has its place, if it is the process's.
    build = re.search(r"Build ID: (\w+)", do(f"readelf -n {host()}"))[1]
    process = int(re.match(r"stacktrace(\d+)-", file)[1])
    first = re.search(r"^(\w+)-.*/symbols_host$", pathlib.Path("run/modules.txt").read_text(encoding="utf-8"), re.M)[1]

    def manifest(number, build_id):
        write("manifest.json", json.dumps({
            "manifest": 1, "tool": {"name": "nima-ctl"},
            "processes": [{"process": number, "name": "host", "modules": [
                {"path": "/bin/symbols_host", "address": f"0x{first}", "build_id": build_id}]}]}))

    manifest(process, build)
    assert called(file) == library + main
    # In an archive as well, beside a trace that is compressed itself.
    do(f"mkdir unit && gzip -c {file} >unit/{file}.gz && cp manifest.json unit && tar -czf unit.tar.gz unit")
    assert called("unit.tar.gz") == library + main
    post("report", "unit.tar.gz", "-o", "report.html", "--symbols", "symbols")
    assert line_of("main library") in str(stack_of_the_page()["resolved"])
    manifest(1, build)
    assert called(file) == library
    # It says that this is another build.
    manifest(process, "0123456789abcdef")
    assert called(file, finds=["symbols-other-build"]) == library


def stack_of_the_page():
    return page_rows.data_of(pathlib.Path("report.html"))["crashes"][0]["stacks"][0]


def debug_files_of_every_kind_are_found():
    file = die("library", strip="--strip-debug")
    library, main = of_the_library()
    assert called(file, "run") == "", "there are names, but no lines"
    # By their build id, in a tree of such names.
    os.makedirs("symbols/.build-id/ab")
    do(f"{OBJCOPY} --only-keep-debug {host()} symbols/.build-id/ab/1.debug")
    do(f"{OBJCOPY} --only-keep-debug --compress-debug-sections {LIBRARY} symbols/.build-id/ab/2.debug")
    assert called(file) == library + main
    once = crash(file, ".")["symbols"]
    assert calls(once) == library + main, "the programs without lines are the same builds"
    assert once["modules"][0]["lines"].endswith(".debug")
    # Without a build id by the link, whose sum keeps another file of the name away.
    renew("symbols")
    os.mkdir("symbols/debug")
    remove = f"{OBJCOPY} --remove-section .note.gnu.build-id"
    do(f"{remove} --only-keep-debug {LIBRARY} symbols/debug/link.debug")
    do(f"{remove} --strip-debug --add-gnu-debuglink=symbols/debug/link.debug {LIBRARY} symbols/library.so")
    linked = crash(file)["symbols"]
    assert calls(linked) == library and len(linked["modules"]) == 1, linked
    do("printf x >>symbols/debug/link.debug")
    both = crash(file)["symbols"]["frames"]
    assert any(len(frame) == 2 for frame in both), f"two candidates, one of them with lines: {both}"


def another_build_gives_no_wrong_lines():
    file = die("feed")
    keep(host("symbols_host_other"), LIBRARY)
    assert called(file, codes=(0,), finds=["symbols-no-base"]) == ""
    # The device's program came with the evidence: then the right folder is chosen, and the wrong one is refused.
    keep(LIBRARY)
    shutil.copy(host("symbols_host_other"), "symbols/symbols_host")
    do(f"{OBJCOPY} --strip-all {host()} symbols_host && tar -cf unit.tar {file} symbols_host && mkdir right && cp {host()} right")
    for evidence in (file, "unit.tar"):
        crash(evidence, finds=["symbols-other-build"])
    right = crash(file, "symbols", "right")["symbols"]
    assert line_of("main feed") in calls(right) and right["modules"][0]["build_confirmed"] is True, right
    # A frame that disagrees is left as it is, and the base that the others agree with is doubted.
    deep = pathlib.Path(die("deep")).read_text(encoding="utf-8")
    altered = deep.replace("(main+0x", "(main+0x1", 1)
    write("altered.txt", altered)
    os.remove("symbols_host")
    told = called("altered.txt", "right", finds=["symbols-doubtful"])
    assert "main@" not in told and f"Deep@{line_of('deep')}" in told, told
    # One that few agree with is none, and so is one at which no file can be.
    write("few.txt", altered.replace("Deep(int)+0x", "Deep(int)+0x1"))
    write("odd.txt", altered[:altered.index("\n") + 1] + "0x55a45c2f3e34: (main+0x354)\n")
    for name in ("few.txt", "odd.txt"):
        assert called(name, "right", finds=["symbols-no-base"]) == "", name


def folders_come_from_the_environment_too_and_the_page_shows_them():
    # Other folders here would be other devices.
    file = f"unit/{die('first')}"
    os.mkdir("unit")
    os.rename(os.path.basename(file), file)
    keep(host(), LIBRARY)
    os.environ["NIMA_SYMBOLS"] = "/nowhere:symbols"
    text = post("crash", file, codes=(0, 1), says="/nowhere: no folder")
    post("report", "unit", "-o", "report.html")
    del os.environ["NIMA_SYMBOLS"]
    assert "AtTheFirstInstruction() at " in text and line_of("first") in text, text
    stack = stack_of_the_page()
    assert len(stack["frames"]) == len(stack["resolved"]) and line_of("first") in str(stack["resolved"]), stack
    assert stack["statement"]
    assert json.loads(post("crash", file, "--json"))["symbols"] is None


def arm_files_are_read_on_any_machine():
    if not shutil.which(f"{ARM}g++"):
        print("not run for ARM: there is no cross compiler")
        return
    os.mkdir("symbols")
    do(f"{ARM}g++ -g -O1 -shared -fPIC -nostdlib -march=armv7-a+fp -o symbols/arm.so {HERE}/arm.cpp")
    values = {name: int(value, 16) for value, name in
              re.findall(r"^(\w+) \w (.*)$", do(f"{ARM}nm symbols/arm.so"), re.M)}
    base = 0x3F7A_0000
    # As the handler writes them: values of Thumb code are odd, addresses of returns to it as well; nm shows the address.
    thumb, hidden = values["InThumb"] + 1, values["_ZN12_GLOBAL__N_16HiddenEi"] + 1
    frames = [(0x100000, " (signalHandler(int)+0xd3)"), (0x200001, " (__default_sa_restorer+0xf)"),
              (thumb - 1, " (InThumb+0x0)"),  # the first instruction
              (values["InArm"] + 4, " (InArm+0x4)"),
              (hidden + 4, " -- error: unable to obtain symbol name for this frame"),
              *((thumb + offset + 1, f" (InThumb+0x{offset:x})") for offset in range(3, 16, 2))]
    write("arm.txt", "".join(f"0x{base + address:x}:{rest}\n" for address, rest in frames))
    symbols = crash("arm.txt")["symbols"]
    told = calls(symbols)
    wanted = {mark: line_of(mark, "arm.cpp") for mark in ("thumb begins", "arm", "hidden", "add", "thumb")}
    assert told.startswith(f"InThumb@{wanted['thumb begins']} InArm@{wanted['arm']} Hidden@{wanted['hidden']}"), told
    assert f"Add<{wanted['add']} InThumb@{wanted['thumb']}" in told, told
    assert symbols["modules"][0]["base"] == "0x3f7a0000"


def damaged_files_cost_their_symbols_and_nothing_else():
    file = die("feed")
    whole = pathlib.Path(host()).read_bytes()
    os.mkdir("symbols")
    frames = len(crash(file)["frames"])
    damaged = 0
    for attempt in range(40):
        data = bytearray(whole[:len(whole) * attempt // 15] if attempt < 15 else whole)
        state = attempt * 0x9E3779B97F4A7C15
        for _ in range(2000 if attempt >= 15 else 0):
            state = (state * 6364136223846793005 + 1442695040888963407) % 2**64
            data[(state >> 20) % len(data)] = state >> 56
        write("symbols/symbols_host", bytes(data))
        told = crash(file)
        assert len(told["frames"]) == len(told["symbols"]["frames"]) == frames, attempt
        assert post.code == ("symbols-damaged" in codes_of(told)), (attempt, told["findings"])
        damaged += post.code
    assert damaged
    # Other files are of use all the same.
    keep(host(), LIBRARY)
    write("symbols/cut", whole[:100])
    assert called(file) != ""


run(every_way_to_die_is_traced_to_its_lines, a_stripped_program_is_read_by_what_was_kept, debug_files_of_every_kind_are_found,
    another_build_gives_no_wrong_lines, folders_come_from_the_environment_too_and_the_page_shows_them,
    arm_files_are_read_on_any_machine, damaged_files_cost_their_symbols_and_nothing_else)
