#!/usr/bin/env python3
"""Opens the page of `nima-post report` for a long log in a browser, and prints what that costs.

    page.py [--lines N] [--rounds N] NIMA_POST WORK_FOLDER

From the start of the navigation to the first picture: the timeline and the list are drawn. Needs chromium,
chromium-driver and python3-selenium.
"""

import argparse
import pathlib
import random
import shutil
import statistics
import subprocess
import sys
import time

from selenium.webdriver.support.ui import WebDriverWait

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests/report"))
import report_page_test  # noqa: E402

SECOND = 1_000_000_000
LEVELS = ["DEBUG"] * 50 + ["INFO"] * 34 + ["PERF"] * 8 + ["WARN"] * 6 + ["ERROR"] * 2
NAMES = ["Engine", "Panel", "Scanner", "Network", "Fuser", "Finisher", "Store", "Web"]
MESSAGES = ["sheet %d leaves tray %d", "fuser at %d C, set %d", "key 0x%x pressed on screen %d", "line %d read in %d us",
            "job %d accepted from 10.0.0.%d", "SNMP poll %d of %d answered", "lamp warm after %d ms (%d tries)"]
# Drawn is what a frame has followed.
WATCH = """
    new MutationObserver((_, observer) => {
        const text = document.querySelector('#grid-rows .c-text');
        if (text?.textContent && !document.body.classList.contains('loading')) {
            observer.disconnect();
            requestAnimationFrame(() => setTimeout(() => { window.firstPicture = performance.now(); }, 0));
        }
    }).observe(document, {subtree: true, childList: true, characterData: true, attributes: true});"""


def write_log(path, lines):
    """As a device writes it: eight threads, a line about every 3 ms."""
    chance = random.Random(1)
    counter, seconds = 288_508_338, 100
    with path.open("w", newline="") as log:
        log.write(f"{seconds + counter} <0x979fe6c0:000> <CAL> <Trace> Calibration freq=1000000, "
                  "now=01261024150926.46886, type=qpc\r\n")
        for _ in range(lines):
            counter += chance.randrange(1_500_000, 4_500_000)
            seconds, counter = seconds + counter // SECOND, counter % SECOND
            thread = chance.randrange(len(NAMES))
            text = chance.choice(MESSAGES) % (chance.randrange(100_000), chance.randrange(400))
            log.write(f"{seconds + counter} <0x{0x979fe6c0 - thread * 0x800000:08x}:000> "
                      f"<{chance.choice(LEVELS)}> <{NAMES[thread]}> {text}\r\n")


def memory_of(process):
    """Bytes that are this process's own, or a share of which is."""
    try:
        for line in pathlib.Path(f"/proc/{process}/smaps_rollup").read_text().splitlines():
            if line.startswith("Pss:"):
                return int(line.split()[1]) * 1024
    except OSError:
        pass
    return 0


def descendants(process):
    children = [child for task in pathlib.Path(f"/proc/{process}/task").iterdir()
                for child in (task / "children").read_text().split()]
    return [process] + [each for child in children for each in descendants(child)]


def memory_of_page(browser):
    """Of the browser's processes that draw pages, the one with the most is the one with the page."""
    drawing = [each for each in descendants(browser.service.process.pid)
               if b"--type=renderer" in pathlib.Path(f"/proc/{each}/cmdline").read_bytes()]
    return max(memory_of(each) for each in drawing)


def open_once(browser, page):
    browser.get("about:blank")
    browser.get(page.as_uri())
    WebDriverWait(browser, 120).until(lambda b: b.execute_script("return window.firstPicture !== undefined;"))
    first = browser.execute_script("return window.firstPicture;") / 1000
    memory = memory_of_page(browser)
    begin = time.monotonic()
    browser.execute_async_script("""
        const done = arguments[0];
        const box = document.getElementById('search'); box.value = 'no such text anywhere';
        box.dispatchEvent(new Event('input', {bubbles: true}));
        const look = () => {
            if (document.getElementById('count').dataset.matches === '0') { done(); } else { setTimeout(look, 10); }
        };
        look();""")
    return first, time.monotonic() - begin, memory


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("program", type=pathlib.Path)
    arguments.add_argument("folder", type=pathlib.Path)
    arguments.add_argument("--lines", type=int, default=1_000_000)
    arguments.add_argument("--rounds", type=int, default=5)
    given = arguments.parse_args()
    shutil.rmtree(given.folder, ignore_errors=True)
    device = given.folder / "device"
    device.mkdir(parents=True)
    write_log(device / "device.log", given.lines - 1)
    page = (given.folder / "report.html").resolve()
    written = subprocess.run(["/usr/bin/time", "-f", "%U %M", given.program, "report", device, "--rows", str(given.lines),
                              "-o", page], check=True, capture_output=True, text=True).stderr.split()
    browser = report_page_test.start_browser(given.folder / "profile")
    try:
        browser.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": WATCH})
        rounds = [open_once(browser, page) for _ in range(given.rounds)]
    finally:
        browser.quit()
    first, search, memory = (statistics.median(each) for each in zip(*rounds))
    print(f"written     {float(written[-2]):.2f} s of processor time, {int(written[-1]) / 1000:.0f} MB of memory")
    print(f"page        {page.stat().st_size / 1e6:.1f} MB for {given.lines:,} lines, "
          f"{(device / 'device.log').stat().st_size / 1e6:.0f} MB of log")
    print(f"opened      {first:.2f} s to the first picture ({min(each[0] for each in rounds):.2f} to "
          f"{max(each[0] for each in rounds):.2f}), {memory / 1e6:.0f} MB in the page's process")
    print(f"searched    {search:.2f} s for a text that no line has")


if __name__ == "__main__":
    main()
