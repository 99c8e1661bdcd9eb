import {Clock} from "./clock.js";
import {KIND_TEXT, PAINTS, kindOfSource, paintOf} from "./kinds.js";
import {TimeMarks, surenessOf} from "./timemarks.js";

// What a page without data has.
const NOTHING = {clock: {}, sources: [], sourceKinds: [], levels: [], names: [], threads: [], boots: [], processes: [],
  crashes: []};

// The records by columns, in typed arrays, in the order in which they are shown, and the names they refer to. Times
// grow from one to the next but where the device's clock was set back; an unknown one is infinite.
export class Model {
  constructor(data, {columns, texts}) {
    this.data = data;
    const {clock, sources, sourceKinds, levels, names, threads, boots, processes, crashes} = {...NOTHING, ...data};
    this.clock = new Clock(clock);
    this.timeMarks = new TimeMarks(clock.marks ?? []);
    this.sources = sources;
    this.levels = levels;
    this.names = names;
    this.threads = threads.map((thread) => ({id: thread.id, name: thread.name || "", process: thread.process ?? 0}));
    this.boots = boots;
    // By their numbers; 0 is for what is of no known process.
    this.processes = ["No known process", ...processes.map((process) => process.words)];
    this.kinds = sources.map((_, index) => kindOfSource(sourceKinds[index]));
    this.takeColumns(columns);
    this.texts = texts;
    this.crashes = crashes;
    this.crashTimes = this.crashes.map((crash) => crash.time).filter(Number.isFinite);
    // The one that the page is about.
    this.crash = this.crashes.at(-1)?.time ?? null;
    this.crashRow = this.crashes.at(-1)?.row ?? null;
    this.findRange();
  }

  takeColumns(columns) {
    Object.assign(this, columns);
    const count = this.times.length;
    this.count = count;
    this.sure = new Uint8Array(count);
    this.kind = new Uint8Array(count);
    this.paint = new Uint8Array(count);
    const paints = [0, 1, 2].map((kind) => this.levels.map((level) => paintOf(kind, level)));
    const plain = [0, 1, 2].map((kind) => paintOf(kind, ""));
    for (let row = 0; row < count; ++row) {
      const kind = this.kinds[this.source[row]] ?? KIND_TEXT;
      this.sure[row] = surenessOf(this.mark[row]);
      this.kind[row] = kind;
      this.paint[row] = paints[kind][this.level[row]] ?? plain[kind];
    }
  }

  findRange() {
    this.timed = 0;
    this.first = Math.min(Infinity, ...this.crashTimes);
    this.last = Math.max(-Infinity, ...this.crashTimes);
    for (const time of this.times) {
      if (time !== Infinity) {
        this.timed += 1;
        this.first = time < this.first ? time : this.first;
        this.last = time > this.last ? time : this.last;
      }
    }
    if (this.first === Infinity) {
      this.first = this.last = 0;
    }
    this.clock.setRange(this.first, this.last);
  }

  hasTime(row) {
    return this.times[row] !== Infinity;
  }

  text(row) {
    return this.texts.text(row);
  }

  // The values that the text shows in words, for the details.
  args(row) {
    return this.texts.words(row);
  }

  get hasProcesses() {
    return this.processes.length > 1;
  }

  // Lines and what has only its thread to tell its process may be another's.
  processName(row) {
    const {lines, records} = this.data.processes?.[this.process[row] - 1]?.probable ?? {};
    const isProbable = this.kind[row] === KIND_TEXT ? lines : records;
    return (isProbable ? "probably " : "") + this.processWords(this.process[row], this.boot[row]);
  }

  processWords(process, boot) {
    if (process > 0) {
      return this.processes[process] ?? "";
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

  // Of a moment that may be a text or unknown, or whose certainty nobody tells.
  markedMoment(moment, sure) {
    const mark = Number.isInteger(sure) && Number.isFinite(moment) ? ` ${this.timeMarks.sign(sure)}` : "";
    return this.clock.moment(moment) + mark;
  }

  timeLabel(row) {
    return this.hasTime(row)
      ? `${this.clock.short(this.times[row])} ${this.timeMarks.sign(this.mark[row])}` : "not known";
  }
}
