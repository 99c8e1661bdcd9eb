import {byId, element} from "../base/dom.js";
import {formatCount} from "../base/numbers.js";
import {Search} from "./search.js";

const ALL = -2;
const NONE = -1;
const SEVERITY = ["CRASH", "FATAL", "ERROR", "WARN"];
// The boxes of the form, each with the column of the records that it is about.
const CHOICES = ["source", "level", "thread", "name", "boot", "process"];

// `key` names the option where the number of its value may mean something else: in a link.
function option(value, text, key) {
  const node = element("option", "", text);
  node.value = String(value);
  node.dataset.key = key;
  return node;
}

// How many rows have each value of a column; the last counter is for rows without one.
function countValues(column, size) {
  const counts = new Uint32Array(size + 1);
  for (let row = 0; row < column.length; ++row) {
    const value = column[row];
    counts[value >= 0 && value < size ? value : size] += 1;
  }
  return counts;
}

function fillSelect(id, column, labels, noneLabel, keys = labels) {
  const counts = countValues(column, labels.length);
  const entries = labels.map((label, index) => ({label, index, count: counts[index]}))
    .filter((entry) => entry.count > 0);
  const select = byId(id);
  select.append(option(ALL, "All", ""), ...entries.map((entry) =>
    option(entry.index, `${entry.label || "(none)"} (${formatCount(entry.count)})`, String(keys[entry.index]))));
  if (counts[labels.length] > 0) {
    select.append(option(NONE, `${noneLabel} (${formatCount(counts[labels.length])})`, "none"));
  }
}

// Leaves the rows of which the column has another value.
function narrow(matches, column, isWanted) {
  for (let row = 0; row < matches.length; ++row) {
    matches[row] &= isWanted(column[row]);
  }
}

// The form above the table: the choices it offers, the current ones, and which records match.
export class RecordFilter {
  constructor(model) {
    this.model = model;
    this.form = byId("filters");
    // A byte for each record. `shown` lists those that match, limited to the visible time if that is requested.
    this.matches = new Uint8Array(model.count).fill(1);
    this.shown = new Int32Array(model.count);
    this.shownCount = 0;
    this.needle = "";
    this.search = null;
    this.isFiltered = false;
    this.isTimeOnly = false;
    this.visibleFrom = -Infinity;
    this.visibleTo = Infinity;
    this.fillSelects();
  }

  fillSelects() {
    const {model} = this;
    const numbers = (count) => Array.from({length: count}, (_, number) => number);
    const boots = ["No known boot", ...numbers(Math.max(0, ...model.boots.map((boot) => boot.boot)))
      .map((number) => `boot ${number + 1}`)];
    fillSelect("filter-source", model.source, model.sources, "No source");
    fillSelect("filter-level", model.level, model.levels, "No level");
    fillSelect("filter-thread", model.thread, model.threads.map((_, index) => model.threadFull(index)), "No thread",
      model.threads.map((thread) => (thread.process > 0 ? `${thread.id}.${thread.process}` : thread.id)));
    fillSelect("filter-name", model.name, model.names, "No name");
    fillSelect("filter-boot", model.boot, boots, "", numbers(boots.length));
    fillSelect("filter-process", model.process, model.processes, "", numbers(model.processes.length));
    byId("filter-boot").parentElement.hidden = !model.boots.length;
    byId("filter-process").parentElement.hidden = !model.hasProcesses;
    const worse = ["ERROR", "WARN"].filter((level) => model.levels.includes(level));
    byId("filter-level").firstChild.after(
      ...worse.map((level) => option(level, `${level} and worse`, `${level}+`)));
  }

  setVisibleTime(from, to) {
    this.visibleFrom = from;
    this.visibleTo = to;
    return byId("filter-range").checked;
  }

  chooseThread(thread) {
    byId("filter-thread").value = String(thread);
  }

  // What the form says, for a link; what is not in it is chosen nowhere.
  state() {
    const state = {};
    for (const choice of CHOICES) {
      const key = byId(`filter-${choice}`).selectedOptions[0].dataset.key;
      if (key) {
        state[choice] = key;
      }
    }
    const text = byId("search").value;
    return {...state, ...(text && {q: text}), ...(byId("filter-range").checked && {visible: "1"})};
  }

  // Fills the form in. What is not known here is left out.
  setState(state) {
    for (const choice of CHOICES) {
      const select = byId(`filter-${choice}`);
      const wanted = [...select.options].findIndex((node) => node.dataset.key === (state[choice] ?? ""));
      select.selectedIndex = Math.max(0, wanted);
    }
    byId("search").value = state.q ?? "";
    byId("filter-range").checked = state.visible === "1";
  }

  // Reads the form, and finds out which records match. A search for text goes on with `searchFor`.
  apply() {
    const needle = byId("search").value.toLowerCase();
    const levels = this.wantedLevels(byId("filter-level").value);
    const {model, matches} = this;
    this.needle = needle;
    this.isTimeOnly = byId("filter-range").checked;
    this.isFiltered = Boolean(needle) || levels !== null;
    matches.fill(1);
    if (levels) {
      narrow(matches, model.level, (level) => levels.has(level));
    }
    for (const choice of CHOICES.filter((each) => each !== "level")) {
      const wanted = Number(byId(`filter-${choice}`).value);
      if (wanted !== ALL) {
        this.isFiltered = true;
        narrow(matches, model[choice], (value) => value === wanted);
      }
    }
    this.search = needle ? new Search(model, matches, needle) : null;
  }

  get isDone() {
    return this.search === null || this.search.isDone;
  }

  get progress() {
    return this.search ? this.search.progress : 1;
  }

  // Goes on with the search until so many milliseconds have passed, and lists what matches so far.
  searchFor(time) {
    const end = performance.now() + time;
    while (!this.isDone && performance.now() < end) {
      this.search.step();
    }
    this.fillShown();
  }

  wantedLevels(value) {
    if (Number(value) === ALL) {
      return null;
    }
    const worst = SEVERITY.indexOf(value);
    if (worst < 0) {
      return new Set([Number(value)]);
    }
    const levels = SEVERITY.slice(0, worst + 1).map((name) => this.model.levels.indexOf(name));
    return new Set(levels.filter((index) => index >= 0));
  }

  // The rows beyond those that have been searched do not match yet.
  fillShown() {
    const {matches, model, shown} = this;
    const searched = this.isDone ? model.count : model.texts.firsts[this.search.next];
    const {times} = model;
    const [from, to] = this.isTimeOnly ? [this.visibleFrom, this.visibleTo] : [-Infinity, Infinity];
    let count = 0;
    for (let row = 0; row < searched; ++row) {
      if (matches[row] && times[row] >= from && times[row] <= to) {
        shown[count++] = row;
      }
    }
    this.shownCount = count;
  }
}
