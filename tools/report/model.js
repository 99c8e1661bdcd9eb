const NS_PER_MS = 1e6;
const NS_PER_S = 1e9;

const KIND_TEXT = 0;
const KIND_BINARY = 1;
const KIND_RING = 2;
const KIND_NAMES = ["text", "trace", "ring"];
const KIND_SHAPES = ["circle", "diamond", "square"];

const SURE_EXACT = 0;
const SURE_WORDS = [
  "exact",
  "may be later by whole seconds",
  "placed by assumption",
];
const SURE_SIGNS = ["", "≥", "~"];

// How a record is painted; where several share a pixel the last in this list is seen.
const PAINTS = [
  "cal", "debug", "plain", "info", "perf", "warn", "error", "fatal",
  "binary3", "binary2", "binary1", "binary0",
  "ring",
];
const SEVERITY = ["FATAL", "ERROR", "WARN"];

function byId(id) {
  return document.getElementById(id);
}

function element(tag, className, text) {
  const node = document.createElement(tag);
  if (className) {
    node.className = className;
  }
  if (text !== undefined && text !== null) {
    node.textContent = visible(String(text));
  }
  return node;
}

// Characters that would be invisible, or turn the direction of what stands beside them, are shown by their number.
const UNSEEN = /[\u0000-\u0008\u000b-\u001f\u007f-\u009f\u00ad\u061c\u200b-\u200f\u2028-\u202e\u2060-\u206f\ufeff\ufff9-\ufffb]/g;

function hex(number, digits) {
  return number.toString(16).padStart(digits, "0");
}

function visible(text) {
  return text.replace(UNSEEN, (character) => {
    const code = character.codePointAt(0);
    return code < 0x100 ? `\\x${hex(code, 2)}` : `\\u${hex(code, 4)}`;
  });
}

function visibleLine(text) {
  return visible(text).replace(/\n/g, "↵");
}

