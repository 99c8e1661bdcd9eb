import {byId, element} from "../base/dom.js";
import {formatCount} from "../base/numbers.js";
import {lowerBound, upperBound} from "../base/sorted.js";

const ALL = -2;
const NONE = -1;
const SEVERITY = ["FATAL", "ERROR", "WARN"];

function option(value, text) {
  const node = element("option", "", text);
  node.value = String(value);
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

function fillSelect(id, column, labels, noneLabel) {
  const counts = countValues(column, labels.length);
  const entries = labels.map((label, index) => ({label, index, count: counts[index]}))
    .filter((entry) => entry.count > 0);
  const select = byId(id);
  select.append(option(ALL, "All"), ...entries.map((entry) =>
    option(entry.index, `${entry.label || "(none)"} (${formatCount(entry.count)})`)));
  if (counts[labels.length] > 0) {
    select.append(option(NONE, `${noneLabel} (${formatCount(counts[labels.length])})`));
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
    this.isFiltered = false;
    this.isTimeOnly = false;
    this.visibleFrom = -Infinity;
    this.visibleTo = Infinity;
    this.fillSelects();
  }

  fillSelects() {
    const {model} = this;
    fillSelect("filter-source", model.source, model.sources, "No source");
    fillSelect("filter-level", model.level, model.levels, "No level");
    fillSelect("filter-thread", model.thread, model.threads.map((_, index) => model.threadFull(index)), "No thread");
    fillSelect("filter-name", model.name, model.names, "No name");
    fillSelect("filter-process", model.process, model.processes, "");
    byId("filter-process").parentElement.hidden = !model.hasProcesses;
    const worse = ["ERROR", "WARN"].filter((level) => model.levels.includes(level));
    byId("filter-level").firstChild.after(...worse.map((level) => option(level, `${level} and worse`)));
  }

  setVisibleTime(from, to) {
    this.visibleFrom = from;
    this.visibleTo = to;
    return byId("filter-range").checked;
  }

  chooseThread(thread) {
    byId("filter-thread").value = String(thread);
  }

  // Reads the form, and finds out which records match.
  apply() {
    const wanted = this.read();
    this.needle = wanted.needle;
    this.isTimeOnly = byId("filter-range").checked;
    this.isFiltered = Boolean(wanted.needle) || wanted.levels !== null ||
      [wanted.source, wanted.thread, wanted.name, wanted.process].some((value) => value !== ALL);
    this.fillMatches(wanted);
    this.fillShown();
  }

  read() {
    const number = (id) => Number(byId(id).value);
    return {
      needle: byId("search").value.toLowerCase(),
      source: number("filter-source"),
      thread: number("filter-thread"),
      name: number("filter-name"),
      process: number("filter-process"),
      levels: this.wantedLevels(byId("filter-level").value),
    };
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

  fillMatches({needle, source, thread, name, process, levels}) {
    const {model, matches} = this;
    const wanted = [[model.source, source], [model.thread, thread], [model.name, name], [model.process, process]]
      .filter(([, value]) => value !== ALL);
    for (let row = 0; row < model.count; ++row) {
      matches[row] = wanted.every(([column, value]) => column[row] === value) &&
        (levels === null || levels.has(model.level[row])) &&
        (!needle || model.searchText(row).includes(needle)) ? 1 : 0;
    }
  }

  fillShown() {
    const {model} = this;
    const from = this.isTimeOnly ? lowerBound(model.times, model.timed, this.visibleFrom) : 0;
    const to = this.isTimeOnly ? upperBound(model.times, model.timed, this.visibleTo) : model.count;
    this.shownCount = 0;
    for (let row = from; row < to; ++row) {
      if (this.matches[row]) {
        this.shown[this.shownCount++] = row;
      }
    }
  }
}
