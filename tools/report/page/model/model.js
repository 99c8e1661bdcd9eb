import {lowerBound} from "../base/sorted.js";
import {Clock} from "./clock.js";
import {KIND_TEXT, PAINTS, kindOfSource, paintOf} from "./kinds.js";
import {TimeMarks, surenessOf} from "./timemarks.js";

// A record with an unknown time comes after the others.
function sortKey(row) {
  return Number.isFinite(row[0]) ? row[0] : Infinity;
}

function sorted(rows) {
  const inOrder = rows.every((row, index) => index === 0 || sortKey(rows[index - 1]) <= sortKey(row));
  if (inOrder) {
    return rows;
  }
  return [...rows].sort((a, b) => (sortKey(a) === sortKey(b) ? 0 : sortKey(a) - sortKey(b)));
}

// What a page without data has.
const NOTHING = {clock: {}, sources: [], sourceKinds: [], levels: [], names: [], threads: [], processes: [], rows: [],
  crashes: []};

// The records by columns, in typed arrays, and the names they refer to.
export class Model {
  constructor(data) {
    this.data = data;
    const {clock, sources, sourceKinds, levels, names, threads, processes, rows, crashes} = {...NOTHING, ...data};
    this.clock = new Clock(clock);
    this.timeMarks = new TimeMarks(clock.marks ?? []);
    this.sources = sources;
    this.levels = levels;
    this.names = names;
    this.threads = threads.map((thread) => ({id: thread.id, name: thread.name || "", process: thread.process ?? 0}));
    // By their numbers; 0 is for what is of no known process.
    this.processes = ["No known process", ...processes];
    this.kinds = sources.map((_, index) => kindOfSource(sourceKinds[index]));
    this.rows = sorted(rows);
    this.fillColumns();
    this.crashes = crashes;
    this.crashTimes = this.crashes.map((crash) => crash.time).filter(Number.isFinite);
    // The one that the page is about.
    this.crash = this.crashes.at(-1)?.time ?? null;
    this.findRange();
    this.haystack = null;
  }

  get count() {
    return this.rows.length;
  }

  fillColumns() {
    const count = this.rows.length;
    this.times = new Float64Array(count);
    this.sure = new Uint8Array(count);
    this.mark = new Uint8Array(count);
    this.source = new Int32Array(count);
    this.thread = new Int32Array(count);
    this.level = new Int32Array(count);
    this.name = new Int32Array(count);
    this.process = new Int32Array(count);
    this.kind = new Uint8Array(count);
    this.paint = new Uint8Array(count);
    for (let index = 0; index < count; ++index) {
      this.fillRow(index, this.rows[index]);
    }
    this.timed = lowerBound(this.times, count, Infinity);
  }

  fillRow(index, row) {
    this.times[index] = sortKey(row);
    this.sure[index] = surenessOf(row[1]);
    this.mark[index] = row[1];
    this.source[index] = row[2];
    this.thread[index] = row[3];
    this.level[index] = row[4];
    this.name[index] = row[5];
    this.process[index] = row[8] ?? 0;
    this.kind[index] = this.kinds[row[2]] ?? KIND_TEXT;
    this.paint[index] = paintOf(this.kind[index], this.levels[row[4]] ?? "");
  }

  findRange() {
    const moments = [...this.crashTimes];
    if (this.timed > 0) {
      moments.push(this.times[0], this.times[this.timed - 1]);
    }
    this.first = moments.length ? Math.min(...moments) : 0;
    this.last = moments.length ? Math.max(...moments) : 0;
    this.clock.setRange(this.first, this.last);
  }

  hasTime(row) {
    return row < this.timed;
  }

  text(row) {
    return this.rows[row][6] ?? "";
  }

  // The values that the text shows in words, for the details.
  args(row) {
    return this.rows[row][7] ?? [];
  }

  get hasProcesses() {
    return this.processes.length > 1;
  }

  processName(row) {
    const boot = this.rows[row][9] ?? 0;
    if (this.process[row] > 0) {
      return this.processes[this.process[row]] ?? "";
    }
    return boot > 0 ? `process unknown, boot ${boot}` : this.processes[0];
  }

  levelName(row) {
    return this.levels[this.level[row]] ?? "";
  }

  nameOf(row) {
    return this.names[this.name[row]] ?? "";
  }

  sourceName(row) {
    return this.sources[this.source[row]] ?? "";
  }

  threadLabel(thread) {
    const known = this.threads[thread];
    return known ? known.name || known.id : "";
  }

  threadFull(thread) {
    const known = this.threads[thread];
    if (!known) {
      return "";
    }
    const full = known.name ? `${known.name} (${known.id})` : known.id;
    // Processes may use the same ids.
    return known.process > 0 && this.processes.length > 2 ? `${full}, process ${known.process}` : full;
  }

  paintName(row) {
    return PAINTS[this.paint[row]];
  }

  // A moment in full with its mark.
  momentLabel(time, mark) {
    return `${this.clock.full(time)} ${this.timeMarks.sign(mark)}`;
  }

  timeLabel(row) {
    return this.hasTime(row)
      ? `${this.clock.short(this.times[row])} ${this.timeMarks.sign(this.mark[row])}` : "not known";
  }

  // What a search looks through: the text, the arguments that the details list, and the name. Built at the first
  // search.
  searchText(row) {
    if (!this.haystack) {
      this.haystack = this.rows.map((record, index) =>
        `${record[6] ?? ""}\n${(record[7] ?? []).join(" ")}\n${this.nameOf(index)}`.toLowerCase());
    }
    return this.haystack[row];
  }
}
