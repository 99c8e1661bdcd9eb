// The page's data: one JSON object in the element "data", and the records in elements of the classes "columns" and
// "texts". The writer escapes every "<" of the object as \u003c and every control character as JSON asks, and writes
// UTF-8: bytes of the device that are not UTF-8 become U+FFFD or \u00XX. Text is shown as it is, never read as markup.
// Whole fields may be missing or null where the folder says nothing about them.
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
//      "activeRings": [{"ring": "Panel", "newest": "..." | ns | null, "sure": 3, "events": 12}],
//      "time": ns | null, "sure": 0 | 1 | 2 | 3,
//      "row": its record | null, "boot": number, "process": number,
//      "processWords": "probably process 1, boot 1" | "",
//      "after": "boot cycle" | ...,         what puts it after the one before
//      "perhaps": "perhaps one crash with crash.txt" | ""}],
//   "clock": {"wall": true | false,        true: the times below are local wall-clock time
//             "origin": "2026-11-24T15:09:26.000" | null,     what t = 0 is, for people to read
//             "originMs": ms | null,       the same, whole milliseconds since 1970 as if local time were UTC
//             "originNs": ns | null,       and what is below a millisecond
//             "marks": [["=", "exact"], ...],   the legend of the marks: by "sure", then that of overwritten lines
//             "statement": [{"code": "...", "sentence": "..."}, ...]},
//   "files": [{"name": "device.log", "kind": "text log", "bytes": 123,
//              "state": "ok" | "damaged" | "unusable" | "skipped", "notes": [as "statement"]}],
//   "rings": [{"name": "Panel", "entries": 256, "used": 12, "wrapped": "no" | "probably" | "perhaps",
//              "oldest": ns | null, "newest": ns | null, "sure": 3}],
//   "boots": [{"boot": 1, "first": ns | null, "last": ns | null, "processes": [1, 2], "proof": "..."}],
//   "processes": [{"words": "process 1, boot 1", "boot": number, "first": ns | null, "last": ns | null,
//                  "sure": 2 | null, "threads": 3, "proof": "...",   numbered from 1
//                  "probable": {"lines": bool, "records": bool}}],   which of them may be another's
//   "threads": [{"id": "0x979fe6c0", "name": "Engine" | "", "process": number | null}],
//   "sources": ["device.log", "SysTrace.bin", ...],
//   "sourceKinds": ["log" | "systrace" | "ring" | any other, drawn as "log", ...],
//   "levels": ["CRASH", "FATAL", "ERROR", "WARN", "PERF", "INFO", "DEBUG", "CAL", "0", "1", "2", "3"],
//   "names": ["Engine", ...],              tracers, components, rings
//   "omitted": {"rows": 0, "statement": ""},
//   "rows": 1000                           how many records there are
// }
//
// Times are nanoseconds since the origin, whole numbers. Numbers of boots and processes count from 1; 0 is for one that
// is not known.
//
// The records stand in blocks, each of them one element "columns" and one element "texts", in the order in which they
// are to be shown: boot by boot, and by time in each; those of which the time is not known come last. An element holds,
// in base64, the length of its bytes (four of them, the lowest first) and the bytes, deflated. A number there has seven
// bits a byte, the lowest first, and the top bit says that more follow; with a sign, that is in the lowest bit.
//
//   columns  how many records; the seconds (with a sign) and nanoseconds of the first time; then for each record
//            the nanoseconds since the time before (with a sign), for each a byte with its mark, and for each its
//            source, thread, level, name, process and boot, column by column
//   texts    for each the length of its text in UTF-16; for each a byte with the number of its words; all words; all
//            texts in UTF-8, each with a line feed after it
//
// A source is an index. Threads, levels and names are indices from 1, and 0 where there is none. Levels "0" to "3" are
// those of the binary trace. A mark is 0 for an exact time, 1 for one of which the date is cut, 2 for one that may be
// later by whole seconds, 3 for one that was placed by assumption; 4 more for a line that its log was writing over; 8
// more where no time is known, and the record is not drawn. The words are values that the text shows in words.
import {Address} from "./address.js";
import {byId, element} from "./base/dom.js";
import {visible} from "./base/text.js";
import {Model} from "./model/model.js";
import {readRows} from "./model/packed.js";
import {Details} from "./records/details.js";
import {RecordTable} from "./records/table.js";
import {showFailure} from "./summary/failure.js";
import {showFiles} from "./summary/files.js";
import {showHappened} from "./summary/happened.js";
import {showClock, showHeading, showOmitted} from "./summary/heading.js";
import {showRings} from "./summary/rings.js";
import {startTheme} from "./theme.js";
import {Timeline} from "./timeline/timeline.js";

function showSummary(model) {
  showHeading(model);
  showFailure(model);
  showHappened(model);
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

// Shows what an address says; a row that is not there is none.
function showState(model, {timeline, table, details}, state) {
  const row = state.row >= 1 && state.row <= model.count ? state.row - 1 : -1;
  details.show(row);
  timeline.setState(state, row);
  table.setState(state, row);
}

// A selection made in one view reaches the others.
function connect(model) {
  const timeline = new Timeline(model);
  const table = new RecordTable(model);
  const details = new Details(model);
  const views = {timeline, table, details};
  const read = () => (table.isSettled ? {...table.state(), ...timeline.state()} : null);
  const address = new Address(read, (state) => showState(model, views, state));

  const select = (row, origin) => {
    details.show(row);
    timeline.setSelected(row, origin !== timeline);
    table.setSelected(row, origin !== table);
    address.changed();
  };
  timeline.onSelect = (row) => select(row, timeline);
  table.onSelect = (row) => select(row, table);
  table.onFilter = (matches, isFiltered) => {
    timeline.setMatches(matches, isFiltered);
    address.changed();
  };
  table.onMove = () => address.changed();
  timeline.onView = (from, to) => {
    table.setVisibleTime(from, to);
    address.changed();
  };
  details.onCentre = (row) => timeline.centre(row);
  details.onThread = (thread) => table.filterThread(thread);
  listenForEscape(() => select(-1, null));

  details.show(-1);
  table.start();
  timeline.start();
  address.start();
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
    const data = JSON.parse(byId("data").textContent);
    const model = new Model(data, readRows([...document.getElementsByClassName("columns")],
      [...document.getElementsByClassName("texts")], data.rows ?? 0));
    byId("data").textContent = "";
    showSummary(model);
    connect(model);
  } catch (error) {
    showBroken(error);
  }
  document.body.classList.remove("loading");
}

// The data follows this script, so that a file of which the end is missing can say so.
document.addEventListener("DOMContentLoaded", start);
