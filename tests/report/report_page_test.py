#!/usr/bin/env python3
"""Opens report pages in headless Chromium and uses them as a reader does.

    report_page_test.py --page-program PROGRAM    samples, inserted into the page that is built into the program
    report_page_test.py FILE.html...              pages that the tool has written

Needs the packages chromium, chromium-driver and python3-selenium.
"""

import argparse
import datetime
import json
import pathlib
import re
import sys
import tempfile

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select, WebDriverWait

sys.dont_write_bytecode = True
import page_rows  # noqa: E402
import sample_page  # noqa: E402

FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
         "--disable-component-update", "--disable-sync", "--window-size=1366,900", "--force-device-scale-factor=1"]
SECOND = 1_000_000_000
DAY = 86400 * SECOND
UNSEEN = re.compile("[\0-\x08\x0b-\x1f\x7f-\x9f\xad\u034f\u061c\u180e\u200b-\u200f\u2028-\u202e\u2060-\u206f\ufeff\ufff9-\ufffb]")


def visible(text):
    return UNSEEN.sub(lambda m: f"\\x{ord(m[0]):02x}" if ord(m[0]) < 0x100 else f"\\u{ord(m[0]):04x}", text)


def visible_line(text):
    return visible(text).replace("\n", "↵")


class Results:
    def __init__(self):
        self.passed = self.failed = 0

    def check(self, name, condition, shown=""):
        self.passed, self.failed = self.passed + bool(condition), self.failed + (not condition)
        print(f"{'ok  ' if condition else 'FAIL'} {name}" + (f": {shown}" if not condition and shown != "" else ""), flush=True)


