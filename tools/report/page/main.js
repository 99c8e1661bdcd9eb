// The page's data, one JSON object in the element "data". The writer escapes every "<" as \u003c and every control
// character as JSON asks, and writes UTF-8: bytes of the device that are not UTF-8 become U+FFFD or \u00XX. Text is
// shown as it is, never read as markup. Whole fields may be missing or null where the folder says nothing about them.
//
// {
//   "tool": "nima-post 1.0.0", "folder": "name", "generated": "2026-11-24T18:00:00Z",
//   "crashes": [                           the oldest first; the last one is the headline
//     {"title": "Assertion through a fatal-error call",
//      "summary": [["Error code", "0x0031AC05"], ["File", "/src/..."], ...],
//      "exception": [["Address", "0x94b84000"], ...] | null,
//      "extra": ["0x11", ...],
//      "stacks": [{"file": "stacktrace123-1.txt", "header": ["..."], "frames": ["0x7f.. (name+0x1d8)", ...],
//                  "resolved": [["Run() at scan.cpp:12", ...], ...],   by symbols, for each frame
//                  "statement": ["...", ...]}],                       what that rests on
//      "activeRings": [{"ring": "Panel", "newest": "..." | ns | null, "events": 12}],
//      "time": ns | null, "sure": 0 | 1 | 2}],
//   "clock": {"wall": true | false,        true: the times below are local wall-clock time
//             "origin": "2026-11-24T15:09:26.000" | null,     what t = 0 is, for people to read
//             "originMs": ms | null,       the same, whole milliseconds since 1970 as if local time were UTC
//             "originNs": ns | null,       and what is below a millisecond
//             "marks": [["=", "exact"], ...],   the legend of the marks: by "sure", then that of overwritten lines
//             "statement": [{"code": "...", "sentence": "..."}, ...]},
//   "files": [{"name": "device.log", "kind": "text log", "bytes": 123,
//              "state": "ok" | "damaged" | "unusable" | "skipped", "notes": [as "statement"]}],
//   "rings": [{"name": "Panel", "entries": 256, "used": 12, "wrapped": "no" | "probably" | "perhaps",
//              "oldest": ns | null, "newest": ns | null}],
//   "processes": ["process 1, boot 1", ...],   in words, numbered from 1
//   "threads": [{"id": "0x979fe6c0", "name": "Engine" | "", "process": number | null}],
//   "sources": ["device.log", "SysTrace.bin", ...],
//   "sourceKinds": ["log" | "systrace" | "ring" | any other, drawn as "log", ...],
//   "levels": ["FATAL", "ERROR", "WARN", "PERF", "INFO", "DEBUG", "CAL", "0", "1", "2", "3", ""],
//   "names": ["Engine", ...],              tracers, components, rings
//   "columns": ["t", "sure", "source", "thread", "level", "name", "text", "args", "process", "boot"],
//   "rows": [[t, sure, source, thread, level, name, "text", ["0x1", ...], process, boot], ...],
//   "omitted": {"rows": 0, "statement": ""}
// }
//
// Times are nanoseconds since the origin, whole numbers; "rows" is sorted by them. A row whose time is unknown has t
// = null, comes after the others and is not drawn. "sure" is 0 for an exact time, 1 for one that may be later by
// whole seconds, 2 for one that was placed by assumption, and 4 more for a line that its log was writing over.
// "source", "thread", "level" and "name" are indices, -1 where there is none. Levels "0" to "3" are those of the
// binary trace. "args" holds the values that the text shows in words. "process" and "boot" are numbers from 1, or 0
// where they are not known; a row may leave out all three.
import {byId, element} from "./base/dom.js";
import {visible} from "./base/text.js";
import {Model} from "./model/model.js";
import {Details} from "./records/details.js";
import {RecordTable} from "./records/table.js";
import {showFailure} from "./summary/failure.js";
import {showFiles} from "./summary/files.js";
import {showClock, showHeading, showOmitted} from "./summary/heading.js";
import {showRings} from "./summary/rings.js";
import {startTheme} from "./theme.js";
import {Timeline} from "./timeline/timeline.js";

function showSummary(model) {
  showHeading(model);
  showFailure(model);
  showClock(model);
  showFiles(model);
  showRings(model);
  showOmitted(model);
}

function listenForEscape(action) {
  for (const host of [byId("lanes"), byId("grid")]) {
    host.addEventListener("keydown", (event) => {
      if (event.key === "Escape") {
        action();
      }
    });
  }
}

// A selection made in one view reaches the others.
function connect(model) {
  const timeline = new Timeline(model);
  const table = new RecordTable(model);
  const details = new Details(model);

  const select = (row, origin) => {
    details.show(row);
    timeline.setSelected(row, origin !== timeline);
    table.setSelected(row, origin !== table);
  };
  timeline.onSelect = (row) => select(row, timeline);
  table.onSelect = (row) => select(row, table);
  table.onFilter = (matches, isFiltered) => timeline.setMatches(matches, isFiltered);
  timeline.onView = (from, to) => table.setVisibleTime(from, to);
  details.onCentre = (row) => timeline.centre(row);
  details.onThread = (thread) => table.filterThread(thread);
  listenForEscape(() => select(-1, null));

  details.show(-1);
  table.start();
  timeline.start();
}

function showBroken(error) {
  const message = element("p", "message");
  message.setAttribute("role", "alert");
  message.textContent =
    `The data inside this page cannot be read; the file may be incomplete. (${visible(error.message)})`;
  document.querySelector("main").replaceWith(message);
}

function start() {
  startTheme();
  try {
    const model = new Model(JSON.parse(byId("data").textContent));
    byId("data").textContent = "";
    showSummary(model);
    connect(model);
  } catch (error) {
    showBroken(error);
  }
  document.body.classList.remove("loading");
}

start();
