// The page's data, one JSON object in the element "data". The writer escapes every "<" as \u003c and every control
// character as JSON asks, and writes UTF-8: bytes of the device that are none become U+FFFD or \u00XX. Text is shown as it
// is, never read as markup. Whole fields may be missing or null where the folder says nothing about them.
//
// {
//   "tool": "nima-post 1.0.0", "folder": "name", "generated": "2026-11-24T18:00:00Z",
//   "failure": null |                      null: no crash log in the folder
//     {"title": "Assertion through a fatal-error call",
//      "summary": [["Error code", "0x0031AC05"], ["File", "/src/..."], ...],
//      "exception": [["Address", "0x94b84000"], ...] | null,
//      "extra": ["0x11", ...],
//      "stacks": [{"file": "stacktrace123-1.txt", "header": ["..."], "frames": ["0x7f.. (name+0x1d8)", ...]}],
//      "activeRings": [{"ring": "Panel", "newest": "..." | ns | null, "events": 12}],
//      "time": ns | null},
//     (a folder with stack-trace files but no crash log has a failure too, with a title that says so)
//   "clock": {"wall": true | false,        true: the times below are local wall-clock time
//             "origin": "2026-11-24T15:09:26.000" | null,     what t = 0 is, to be read by people
//             "originMs": ms | null,       the same, milliseconds since 1970 as if local time were UTC
//             "statement": ["...", ...]},
//   "files": [{"name": "device.log", "kind": "text log", "bytes": 123,
//              "state": "ok" | "damaged" | "unusable" | "skipped", "notes": ["..."]}],
//   "rings": [{"name": "Panel", "entries": 256, "used": 12, "wrapped": "no" | "perhaps",
//              "oldest": ns | null, "newest": ns | null}],
//   "threads": [{"id": "0x979fe6c0", "name": "Engine" | ""}],
//   "sources": ["device.log", "SysTrace.bin", ...],
//   "sourceKinds": ["log" | "systrace" | "ring" | any other, drawn as "log", ...],
//   "levels": ["FATAL", "ERROR", "WARN", "PERF", "INFO", "DEBUG", "CAL", "0", "1", "2", "3", ""],
//   "names": ["Engine", ...],              tracers, components, rings
//   "columns": ["t", "sure", "source", "thread", "level", "name", "text", "args"],
//   "rows": [[t, sure, source, thread, level, name, "text", ["0x1", ...]], ...],
//   "omitted": {"rows": 0, "statement": ""}
// }
//
// Times are nanoseconds since the origin, whole numbers; "rows" is sorted by them. A row whose time is unknown has t = null,
// is listed after the others and not drawn. "sure" is 0 for an exact time, 1 for one that may be later by whole seconds,
// 2 for one that was placed by assumption. "source", "thread", "level" and "name" are indices, -1 where there is none.
// Levels "0" to "3" are those of the binary trace. "args" may be left out of a row that has none.

function applyTheme(theme) {
  document.documentElement.dataset.theme = theme;
  const button = byId("theme");
  button.textContent = theme === "dark" ? "Light" : "Dark";
  button.setAttribute("aria-pressed", String(theme === "dark"));
  button.setAttribute("aria-label", theme === "dark" ? "Dark colours are on" : "Dark colours are off");
  document.dispatchEvent(new Event("themechange"));
}

function startTheme() {
  const system = matchMedia("(prefers-color-scheme: dark)");
  let chosen = false;
  applyTheme(system.matches ? "dark" : "light");
  system.addEventListener("change", () => {
    if (!chosen) {
      applyTheme(system.matches ? "dark" : "light");
    }
  });
  byId("theme").addEventListener("click", () => {
    chosen = true;
    applyTheme(document.documentElement.dataset.theme === "dark" ? "light" : "dark");
  });
  startPrinting();
}

// Paper is light, and a closed list cannot be opened on it.
function startPrinting() {
  let theme = null;
  let closed = [];
  addEventListener("beforeprint", () => {
    theme = document.documentElement.dataset.theme;
    applyTheme("light");
    closed = [...document.querySelectorAll("details:not([open])")];
    closed.forEach((node) => { node.open = true; });
  });
  addEventListener("afterprint", () => {
    applyTheme(theme);
    closed.forEach((node) => { node.open = false; });
  });
}

// Who shows records listens here; a selection made in one place reaches the others.
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
  timeline.onView = (from, to) => table.setShownTime(from, to);
  details.onCentre = (row) => timeline.centre(row);
  details.onThread = (thread) => table.filterThread(thread);
  for (const host of [byId("lanes"), byId("grid")]) {
    host.addEventListener("keydown", (event) => {
      if (event.key === "Escape") {
        select(-1, null);
      }
    });
  }

  details.show(-1);
  table.start();
  timeline.start();
}

function showBroken(error) {
  const message = element("p", "message");
  message.setAttribute("role", "alert");
  message.textContent = `The data inside this page cannot be read; the file may be incomplete. (${visible(error.message)})`;
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