class Page:
    def __init__(self, browser, path, results, data=None):
        self.browser, self.path, self.results = browser, path, results
        self.data = data or page_rows.data_of(path)
        self.rows = self.data["rows"]

    def check(self, name, condition, shown=""):
        self.results.check(f"{self.path.stem}: {name}", condition, shown)

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def run(self, script, *args):
        return self.browser.execute_script(script, *args)

    def all_texts(self, selector):
        return self.run("return [...document.querySelectorAll(arguments[0])].map((node) => node.textContent);", selector)

    def settle(self):
        """Waits until everything requested has been found and drawn."""
        self.browser.execute_async_script("""
            const done = arguments[0];
            const look = () => requestAnimationFrame(() => requestAnimationFrame(() => setTimeout(() => {
                const count = document.getElementById('count');
                if (!count || count.dataset.matches) { done(); } else { look(); }
            }, 0)));
            look();""")

    def open(self, fragment=""):
        """A fragment alone would not load the page anew."""
        if fragment:
            self.browser.get("about:blank")
        else:
            for kind in ("browser", "performance"):
                self.browser.get_log(kind)
        self.browser.get(self.path.as_uri() + fragment)
        WebDriverWait(self.browser, 60).until(lambda b: "loading" not in (self.find("body").get_attribute("class") or ""))
        self.settle()

    def view(self):
        return self.run("const {from, to} = document.getElementById('range').dataset; return [Number(from), Number(to)];")

    def span(self):
        begin, end = self.view()
        return end - begin

    def details(self):
        return self.run("return document.getElementById('details-body').textContent;")

    def detail_text(self):
        return self.run("return document.querySelector('#details-body .detail-text')?.textContent ?? null;")

    def count(self):
        return int(self.find("#count").get_attribute("data-matches"))

    def selected_line(self):
        return self.run("return document.querySelector('#grid .record.selected:not([hidden]) .c-text')?.textContent ?? null;")

    def click(self, selector):
        self.run("document.querySelector(arguments[0]).scrollIntoView({block: 'center'});", selector)
        self.find(selector).click()
        self.settle()

    def key(self, selector, *keys):
        self.run("document.querySelector(arguments[0]).focus({preventScroll: true});", selector)
        ActionChains(self.browser).send_keys(*keys).perform()
        self.settle()

    def search(self, text):
        self.run("""const box = document.getElementById('search'); box.value = arguments[0];
                    box.dispatchEvent(new Event('input', {bubbles: true}));""", text)
        self.settle()

    def reset(self):
        self.click("#filter-reset")

    def matching(self, needle):
        names = self.data["names"]
        def text(row):
            name = names[row[5]] if 0 <= row[5] < len(names) else ""
            return "\n".join([row[6], " ".join(row[7] if len(row) > 7 else []), name]).lower()
        return sum(needle.lower() in text(row) for row in self.rows)

    # ---- The checks ----

    def quiet(self):
        messages = [entry["message"] for entry in self.browser.get_log("browser")]
        self.check("the console is silent", not messages, messages[:3])
        requests = []
        for entry in self.browser.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                requests.append(message["params"]["request"]["url"])
        foreign = [url for url in requests if not url.startswith(("file://" + str(self.path), "data:"))]
        self.check("nothing but the file itself is requested", requests and not foreign, foreign[:3] or "no request seen")
        self.check("no text became markup or script", self.run("""
            return window.broken === undefined && document.images.length === 0 &&
                [...document.scripts].filter((node) => !node.type).length === 2;"""))

    def texts(self):
        shown = self.run("return document.body.innerText;").replace("\xa0", " ")
        crashes = self.data["crashes"][::-1]
        title = crashes[0]["title"] if crashes else "No crash log in this folder"
        self.check("the latest crash is at the top", self.find("#failure-title").text.split() == visible(title).split() and
                   visible(title).split()[0] in shown)
        titles = self.run("return [...document.querySelectorAll('#failure .crash > summary')].map((n) => n.firstChild.textContent);")
        self.check("the earlier ones are listed below, the newest first", titles == [
            f"{len(crashes) - 1 - index}. {visible(crash['title'])}" for index, crash in enumerate(crashes[1:])], titles)
        facts = self.all_texts("#failure dd, #failure li")
        wanted = [value for crash in crashes for _, value in crash.get("summary", [])]
        self.check("every fact of the crashes is shown", all(visible(str(value)) in facts for value in wanted))
        frames = self.all_texts(".frames .frame")
        expected = [visible(frame) for crash in crashes for stack in crash.get("stacks", []) for frame in stack["frames"]]
        self.check("every frame is shown", frames == expected)
        resolved = self.all_texts(".frames .resolved")
        lines = [line for crash in crashes for stack in crash.get("stacks", [])
                 for frame in stack.get("resolved", []) for line in frame]
        self.check("and what symbols say about it", resolved == [visible(line) for line in lines])
        statements = self.all_texts("#clock li")
        self.check("the statements about time are shown",
                   not self.data["clock"].get("statement") or
                   statements == [visible(line["sentence"]) for line in self.data["clock"]["statement"]])
        notes = self.all_texts("#files-table .notes p")
        self.check("the notes of all files are shown",
                   notes == [visible(note["sentence"]) for file in self.data["files"] for note in file.get("notes", [])])
        rings = self.all_texts("#rings-table tbody tr")
        self.check("all rings are in their table, with the marks of their times", [line.endswith(" ?") for line in rings] == [
            ring.get("sure") == 3 and ring["newest"] is not None for ring in self.data["rings"]], rings)
        active = [ring for crash in crashes for ring in crash.get("activeRings", []) if "sure" in ring]
        self.check("so are those that were active last", sum("newest" in fact and fact.endswith(" ?") for fact in facts) ==
                   len(active), facts)

    def layout(self):
        for width in (1366, 820, 390):
            self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                         {"width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False})
            self.settle()
            over = self.run("const e = document.documentElement; return e.scrollWidth - e.clientWidth;")
            self.check(f"nothing sticks out at a width of {width}", over <= 0, over)
        self.browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})
        self.settle()
        unnamed = self.run("""
            const named = (node) => node.labels?.length || node.getAttribute('aria-label') || node.getAttribute('aria-labelledby') ||
                node.textContent.trim();
            return [...document.querySelectorAll('button, select, input, [tabindex]')]
                .filter((node) => node.getClientRects().length && !named(node))
                .map((node) => node.outerHTML);""")
        self.check("every control has a name", not unnamed, unnamed[:2])

    def theme(self):
        read = "return getComputedStyle(document.body).backgroundColor + getComputedStyle(document.body).color;"
        pixel = "return document.getElementById('chart').toDataURL();"
        before = self.run(read), self.run(pixel)
        self.click("#theme")
        dark = self.run(read), self.run(pixel)
        self.check("the button changes the colours of page and timeline", before[0] != dark[0] and before[1] != dark[1])
        self.click("#theme")
        self.check("and changes them back", (self.run(read), self.run(pixel)) == before)

    def lists(self):
        """Every crash, boot and process leads to its records."""
        crashes, boots, processes = (self.data.get(each, []) for each in ("crashes", "boots", "processes"))
        for name, told in (("crash", crashes), ("boot", boots), ("process", processes)):
            shown = self.all_texts(f"#{name}-list tbody tr")
            self.check(f"each {name} is in its list, with what tells", len(shown) == len(told) and all(
                visible(each.get("proof", each.get("after", ""))) in line and
                visible(each.get("title", each.get("words", ""))) in line and
                visible(each.get("processWords", "")) in line for each, line in zip(told, shown)), shown)
        for index, crash in enumerate(crashes):
            if crash.get("row") is None:
                continue
            self.click(f"#crash-list tbody tr:nth-child({index + 1}) a")
            begin, end = self.view()
            self.check(f"crash {index + 1} leads to its record", self.shows(crash["row"]) and begin <= crash["time"] <= end and
                       f"row={crash['row'] + 1}" in self.fragment(), (self.fragment(), self.details()[:80]))
        for name, column, numbers in (("boot", 9, [boot["boot"] for boot in boots]),
                                      ("process", 8, range(1, len(processes) + 1))):
            for index, number in enumerate(numbers):
                self.click(f"#{name}-list tbody tr:nth-child({index + 1}) a")
                expected = sum((row + [0] * 10)[column] == number for row in self.rows)
                self.check(f"{name} {number} leads to its records", self.count() == expected, (self.count(), expected))
        self.doubts(processes)
        self.reset()
        self.key("#lanes", Keys.HOME, Keys.ESCAPE)

    def doubts(self, processes):
        """A record that may be another process's says so, a line beside it does not."""
        for number, process in enumerate(processes, 1):
            probable = process.get("probable", {})
            for kind, sources in (("lines", (0,)), ("records", (1, 2))):
                of = [index for index, row in enumerate(self.rows) if (row + [0] * 10)[8] == number and row[2] in sources]
                for index in of[:1] if probable else []:
                    self.open(f"#row={index + 1}")
                    shown = f"probably {process['words']}" in self.details()
                    self.check(f"{kind} of process {number} are told with their doubt", shown == probable[kind], self.details())

    def fragment(self):
        return self.run("return location.hash;")

    def written_fragment(self, *parts, without=()):
        """Once it has these parts and is written no more: the page takes its time over that."""
        latest = [None]

        def rests(_):
            before, latest[0] = latest[0], self.fragment()
            return (before == latest[0] and all(part in before for part in parts)
                    and not any(part in before for part in without))

        WebDriverWait(self.browser, 20, poll_frequency=1).until(rests)
        self.settle()
        return latest[0]

    def first_line(self):
        """The text of the first line of the table of which nothing is hidden."""
        return self.run("""
            const lines = [...document.querySelectorAll('#grid .record:not(.head):not([hidden])')];
            const top = document.getElementById('grid').getBoundingClientRect().top + 28;
            return lines.find((line) => line.getBoundingClientRect().top > top - 1)?.querySelector('.c-text').textContent;""")

    def picture(self):
        """Everything that a link is to bring back."""
        return self.run("""
            const lines = [...document.querySelectorAll('#grid .record:not(.head):not([hidden])')];
            const top = document.getElementById('grid').getBoundingClientRect().top + 28;
            const first = lines.find((line) => line.getBoundingClientRect().top > top - 1);
            return [...[...document.querySelectorAll('#filters select')].map((node) => node.value),
                document.getElementById('search').value, document.getElementById('filter-range').checked,
                document.getElementById('count').textContent, document.getElementById('range').textContent,
                document.getElementById('lanes').scrollTop, first?.textContent,
                document.getElementById('details-body').textContent, document.getElementById('chart').toDataURL()];""")

    def address(self):
        """What is chosen stands in the address, and a link brings it back."""
        self.open()
        self.check("at first nothing stands in the address", self.fragment() == "", self.fragment())
        first = self.picture()
        if self.rows:
            self.choose()
            fragment = self.written_fragment("q=", "top=")
            chosen = self.picture()
            self.check("what is chosen differs", chosen != first)
            self.open(fragment)
            again = self.picture()
            self.check("a link shows the same picture", again == chosen,
                       (fragment, [pair for pair in zip(again[:-1], chosen[:-1]) if pair[0] != pair[1]]))

    def odd_addresses(self):
        """What means nothing shows what no address shows."""
        self.open()
        first = self.picture()
        for odd in ("#records", "#", "#=&=&&", "#q=", "#row=0&top=0", "#row=99999999&top=99999999&from=5&to=1",
                    "#from=1&to=1&row=-1&lanes=-7", "#from=-999999999999999999&to=999999999999999999",
                    "#level=none+such&thread=%FF%00&process=1e9&boot=__proto__&visible=maybe", "#%E0%A4%A&constructor=1&row=1.5",
                    "#top=NaN&from=Infinity&to=0x10", "#name=" + "x" * 5000):
            self.open(odd)
            self.check(f"nothing comes of {odd[:60]}", self.picture() == first)

    def choose(self):
        """Something of each kind: a text, a level, a part of the time, a record, a place in the list."""
        row = self.rows[len(self.rows) // 3]
        needle = (row[6].split() or ["a"])[0][:3]
        self.search(needle)
        if row[4] >= 0:
            Select(self.find("#filter-level")).select_by_value(str(row[4]))
        self.settle()
        for _ in range(3):
            self.run("document.getElementById('zoom-in').click();")
        self.key("#search", Keys.ENTER, Keys.ENTER)
        self.run("const g = document.getElementById('grid'); g.scrollTop = Math.floor(g.scrollHeight / 48) * 24;")
        self.run("document.getElementById('lanes').scrollTop = 15;")
        self.settle()

    def paper(self):
        """Printing leaves out the timeline and the records; quiet() checks that drawing nothing causes no error."""
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": "print"})
        self.settle()
        self.check("paper has no timeline", not self.find("#lanes").is_displayed() and self.find("#failure").is_displayed())
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": ""})
        self.settle()

    def table(self):
        self.check("all records are counted", self.count() == len(self.rows), self.count())
        lines = self.run("return document.querySelectorAll('#grid-rows .record').length;")
        self.check("only the lines on the screen are in the document", lines < 120, lines)
        if not self.rows:
            return
        for row in self.samples():
            self.select_from_table(row)
        needle = next((word for word in self.rows[len(self.rows) // 2][6].split() if word.isalnum()), "a")
        middle = self.rows[len(self.rows) // 2]
        word = next((row[7][-1] for row in self.rows if len(row) > 7 and row[7]), "0x")
        for asked in (needle.upper(), needle.lower()[:-1] or needle, word, self.data["names"][middle[5]][:12],
                      "no such text anywhere"):
            self.search(asked)
            self.check(f"a search for '{asked}' counts its matches", self.count() == self.matching(asked),
                       (self.count(), self.matching(asked)))
        self.check("and says that nothing matches", self.find("#grid-empty").is_displayed())
        self.reset()
        self.check("reset shows all again", self.count() == len(self.rows))
        for index, column in (("source", 2), ("level", 4), ("thread", 3), ("name", 5)):
            self.filter(index, column)
        if self.data.get("processes"):
            self.processes()
        else:
            self.check("without processes there is no filter for them", not self.find("#filter-process").is_displayed())

    def processes(self):
        """Numbers from 1, 0 where none is known."""
        for process in range(len(self.data["processes"]) + 1):
            rows = [index for index, row in enumerate(self.rows) if (row[8] if len(row) > 8 else 0) == process]
            if not rows:
                continue
            Select(self.find("#filter-process")).select_by_value(str(process))
            self.settle()
            self.check(f"the filter by process {process} counts its records", self.count() == len(rows), (self.count(), len(rows)))
            self.reset()
            self.select_from_table(rows[-1])
            named = self.data["processes"][process - 1]["words"] if process else "No known process"
            self.check(f"the details of a record name process {process}", named in self.details(), self.details()[:300])

    def samples(self):
        return sorted({0, len(self.rows) // 2, len(self.rows) - 1})

    def filter(self, name, column):
        select = Select(self.find(f"#filter-{name}"))
        value = self.rows[len(self.rows) // 2][column]
        select.select_by_value(str(value))
        self.settle()
        expected = sum(row[column] == value for row in self.rows)
        self.check(f"the filter by {name} counts its records", self.count() == expected, (self.count(), expected))
        self.reset()

    def select_from_table(self, index):
        self.key("#lanes", Keys.ESCAPE)
        self.run("document.getElementById('grid').scrollTop = arguments[0];", index * 24)
        self.settle()
        position = self.run("""const line = [...document.querySelectorAll('#grid-rows .record:not([hidden])')]
            .find((node) => node.getAttribute('aria-rowindex') === String(arguments[0])); line?.setAttribute('data-test', '1');
            document.getElementById('grid').scrollIntoView({block: 'center'}); return Boolean(line);""", index + 2)
        if not position:
            self.check(f"record {index} is on the screen", False)
            return
        line = self.find("#grid-rows [data-test]")
        self.run("document.querySelectorAll('[data-test]').forEach((node) => node.removeAttribute('data-test'));")
        ActionChains(self.browser, duration=0).move_to_element_with_offset(line, -40, 2).click().perform()
        self.settle()
        self.check(f"a click on record {index} shows its text and words", self.shows(index), self.details()[:200])
        self.times_of(index)

    def moment(self, t):
        """What the page shows of a time, to the nanosecond."""
        clock = self.data["clock"]
        if not clock["wall"]:
            return f"{'-' if t < 0 else '+'}{abs(t) // SECOND}.{abs(t) % SECOND:09} s"
        absolute = clock["originMs"] * 1_000_000 + clock["originNs"] + t
        day = datetime.datetime.fromtimestamp(absolute // SECOND, datetime.timezone.utc)
        return f"{day:%Y-%m-%d %H:%M:%S}.{absolute % SECOND:09}"

    def mark(self, sure):
        marks = [sign for sign, _ in self.data["clock"].get("marks", [])] or [""] * 5
        return marks[sure % 4] + (marks[4] if sure >= 4 else "")

    def times_of(self, index):
        t, sure = self.rows[index][:2]
        if t is None:
            return
        wanted = f"{self.moment(t)} {self.mark(sure)}"
        cell = self.run("return document.querySelector('#grid .record.selected .c-time').textContent;")
        self.check(f"record {index} has its time and mark in the table", cell and wanted.endswith(cell) and
                   "." in cell, (cell, wanted))
        self.check("and in the details", wanted in self.details(), (wanted, self.details()[:200]))

    def axis(self):
        """Labels are drawn, so the page's own canvas is asked for them: each says the time at its place."""
        self.click("#zoom-fit")
        labels = 0
        for _ in range(12):
            self.run("""window.drawn = []; const proto = CanvasRenderingContext2D.prototype;
                if (!window.plainText) {
                    window.plainText = proto.fillText;
                    proto.fillText = function (text, x, y) {
                        if (this.canvas.id === 'chart' && this.textAlign === 'center') { window.drawn.push([text, x]); }
                        window.plainText.apply(this, arguments);
                    };
                }""")
            self.click("#zoom-in")
            begin, end = self.view()
            left, width = self.plot()
            for text, x in self.run("return window.drawn;"):
                parts = re.fullmatch(r"(\d\d):(\d\d)(?::(\d\d)(?:\.(\d+))?)?", text)
                if not parts:
                    continue
                hours, minutes, seconds, fraction = parts.groups(default="0")
                said = (int(hours) * 3600 + int(minutes) * 60 + int(seconds)) * SECOND + int(fraction.ljust(9, "0"))
                clock = self.data["clock"]
                place = begin + (x - left) / width * (end - begin)
                origin = (clock["originMs"] * 1_000_000 + clock["originNs"]) % DAY
                away = (said - origin - place + DAY / 2) % DAY - DAY / 2
                labels += 1
                if abs(away) > 1.5 * (end - begin) / width:
                    self.check("every label of the axis says the time at its place", False, (text, x, away))
                    return
        self.check("every label of the axis says the time at its place", labels > 0, labels)
        self.click("#zoom-fit")

    def legend(self):
        used = {mark for row in self.rows if row[0] is not None for mark in self.mark(row[1])}
        used |= {mark for crash in self.data["crashes"] for mark in self.mark(crash["sure"])}
        shown = self.all_texts("#legend .time-mark")
        self.check("one legend explains the marks of the times", shown == [
            f"{sign} {meaning}" for sign, meaning in self.data["clock"].get("marks", []) if sign in used], shown)

    def shows(self, index):
        """The selected line of the table holds only the text, the details also each value."""
        row = self.rows[index]
        text = self.detail_text()
        words = self.all_texts(".argument-table td:nth-child(2)")
        if self.selected_line() != visible_line(row[6]):
            return False
        return text == (visible(row[6]) or "(no text)") and words == [visible(a) for a in (row[7] if len(row) > 7 else [])]

    def timeline(self):
        timed = sorted((row for row in self.rows if row[0] is not None), key=lambda row: row[0])
        if not timed:
            return
        whole = self.view()
        self.check("the timeline opens with everything", whole[0] < timed[0][0] and whole[1] > timed[-1][0])
        self.zooms(whole)
        self.keys(whole, timed)
        self.drags()
        self.touches()
        self.pick()
        self.legend()
        if self.data["clock"]["wall"]:
            self.axis()
        self.key("#lanes", Keys.HOME, Keys.ESCAPE)

    def zooms(self, whole):
        self.click("#zoom-in")
        nearer = self.span()
        self.check("the button zooms in", nearer < (whole[1] - whole[0]) * 0.6)
        self.click("#zoom-out")
        self.check("the other zooms out", self.span() > nearer * 1.5)
        self.click("#zoom-fit")
        self.check("fit shows all", self.view() == whole)
        self.wheel(400, -300)
        begin, end = self.view()
        self.check("the wheel zooms in", end - begin < (whole[1] - whole[0]) * 0.8)
        share = self.share(400)
        before = whole[0] + share * (whole[1] - whole[0])
        self.check("around the pointer", abs(begin + share * (end - begin) - before) < (end - begin) * 0.01)
        self.wheel(400, 1000)
        self.check("and out again", self.view() == whole)

    def plot(self):
        """Left edge and width of the part of the timeline that shows time."""
        width = self.run("return document.getElementById('lanes').clientWidth;")
        gutter = 92 if width < 560 else 168
        return gutter, width - gutter - 12

    def share(self, x):
        left, width = self.plot()
        return (x - left) / width

    def wheel(self, x, by):
        self.run("""const host = document.getElementById('lanes'); const box = document.getElementById('chart').getBoundingClientRect();
            host.dispatchEvent(new WheelEvent('wheel', {deltaY: arguments[1], clientX: box.left + arguments[0], clientY: box.top + 40,
                bubbles: true, cancelable: true}));""", x, by)
        self.settle()

    def keys(self, whole, timed):
        self.key("#lanes", "+")
        begin, end = self.view()
        self.check("+ zooms in", end - begin < whole[1] - whole[0])
        self.key("#lanes", Keys.ARROW_RIGHT)
        self.check("an arrow key moves the view", self.view()[0] > begin)
        self.key("#lanes", Keys.ARROW_LEFT, "-")
        self.check("- zooms out", self.span() > (end - begin) * 1.5)
        crash = next((crash["time"] for crash in self.data["crashes"][-1:] if crash["time"] is not None), timed[-1][0])
        self.key("#lanes", Keys.END)
        begin, end = self.view()
        self.check("the help says what End shows",
                   f"End {'the crash' if self.data['crashes'] else 'the last record'}." in self.find("#timeline-help").text)
        self.check("End shows the crash, nearer", begin <= crash <= end and end - begin < whole[1] - whole[0])
        self.key("#lanes", Keys.HOME)
        self.check("Home shows all", self.view() == whole)

    def chart_at(self, x, y):
        """A pointer action at that place, in pixels of the canvas."""
        size = self.run("const b = document.getElementById('chart').getBoundingClientRect(); return [b.width, b.height];")
        return ActionChains(self.browser, duration=0).move_to_element_with_offset(
            self.find("#chart"), int(x - size[0] / 2), int(y - size[1] / 2))

    def drags(self):
        self.click("#zoom-in")
        self.run("document.getElementById('timeline').scrollIntoView({block: 'start'});")
        before = self.view()
        self.chart_at(600, 40).click_and_hold().move_by_offset(-30, 0).move_by_offset(-90, 0).release().perform()
        self.settle()
        after = self.view()
        _, width = self.plot()
        moved = (after[0] - before[0]) / (before[1] - before[0]) * width
        self.check("dragging moves the time with the pointer", abs(moved - 120) < 2, moved)
        self.click("#zoom-fit")

    def touches(self):
        box = self.run("const b = document.getElementById('chart').getBoundingClientRect(); return [b.left, b.top];")
        def send(kind, *places):
            self.browser.execute_cdp_cmd("Input.dispatchTouchEvent", {"type": kind, "touchPoints": [
                {"x": box[0] + x, "y": box[1] + 40, "id": index} for index, x in enumerate(places)]})
        before = self.span()
        send("touchStart", 500)
        send("touchStart", 500, 600)
        for step in range(1, 6):
            send("touchMove", 500 - 20 * step, 600 + 20 * step)
        send("touchEnd")
        self.settle()
        self.check("two fingers zoom", abs(before / self.span() - 3) < 0.3, before / self.span())
        begin = self.view()[0]
        send("touchStart", 600)
        for step in range(1, 6):
            send("touchMove", 600 - 20 * step)
        send("touchEnd")
        self.settle()
        self.check("one finger moves", self.view()[0] > begin)
        self.click("#zoom-fit")

    def pick(self):
        """Finds a record with only the pointer and clicks it."""
        index = next((i for i in range(len(self.rows) // 3, len(self.rows)) if self.stands_alone(i)), None)
        if index is None:
            return
        self.select_from_table(index)
        for _ in range(60):
            self.run("document.getElementById('zoom-in').click();")
        self.settle()
        self.check("zooming ends at a microsecond, on the selection", abs(self.span() - 1000) < 1 and
                   self.view()[0] <= self.rows[index][0] <= self.view()[1], self.view())
        begin, end = self.view()
        left, width = self.plot()
        x = left + (self.rows[index][0] - begin) / (end - begin) * width
        self.key("#lanes", Keys.ESCAPE)
        self.check("Escape clears the selection", self.detail_text() is None and self.selected_line() is None)
        self.run("document.getElementById('timeline').scrollIntoView({block: 'start'}); ")
        found = self.hover_for(x, index)
        self.check("hovering shows what is there", found)
        if found:
            ActionChains(self.browser).click().perform()
            self.settle()
            self.check("a click selects it, in the table as well, and shows all of it", self.shows(index), self.details()[:200])

    def stands_alone(self, index):
        """Whether nothing else is near enough to be hit instead."""
        t, text = self.rows[index][0], self.rows[index][6]
        near = [self.rows[i][0] for i in (index - 1, index + 1) if 0 <= i < len(self.rows)]
        return t is not None and text and all(other is None or abs(other - t) > 50 for other in near)

    def hover_for(self, x, index):
        wanted = visible(self.rows[index][6])
        wanted = wanted if len(wanted) <= 240 else wanted[:240] + "…"
        height = self.run("return document.getElementById('chart').getBoundingClientRect().height;")
        for y in range(32, int(height) - 4, 8):
            self.chart_at(x, y).perform()
            tip = self.run("const t = document.getElementById('tip'); return t.hidden ? null : t.querySelector('.tip-text').textContent;")
            if tip == wanted:
                return True
        return False

    def shown_time(self):
        """The filter for the visible time follows the timeline."""
        self.click("#filter-range")
        self.key("#lanes", Keys.END)
        begin, end = self.view()
        expected = sum(row[0] is not None and begin <= row[0] <= end for row in self.rows)
        self.check("the table shows only the visible time on request", self.count() == expected, (self.count(), expected))
        self.reset()
        self.key("#lanes", Keys.HOME)

    def every_row(self):
        """Each record, selected with the table's own keys."""
        self.key("#grid", Keys.HOME)
        wrong = []
        for index in range(len(self.rows)):
            if not self.shows(index):
                wrong.append(index)
            self.key("#grid", Keys.ARROW_DOWN)
        self.check("every record is shown literally", not wrong, wrong)

    def generic(self):
        self.open()
        self.texts()
        self.lists()
        self.table()
        self.timeline()
        if self.rows:
            self.shown_time()
        self.theme()
        self.layout()
        self.paper()
        self.quiet()
        self.address()
        self.quiet()


def long_page(browser, folder, program, results):
    """A list that is higher than browsers scroll. Each block says the same, so the times go back at each."""
    block = [[index * SECOND, 0, 0, 0, 1 + index % 4, 0, f"line {index}", []] for index in range(8192)]
    blocks = 100
    count = blocks * len(block)
    data = sample_page.base("long", ["Engine"], [])
    path = folder / "long.html"
    path.write_bytes(sample_page.assemble_packed({**data, "rows": count}, page_rows.pack(block) * blocks, program))
    page = Page(browser, path, results, {**data, "rows": []})
    page.open()
    page.check("all records are counted", page.count() == count, page.count())
    page.key("#grid", Keys.END)
    page.check("End leads to the last one", page.selected_line() == "line 8191" and
               f"{count:,} of {count:,}" in page.details(), page.details()[-80:])
    page.key("#grid", Keys.ARROW_UP)
    page.check("and a step back to the one before", page.selected_line() == "line 8190", page.selected_line())
    page.key("#grid", Keys.HOME, Keys.ARROW_DOWN)
    page.check("Home and a step lead to the second", page.selected_line() == "line 1", page.selected_line())
    page.run("""document.getElementById('grid').dispatchEvent(
        new WheelEvent('wheel', {deltaY: 48, bubbles: true, cancelable: true}));""")
    page.settle()
    page.check("the wheel moves by its own steps", page.first_line() == "line 2", page.first_line())
    page.run("const g = document.getElementById('grid'); g.scrollTop = g.scrollHeight;")
    page.settle()
    box = page.run("""const last = [...document.querySelectorAll('#grid .record:not(.head):not([hidden])')].at(-1);
        const [a, b] = [last, document.getElementById('grid')].map((node) => node.getBoundingClientRect().bottom);
        return [last.querySelector('.c-text').textContent, Math.abs(a - b) < 24];""")
    page.check("the end of the scroll bar is the end of the list", box == ["line 8191", True], box)
    page.search("line 4321")
    page.check("one of each block is found", page.count() == blocks, page.count())
    page.key("#search", Keys.ENTER)
    page.reset()
    page.check("a record that was found is still seen in the whole list", page.selected_line() == "line 4321",
               page.selected_line())
    fragment = page.written_fragment("row=", without=["q="])
    chosen = page.picture()
    page.open(fragment)
    page.check("a link shows the same picture", page.picture() == chosen, fragment)
    page.quiet()


def broken_page(browser, folder, program, results):
    """A file that was cut short says so."""
    whole = sample_page.assemble(sample_page.crash(), program)
    path = folder / "broken.html"
    at = whole.rindex(b'class="columns">') + 100
    for name, broken in (("cut", whole[:at]), ("cut in its head", whole[:whole.rindex(b'"clock":')]),
                         ("changed", whole[:at] + b"AAAA" + whole[at + 4:]), ("letters", whole[:at] + b"!" + whole[at:])):
        path.write_bytes(broken)
        browser.get(path.as_uri())
        text = browser.find_element(By.TAG_NAME, "body").text
        results.check(f"broken, {name}: the page says that its data cannot be read", "cannot be read" in text, text[:200])
    # The rest of a page of which some texts are damaged is shown.
    at = whole.rindex(b'class="texts">') + 100
    path.write_bytes(whole[:at] + b"AAAA" + whole[at + 4:])
    browser.get(path.as_uri())
    browser.execute_script("document.getElementById('grid').scrollTop = 0;")
    WebDriverWait(browser, 20).until(lambda b: "3,006 records" in b.find_element(By.ID, "count").text)
    text = browser.find_element(By.CSS_SELECTOR, "#grid-rows .c-text").text
    results.check("broken, a text: it says so in its place", "cannot be read" in text, text)
    browser.get_log("browser")


def samples(browser, folder, program, results):
    for name, make in sample_page.PAGES.items():
        path = folder / f"{name}.html"
        path.write_bytes(sample_page.assemble(make(), program))
        page = Page(browser, path, results)
        page.generic()
        page.open()
        if name in ("crash", "empty"):
            page.odd_addresses()
        if name == "hostile":
            page.every_row()
        if name == "large":
            page.search("NEEDLE in the")
            page.check("one record of 200,000 is found", page.count() == 1, page.count())
            page.key("#search", Keys.ENTER)
            page.check("and Enter selects it", page.detail_text() == "the needle in the haystack", page.detail_text())
    long_page(browser, folder, program, results)
    broken_page(browser, folder, program, results)


def start_browser(profile):
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for flag in FLAGS + [f"--user-data-dir={profile}"]:
        options.add_argument(flag)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    # The browser's own first page makes requests too.
    browser.get("about:blank")
    return browser


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("--page-program", help="reads data, writes the page")
    arguments.add_argument("files", nargs="*", type=pathlib.Path)
    given = arguments.parse_args()
    if bool(given.page_program) == bool(given.files):
        arguments.error("either a program or files are needed")
    results = Results()
    with tempfile.TemporaryDirectory() as folder:
        browser = start_browser(pathlib.Path(folder) / "profile")
        try:
            for path in given.files:
                Page(browser, path.resolve(), results).generic()
            if not given.files:
                samples(browser, pathlib.Path(folder), given.page_program, results)
        finally:
            browser.quit()
    print(f"{results.passed} passed, {results.failed} failed")
    return 1 if results.failed or not results.passed else 0


if __name__ == "__main__":
    sys.exit(main())