function lowerBound(values, count, wanted) {
  let low = 0;
  let high = count;
  while (low < high) {
    const middle = (low + high) >>> 1;
    if (values[middle] < wanted) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low;
}

function upperBound(values, count, wanted) {
  let low = 0;
  let high = count;
  while (low < high) {
    const middle = (low + high) >>> 1;
    if (values[middle] <= wanted) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low;
}

function formatCount(number) {
  return String(number).replace(/\B(?=(\d{3})+$)/g, ",");
}

function plural(number, word) {
  return `${formatCount(number)} ${word}${number === 1 ? "" : "s"}`;
}

function pad(number, digits) {
  return String(number).padStart(digits, "0");
}

function trimmed(number, digits) {
  return String(Number(number.toPrecision(digits)));
}

function formatDuration(ns) {
  const size = Math.abs(ns);
  if (size < 1e3) {
    return `${Math.round(size)} ns`;
  }
  if (size < NS_PER_MS) {
    return `${trimmed(size / 1e3, 3)} µs`;
  }
  if (size < NS_PER_S) {
    return `${trimmed(size / NS_PER_MS, 3)} ms`;
  }
  const seconds = size / NS_PER_S;
  if (seconds < 60) {
    return `${trimmed(seconds, 3)} s`;
  }
  const whole = Math.round(seconds);
  if (whole < 3600) {
    return `${Math.floor(whole / 60)} min ${whole % 60} s`;
  }
  const minutes = Math.round(seconds / 60);
  if (minutes < 1440) {
    return `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
  }
  const hours = Math.round(seconds / 3600);
  return `${Math.floor(hours / 24)} d ${hours % 24} h`;
}

const MONTHS = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"];

// Turns nanoseconds since the origin into what people read.
class Clock {
  constructor(clock) {
    this.wall = Boolean(clock.wall) && Number.isFinite(clock.originMs);
    this.originMs = this.wall ? clock.originMs : 0;
    this.severalDays = false;
  }

  setRange(from, to) {
    this.severalDays = this.wall && this.date(from) !== this.date(to);
  }

  parts(t) {
    const whole = Math.floor(t);
    const ms = Math.floor(whole / NS_PER_MS);
    const date = new Date(this.originMs + ms);
    const below = pad(date.getUTCMilliseconds(), 3) + pad(whole - ms * NS_PER_MS, 6);
    return {date, below};
  }

  date(t) {
    const {date} = this.parts(t);
    return `${date.getUTCFullYear()}-${pad(date.getUTCMonth() + 1, 2)}-${pad(date.getUTCDate(), 2)}`;
  }

  day(t) {
    const {date} = this.parts(t);
    return `${date.getUTCDate()} ${MONTHS[date.getUTCMonth()]}`;
  }

  time(t, digits) {
    if (!this.wall) {
      return `${(t / NS_PER_S).toFixed(digits)} s`;
    }
    const {date, below} = this.parts(t);
    const clock = [date.getUTCHours(), date.getUTCMinutes(), date.getUTCSeconds()].map((part) => pad(part, 2)).join(":");
    return digits === 0 ? clock : `${clock}.${below.slice(0, digits)}`;
  }

  // In a table: with the day only where records of several days stand together.
  short(t) {
    return this.severalDays ? `${this.date(t).slice(5)} ${this.time(t, 6)}` : this.time(t, 6);
  }

  full(t, digits = 9) {
    return this.wall ? `${this.date(t)} ${this.time(t, digits)}` : this.time(t, digits);
  }

  // Nanoseconds from the midnight before the origin, so that ticks stand at full hours.
  tickOffset() {
    const day = 86400000;
    return this.wall ? (((this.originMs % day) + day) % day) * NS_PER_MS : 0;
  }
}

function kindOf(sourceKind) {
  if (sourceKind === "systrace") {
    return KIND_BINARY;
  }
  return sourceKind === "ring" ? KIND_RING : KIND_TEXT;
}

function paintOf(kind, level) {
  if (kind === KIND_RING) {
    return PAINTS.indexOf("ring");
  }
  const name = kind === KIND_BINARY ? `binary${level || 0}` : level.toLowerCase();
  const paint = PAINTS.indexOf(name);
  return paint >= 0 ? paint : PAINTS.indexOf(kind === KIND_BINARY ? "binary3" : "plain");
}

// The records by columns, in typed arrays, and the names they refer to.
class Model {
  constructor(data) {
    this.data = data;
    this.clock = new Clock(data.clock ?? {});
    this.sources = data.sources ?? [];
    this.levels = data.levels ?? [];
    this.names = data.names ?? [];
    this.threads = (data.threads ?? []).map((thread) => ({id: thread.id, name: thread.name || ""}));
    this.kinds = this.sources.map((_, index) => kindOf((data.sourceKinds ?? [])[index]));
    this.rows = this.sorted(data.rows ?? []);
    this.fillColumns();
    this.crash = data.failure && Number.isFinite(data.failure.time) ? data.failure.time : null;
    this.findRange();
    this.haystack = null;
  }

  get count() {
    return this.rows.length;
  }

  sorted(rows) {
    const key = (row) => (Number.isFinite(row[0]) ? row[0] : Infinity);
    const inOrder = rows.every((row, index) => index === 0 || key(rows[index - 1]) <= key(row));
    return inOrder ? rows : [...rows].sort((a, b) => (key(a) === key(b) ? 0 : key(a) - key(b)));
  }

  fillColumns() {
    const count = this.rows.length;
    this.times = new Float64Array(count);
    this.sure = new Uint8Array(count);
    this.source = new Int32Array(count);
    this.thread = new Int32Array(count);
    this.level = new Int32Array(count);
    this.name = new Int32Array(count);
    this.kind = new Uint8Array(count);
    this.paint = new Uint8Array(count);
    for (let index = 0; index < count; ++index) {
      this.fillRow(index, this.rows[index]);
    }
    this.timed = lowerBound(this.times, count, Infinity);
  }

  fillRow(index, row) {
    this.times[index] = Number.isFinite(row[0]) ? row[0] : Infinity;
    this.sure[index] = row[1];
    this.source[index] = row[2];
    this.thread[index] = row[3];
    this.level[index] = row[4];
    this.name[index] = row[5];
    this.kind[index] = this.kinds[row[2]] ?? KIND_TEXT;
    this.paint[index] = paintOf(this.kind[index], this.levels[row[4]] ?? "");
  }

  findRange() {
    const moments = [];
    if (this.timed > 0) {
      moments.push(this.times[0], this.times[this.timed - 1]);
    }
    if (this.crash !== null) {
      moments.push(this.crash);
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

  args(row) {
    return this.rows[row][7] ?? [];
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
    return known.name ? `${known.name} (${known.id})` : known.id;
  }

  paintName(row) {
    return PAINTS[this.paint[row]];
  }

  timeLabel(row) {
    return this.hasTime(row) ? SURE_SIGNS[this.sure[row]] + this.clock.short(this.times[row]) : "not known";
  }

  // What a search looks through: the text, the words behind it and the name. Made at the first search.
  searchText(row) {
    if (!this.haystack) {
      this.haystack = this.rows.map((record, index) =>
        `${record[6] ?? ""}\n${(record[7] ?? []).join(" ")}\n${this.nameOf(index)}`.toLowerCase());
    }
    return this.haystack[row];
  }
}
