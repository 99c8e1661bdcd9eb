const AXIS_HEIGHT = 26;
const SUBROW_HEIGHT = 17;
const LANE_PAD = 5;
const GLYPH = 4.5;
const LONELY = 5;
const REACH = 6;
const TOUCH_REACH = 14;
const MIN_SPAN = 1e3;
const TICK_STEPS = tickSteps();

function tickSteps() {
  const steps = [];
  for (let power = 2; power < 9; ++power) {
    steps.push(10 ** power, 2 * 10 ** power, 5 * 10 ** power);
  }
  for (const [unit, counts] of [[1, [1, 2, 5, 10, 15, 30]], [60, [1, 2, 5, 10, 15, 30]], [3600, [1, 2, 3, 6, 12]],
    [86400, [1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 5000, 20000]]]) {
    steps.push(...counts.map((count) => count * unit * NS_PER_S));
  }
  return steps;
}

// Calls are gathered until the next frame.
function frameRunner(action) {
  let pending = false;
  return () => {
    if (!pending) {
      pending = true;
      requestAnimationFrame(() => {
        pending = false;
        action();
      });
    }
  };
}

function fitCanvas(canvas, width, height) {
  const ratio = devicePixelRatio || 1;
  const [wide, high] = [Math.round(width * ratio), Math.round(height * ratio)];
  if (canvas.width !== wide || canvas.height !== high) {
    canvas.width = wide;
    canvas.height = high;
    canvas.style.height = `${height}px`;
  }
  const context = canvas.getContext("2d");
  context.setTransform(ratio, 0, 0, ratio, 0, 0);
  return context;
}

function readColours() {
  const style = getComputedStyle(document.documentElement);
  const read = (name) => style.getPropertyValue(`--${name}`).trim();
  return {
    marks: PAINTS.map((paint) => read(`m-${paint}`)),
    surface: read("surface"), raised: read("raised"), text: read("text"), muted: read("muted"), line: read("line"),
    soft: read("line-soft"), accent: read("accent"), crash: read("crash"), dim: read("m-dim"),
    mass: read("m-mass"),
    sans: read("sans"), mono: read("mono"),
  };
}

function drawGlyph(context, kind, x, y, size, hollow) {
  context.beginPath();
  if (kind === KIND_TEXT) {
    context.arc(x, y, size, 0, 2 * Math.PI);
  } else if (kind === KIND_RING) {
    context.rect(x - size + 0.5, y - size + 0.5, 2 * size - 1, 2 * size - 1);
  } else {
    context.moveTo(x, y - size - 1);
    context.lineTo(x + size + 1, y);
    context.lineTo(x, y + size + 1);
    context.lineTo(x - size - 1, y);
    context.closePath();
  }
  if (hollow) {
    context.lineWidth = 1.75;
    context.stroke();
  } else {
    context.fill();
  }
}

// What falls into each pixel of one line of marks.
class Buckets {
  constructor() {
    this.resize(0);
  }

  resize(width) {
    this.width = width;
    this.count = new Uint32Array(width);
    this.paint = new Int8Array(width);
    this.row = new Int32Array(width);
    this.dim = new Uint8Array(width);
    this.tally = new Uint32Array(width * PAINTS.length);
  }

  clear(width) {
    if (width !== this.width) {
      this.resize(width);
      return;
    }
    this.count.fill(0);
    this.dim.fill(0);
    this.tally.fill(0);
  }

  add(x, row, paint) {
    if (this.count[x] === 0 || paint > this.paint[x]) {
      this.paint[x] = paint;
      this.row[x] = row;
    }
    this.count[x] += 1;
    this.tally[x * PAINTS.length + paint] += 1;
  }

  // A bar of all that is in a pixel, the worst at its foot and never too thin to be seen.
  drawStack(context, x, left, bottom, wide, tall, colours) {
    const worst = this.paint[x];
    const at = x * PAINTS.length;
    const foot = Math.max(Math.min(2.5, tall), (tall * this.tally[at + worst]) / this.count[x]);
    context.fillStyle = colours[worst];
    context.fillRect(left, bottom - foot, wide, foot);
    const others = this.count[x] - this.tally[at + worst];
    let y = bottom - foot;
    for (let paint = worst - 1; paint >= 0 && others > 0; --paint) {
      const high = ((tall - foot) * this.tally[at + paint]) / others;
      if (high > 0) {
        context.fillStyle = colours[paint];
        context.fillRect(left, y - high, wide, high);
        y -= high;
      }
    }
  }

  isLonely(x) {
    if (this.count[x] !== 1) {
      return false;
    }
    const to = Math.min(this.width - 1, x + LONELY);
    for (let other = Math.max(0, x - LONELY); other <= to; ++other) {
      if (other !== x && this.count[other] > 0) {
        return false;
      }
    }
    return true;
  }
}

// The records of one thread and one kind, in time order.
class SubRow {
  constructor(kind) {
    this.kind = kind;
    this.rows = [];
    this.top = 0;
  }

  finish(times) {
    this.rows = Int32Array.from(this.rows);
    this.times = Float64Array.from(this.rows, (row) => times[row]);
  }

  within(from, to) {
    return [lowerBound(this.times, this.times.length, from), upperBound(this.times, this.times.length, to)];
  }
}

function buildLanes(model) {
  const lanes = new Map();
  for (let row = 0; row < model.timed; ++row) {
    const thread = model.threads[model.thread[row]] ? model.thread[row] : NONE;
    if (!lanes.has(thread)) {
      lanes.set(thread, {thread, kinds: [null, null, null]});
    }
    const {kinds} = lanes.get(thread);
    const kind = model.kind[row];
    kinds[kind] ??= new SubRow(kind);
    kinds[kind].rows.push(row);
  }
  const order = (lane) => (lane.thread < 0 ? Infinity : lane.thread);
  return [...lanes.values()].sort((a, b) => order(a) - order(b)).map((lane) => finishLane(model, lane));
}

function finishLane(model, lane) {
  const subRows = lane.kinds.filter(Boolean);
  subRows.forEach((subRow) => subRow.finish(model.times));
  const known = model.threads[lane.thread];
  return {
    thread: lane.thread,
    label: known ? visibleLine(known.name || known.id) : "No thread",
    id: known && known.name ? visibleLine(known.id) : "",
    subRows,
    height: subRows.length * SUBROW_HEIGHT + 2 * LANE_PAD,
  };
}

// Where the lanes stand, from the top of all of them.
function placeLanes(lanes) {
  let top = 0;
  for (const lane of lanes) {
    lane.top = top;
    lane.subRows.forEach((subRow, index) => {
      subRow.top = top + LANE_PAD + index * SUBROW_HEIGHT;
    });
    top += lane.height;
  }
  return top;
}

class Timeline {
  constructor(model) {
    this.model = model;
    this.host = byId("lanes");
    this.chart = byId("chart");
    this.overview = byId("overview");
    this.tip = byId("tip");
    this.lanes = buildLanes(model);
    this.lanesHeight = placeLanes(this.lanes);
    this.buckets = new Buckets();
    this.matches = null;
    this.isFiltered = false;
    this.selected = -1;
    this.pointers = new Map();
    this.lastWheel = 0;
    this.onSelect = () => {};
    this.onView = () => {};
    this.drawLater = frameRunner(() => this.draw());
    this.setFull();
    this.from = this.full.from;
    this.to = this.full.to;
  }

  setFull() {
    const {first, last} = this.model;
    const margin = last > first ? (last - first) * 0.02 : NS_PER_S / 2;
    this.full = {from: first - margin, to: last + margin};
    this.full.span = this.full.to - this.full.from;
  }

  start() {
    this.colours = readColours();
    this.layout();
    this.fillLegend();
    this.listen();
    this.listenOverview();
    this.listenButtons();
    this.setView(this.full.from, this.full.to);
    this.draw();
  }

  layout() {
    const wanted = Math.max(this.lanesHeight, SUBROW_HEIGHT * 3) + AXIS_HEIGHT;
    this.host.style.height = `${wanted + 2}px`;
    this.width = this.host.clientWidth;
    this.height = this.host.clientHeight;
    this.gutter = this.width < 560 ? 92 : 168;
    this.plot = Math.max(10, Math.floor(this.width - this.gutter - 12));
    byId("lanes-height").style.height = `${Math.max(0, wanted - this.height)}px`;
  }

  get span() {
    return this.to - this.from;
  }

  x(t) {
    return this.gutter + ((t - this.from) / this.span) * this.plot;
  }

  timeAt(x) {
    return this.from + ((x - this.gutter) / this.plot) * this.span;
  }

  // Never beyond half a screen of nothing on either side.
  setView(from, to) {
    const span = Math.min(Math.max(to - from, MIN_SPAN), this.full.span);
    const centre = Math.min(Math.max((from + to) / 2, this.full.from), this.full.to);
    this.from = centre - span / 2;
    this.to = centre + span / 2;
    if (span > this.full.span * (1 - 1e-6)) {
      this.from = this.full.from;
      this.to = this.full.to;
    }
    this.showRange();
    this.drawLater();
    this.onView(this.from, this.to);
  }

  showRange() {
    const {clock} = this.model;
    const digits = this.span > 100 * NS_PER_S ? 0 : this.span > NS_PER_S ? 3 : this.span > NS_PER_MS ? 6 : 9;
    const sameDay = clock.wall && clock.date(this.from) === clock.date(this.to);
    const end = sameDay ? clock.time(this.to, digits) : clock.full(this.to, digits);
    const range = byId("range");
    range.textContent = this.model.timed ? `${clock.full(this.from, digits)} – ${end}  (${formatDuration(this.span)})` : "";
    range.dataset.from = String(this.from);
    range.dataset.to = String(this.to);
  }

  zoom(factor, around) {
    const span = Math.min(Math.max(this.span / factor, MIN_SPAN), this.full.span);
    const share = (around - this.from) / this.span;
    this.setView(around - share * span, around + (1 - share) * span);
  }

  // Keys and buttons have no pointer: they zoom around the selection where it can be seen.
  zoomStep(factor) {
    const t = this.selected >= 0 ? this.model.times[this.selected] : NaN;
    this.zoom(factor, t >= this.from && t <= this.to ? t : (this.from + this.to) / 2);
  }

  pan(share) {
    const by = share * this.span;
    this.setView(this.from + by, this.to + by);
  }

  fit() {
    this.setView(this.full.from, this.full.to);
  }

  goToCrash() {
    const moment = this.model.crash ?? this.model.last;
    const span = Math.min(this.span, 10 * NS_PER_S, this.full.span / 4);
    this.setView(moment - 0.8 * span, moment + 0.2 * span);
  }

  centre(row) {
    const t = this.model.times[row];
    const span = Math.max(MIN_SPAN, Math.min(this.span / 8, this.full.span / 8));
    this.setView(t - span / 2, t + span / 2);
    this.revealLane(row);
  }

  setMatches(matches, isFiltered) {
    this.matches = matches;
    this.isFiltered = isFiltered;
    this.overviewImage = null;
    this.drawLater();
  }

  setSelected(row, reveal) {
    this.selected = row;
    if (reveal && row >= 0 && this.model.hasTime(row)) {
      const t = this.model.times[row];
      if (t < this.from || t > this.to) {
        this.setView(t - this.span / 2, t + this.span / 2);
      }
      this.revealLane(row);
    }
    this.drawLater();
  }

  subRowOf(row) {
    const lane = this.lanes.find((candidate) => candidate.thread === this.model.thread[row]) ??
      this.lanes.find((candidate) => candidate.thread < 0);
    return lane?.subRows.find((subRow) => subRow.kind === this.model.kind[row]);
  }

  revealLane(row) {
    const subRow = this.subRowOf(row);
    if (!subRow) {
      return;
    }
    const room = this.height - AXIS_HEIGHT;
    if (subRow.top < this.host.scrollTop || subRow.top + SUBROW_HEIGHT > this.host.scrollTop + room) {
      this.host.scrollTop = subRow.top - room / 2;
    }
  }

  // ---- Drawing ----

  draw() {
    const context = fitCanvas(this.chart, this.width, this.height);
    this.context = context;
    context.fillStyle = this.colours.surface;
    context.fillRect(0, 0, this.width, this.height);
    context.save();
    context.beginPath();
    context.rect(0, AXIS_HEIGHT, this.width, this.height - AXIS_HEIGHT);
    context.clip();
    this.drawBands();
    this.drawTickLines();
    this.drawCrashLine();
    this.lanes.forEach((lane) => this.drawLane(lane));
    this.drawSelection();
    this.drawGutter();
    context.restore();
    this.drawAxis();
    this.drawNothing();
    this.drawOverview();
  }

  y(top) {
    return AXIS_HEIGHT + top - this.host.scrollTop;
  }

  isOnScreen(lane) {
    const y = this.y(lane.top);
    return y + lane.height > AXIS_HEIGHT && y < this.height;
  }

  drawBands() {
    const {context, colours} = this;
    this.lanes.forEach((lane, index) => {
      if (!this.isOnScreen(lane)) {
        return;
      }
      if (index % 2 === 1) {
        context.fillStyle = colours.raised;
        context.fillRect(0, this.y(lane.top), this.width, lane.height);
      }
      context.fillStyle = colours.soft;
      context.fillRect(0, Math.round(this.y(lane.top + lane.height)) - 1, this.width, 1);
    });
  }

  drawLane(lane) {
    if (this.isOnScreen(lane)) {
      const {context} = this;
      context.save();
      context.beginPath();
      context.rect(this.gutter - GLYPH, AXIS_HEIGHT, this.plot + 2 * GLYPH + 4, this.height);
      context.clip();
      lane.subRows.forEach((subRow) => this.drawSubRow(subRow));
      context.restore();
    }
  }

  fillBuckets(subRow) {
    const {buckets, model, matches, isFiltered, plot} = this;
    buckets.clear(plot + 1);
    const [low, high] = subRow.within(this.from, this.to);
    const scale = plot / this.span;
    const {times, rows} = subRow;
    for (let index = low; index < high; ++index) {
      const x = ((times[index] - this.from) * scale) | 0;
      const row = rows[index];
      if (isFiltered && !matches[row]) {
        buckets.dim[x] = 1;
      } else {
        buckets.add(x, row, model.paint[row]);
      }
    }
  }

  drawSubRow(subRow) {
    this.fillBuckets(subRow);
    const y = this.y(subRow.top) + SUBROW_HEIGHT / 2;
    this.drawDim(y);
    this.drawBars(y);
    this.drawLonely(subRow.kind, y);
  }

  drawDim(y) {
    const {context, buckets} = this;
    if (!this.isFiltered) {
      return;
    }
    context.fillStyle = this.colours.dim;
    for (let x = 0; x < buckets.width; ++x) {
      if (buckets.dim[x]) {
        context.fillRect(this.gutter + x - 1, y - 4, 2, 8);
      }
    }
  }

  drawBars(y) {
    const {context, buckets, colours} = this;
    for (let x = 0; x < buckets.width; ++x) {
      const count = buckets.count[x];
      if (count > 0 && !buckets.isLonely(x)) {
        const half = Math.min(SUBROW_HEIGHT / 2 - 1, 3.5 + Math.log2(count));
        buckets.drawStack(context, x, this.gutter + x, y + half, buckets.count[x + 1] ? 1 : 2, 2 * half, colours.marks);
      }
    }
  }

  drawLonely(kind, y) {
    const {context, buckets, colours, model} = this;
    const fatal = PAINTS.indexOf("fatal");
    for (let x = 0; x < buckets.width; ++x) {
      if (buckets.isLonely(x)) {
        context.fillStyle = context.strokeStyle = colours.marks[buckets.paint[x]];
        const size = buckets.paint[x] === fatal ? GLYPH + 1.5 : GLYPH;
        drawGlyph(context, kind, this.gutter + x + 0.5, y, size, model.sure[buckets.row[x]] !== SURE_EXACT);
      }
    }
  }

  drawCrashLine() {
    const {crash} = this.model;
    if (crash !== null && crash >= this.from && crash <= this.to) {
      this.context.fillStyle = this.colours.crash;
      this.context.fillRect(Math.round(this.x(crash)) - 1, 0, 2, this.height);
    }
  }

  drawSelection() {
    const {model, context, colours, selected} = this;
    if (selected < 0 || !model.hasTime(selected)) {
      return;
    }
    const t = model.times[selected];
    if (t < this.from || t > this.to) {
      return;
    }
    const x = this.gutter + Math.floor(this.x(t) - this.gutter) + 0.5;
    const y = this.y(this.subRowOf(selected).top) + SUBROW_HEIGHT / 2;
    context.fillStyle = colours.accent;
    context.fillRect(x - 0.5, AXIS_HEIGHT, 1, this.height);
    context.fillStyle = colours.surface;
    drawGlyph(context, KIND_TEXT, x, y, GLYPH + 4, false);
    context.strokeStyle = colours.accent;
    drawGlyph(context, KIND_TEXT, x, y, GLYPH + 3.5, true);
    context.fillStyle = context.strokeStyle = colours.marks[model.paint[selected]];
    drawGlyph(context, model.kind[selected], x, y, GLYPH - 0.5, model.sure[selected] !== SURE_EXACT);
  }

  drawGutter() {
    const {context, colours} = this;
    context.fillStyle = colours.surface;
    context.fillRect(0, AXIS_HEIGHT, this.gutter - 8, this.height);
    context.fillStyle = colours.line;
    context.fillRect(this.gutter - 8, 0, 1, this.height);
    context.textBaseline = "middle";
    this.lanes.forEach((lane, index) => {
      if (this.isOnScreen(lane)) {
        this.drawLabel(lane, index);
      }
    });
  }

  drawLabel(lane, index) {
    const {context, colours} = this;
    const top = this.y(lane.top);
    const room = this.gutter - 22 - (this.gutter > 120 ? 34 : 0);
    if (index % 2 === 1) {
      context.fillStyle = colours.raised;
      context.fillRect(0, top, this.gutter - 8, lane.height);
    }
    context.fillStyle = colours.soft;
    context.fillRect(0, Math.round(top + lane.height) - 1, this.gutter - 8, 1);
    context.textAlign = "left";
    const twoLines = Boolean(lane.id) && lane.subRows.length > 1;
    const first = top + LANE_PAD + SUBROW_HEIGHT / 2;
    this.label(lane.label, `600 12.5px ${colours.sans}`, colours.text, 10, first, room);
    if (twoLines) {
      this.label(lane.id, `11px ${colours.mono}`, colours.muted, 10, first + SUBROW_HEIGHT, room);
    }
    if (this.gutter > 120) {
      context.textAlign = "right";
      lane.subRows.forEach((subRow) => this.label(KIND_NAMES[subRow.kind], `11px ${colours.sans}`, colours.muted,
        this.gutter - 14, this.y(subRow.top) + SUBROW_HEIGHT / 2, 40));
    }
  }

  label(text, font, colour, x, y, room) {
    const {context} = this;
    context.font = font;
    context.fillStyle = colour;
    let shown = text;
    while (shown.length > 1 && context.measureText(shown).width > room) {
      shown = `${shown.slice(0, shown.endsWith("…") ? -2 : -1)}…`;
    }
    context.fillText(shown, x, y + 0.5);
  }

  // ---- The axis ----

  tickLabel(t, step) {
    const {clock} = this.model;
    if (!clock.wall) {
      return clock.time(t, step >= NS_PER_S ? 0 : Math.ceil(9 - Math.log10(step)));
    }
    if (step >= 86400 * NS_PER_S) {
      return clock.day(t);
    }
    if (step >= 60 * NS_PER_S) {
      return clock.time(t, 0).slice(0, 5);
    }
    return clock.time(t, step >= NS_PER_S ? 0 : Math.ceil(9 - Math.log10(step) - 1e-9));
  }

  ticks() {
    const {context, colours} = this;
    if (this.model.timed === 0) {
      return [];
    }
    context.font = `12px ${colours.sans}`;
    const step = TICK_STEPS.find((candidate) => {
      const width = context.measureText(this.tickLabel(this.from, candidate)).width + 28;
      return (candidate / this.span) * this.plot >= width;
    }) ?? TICK_STEPS[TICK_STEPS.length - 1];
    const offset = this.model.clock.tickOffset();
    const ticks = [];
    for (let t = Math.ceil((this.from + offset) / step) * step - offset; t <= this.to; t += step) {
      ticks.push({t, x: Math.round(this.x(t)), label: this.tickLabel(t, step)});
    }
    return ticks;
  }

  drawTickLines() {
    this.context.fillStyle = this.colours.soft;
    this.ticks().forEach((tick) => this.context.fillRect(tick.x, AXIS_HEIGHT, 1, this.height));
  }

  drawAxis() {
    const {context, colours} = this;
    context.fillStyle = colours.raised;
    context.fillRect(0, 0, this.width, AXIS_HEIGHT - 1);
    context.fillStyle = colours.line;
    context.fillRect(0, AXIS_HEIGHT - 1, this.width, 1);
    context.textAlign = "center";
    context.textBaseline = "middle";
    context.font = `12px ${colours.sans}`;
    const flag = this.crashFlag();
    for (const tick of this.ticks()) {
      context.fillStyle = colours.muted;
      context.fillRect(tick.x, AXIS_HEIGHT - 6, 1, 5);
      const half = context.measureText(tick.label).width / 2;
      const isCovered = flag && tick.x + half > flag.left - 4 && tick.x - half < flag.left + flag.width + 4;
      if (!isCovered && tick.x - half > this.gutter - 8 && tick.x + half < this.width) {
        context.fillText(tick.label, tick.x, 11);
      }
    }
    context.textAlign = "left";
    this.label(this.model.clock.wall ? "Local time" : "Since first record", `12px ${colours.sans}`, colours.muted, 10, 11,
      this.gutter - 20);
    this.drawCrashFlag(flag);
  }

  crashFlag() {
    const {crash} = this.model;
    if (crash === null || crash < this.from || crash > this.to) {
      return null;
    }
    const width = 44;
    return {width, left: Math.min(Math.max(this.x(crash) - width / 2, this.gutter), this.width - width - 2)};
  }

  drawCrashFlag(flag) {
    if (!flag) {
      return;
    }
    const {context, colours} = this;
    const {crash} = this.model;
    const {left, width} = flag;
    context.font = `600 11.5px ${colours.sans}`;
    context.fillStyle = colours.crash;
    context.fillRect(left, 3, width, 17);
    context.fillRect(Math.round(this.x(crash)) - 1, 19, 2, AXIS_HEIGHT - 19);
    context.fillStyle = colours.surface;
    context.textAlign = "center";
    context.fillText("crash", left + width / 2, 12);
  }

  drawNothing() {
    if (this.model.timed === 0) {
      this.context.textAlign = "center";
      this.label("No record with a time", `13px ${this.colours.sans}`, this.colours.muted, this.width / 2,
        (this.height + AXIS_HEIGHT) / 2, this.width);
    }
  }

  // ---- The overview ----

  drawOverview() {
    const width = this.overview.clientWidth;
    const height = 34;
    const context = fitCanvas(this.overview, width, height);
    const key = `${width}/${devicePixelRatio}`;
    if (!this.overviewImage || this.overviewKey !== key) {
      this.overviewImage = this.makeOverview(width, height);
      this.overviewKey = key;
    }
    context.clearRect(0, 0, width, height);
    context.drawImage(this.overviewImage, 0, 0, width, height);
    this.drawWindow(context, width, height);
  }

  overviewX(t) {
    return this.gutter + ((t - this.full.from) / this.full.span) * this.plot;
  }

  makeOverview(width, height) {
    const image = document.createElement("canvas");
    const context = fitCanvas(image, width, height);
    const {model, buckets, plot} = this;
    buckets.clear(plot + 1);
    const scale = plot / this.full.span;
    for (let row = 0; row < model.timed; ++row) {
      if (!this.isFiltered || this.matches[row]) {
        buckets.add(((model.times[row] - this.full.from) * scale) | 0, row, this.overviewRank(row));
      }
    }
    const most = buckets.count.reduce((a, b) => Math.max(a, b), 1);
    const wrong = ["warn", "error", "fatal"].map((name) => this.colours.marks[PAINTS.indexOf(name)]);
    const colours = [this.colours.mass, ...wrong];
    for (let x = 0; x < buckets.width; ++x) {
      if (buckets.count[x] > 0) {
        const tall = 5 + (height - 9) * (Math.log2(buckets.count[x] + 1) / Math.log2(most + 1));
        buckets.drawStack(context, x, this.gutter + x, height, buckets.count[x + 1] ? 1 : 1.5, tall, colours);
      }
    }
    return image;
  }

  // Only what went wrong has a colour here.
  overviewRank(row) {
    return Math.max(0, ["warn", "error", "fatal"].indexOf(this.model.paintName(row)) + 1);
  }

  drawWindow(context, width, height) {
    const {colours, model} = this;
    const left = Math.max(this.gutter, this.overviewX(this.from));
    const right = Math.min(this.gutter + this.plot, Math.max(left + 2, this.overviewX(this.to)));
    context.globalAlpha = 0.62;
    context.fillStyle = colours.surface;
    context.fillRect(this.gutter - 8, 0, left - this.gutter + 8, height);
    context.fillRect(right, 0, width - right, height);
    context.globalAlpha = 1;
    context.strokeStyle = colours.accent;
    context.lineWidth = 1.5;
    context.strokeRect(left + 0.5, 1, Math.max(2, right - left - 1), height - 2);
    if (model.crash !== null) {
      context.fillStyle = colours.crash;
      context.fillRect(Math.round(this.overviewX(model.crash)) - 1, 0, 2, height);
    }
    context.fillStyle = colours.muted;
    context.font = `12px ${colours.sans}`;
    context.textBaseline = "middle";
    context.textAlign = "left";
    context.fillText("All", 10, height / 2 + 1);
  }

  listenOverview() {
    const move = (event) => {
      const x = event.clientX - this.overview.getBoundingClientRect().left;
      const t = this.full.from + ((x - this.gutter) / this.plot) * this.full.span;
      this.setView(t - this.span / 2, t + this.span / 2);
    };
    this.overview.addEventListener("pointerdown", (event) => {
      this.overview.setPointerCapture(event.pointerId);
      move(event);
    });
    this.overview.addEventListener("pointermove", (event) => {
      if (event.buttons) {
        move(event);
      }
    });
  }

  // ---- Pointer and keys ----

  listen() {
    const {host} = this;
    host.addEventListener("wheel", (event) => this.wheel(event), {passive: false});
    host.addEventListener("pointerdown", (event) => this.pointerDown(event));
    host.addEventListener("pointermove", (event) => this.pointerMove(event));
    host.addEventListener("pointerup", (event) => this.pointerUp(event));
    host.addEventListener("pointercancel", (event) => this.forget(event));
    host.addEventListener("pointerleave", () => this.hideTip());
    host.addEventListener("dblclick", (event) => this.zoom(4, this.timeAt(this.position(event).x)));
    host.addEventListener("keydown", (event) => this.key(event));
    host.addEventListener("scroll", () => this.drawLater());
    document.addEventListener("themechange", () => {
      this.colours = readColours();
      this.overviewImage = null;
      this.drawLater();
    });
    new ResizeObserver(() => {
      this.layout();
      this.drawLater();
    }).observe(host);
  }

  listenButtons() {
    const actions = {
      "pan-left": () => this.pan(-0.25),
      "pan-right": () => this.pan(0.25),
      "zoom-in": () => this.zoomStep(2),
      "zoom-out": () => this.zoomStep(0.5),
      "zoom-fit": () => this.fit(),
      "zoom-crash": () => this.goToCrash(),
    };
    for (const [id, action] of Object.entries(actions)) {
      byId(id).addEventListener("click", action);
    }
    byId("zoom-crash").textContent = this.model.crash === null ? "End" : "Crash";
    byId("zoom-crash").title = this.model.crash === null ? "The last record (End)" : "The moment of the crash (End)";
  }

  key(event) {
    const actions = {
      "+": () => this.zoomStep(2),
      "=": () => this.zoomStep(2),
      "-": () => this.zoomStep(0.5),
      ArrowLeft: () => this.pan(-0.1),
      ArrowRight: () => this.pan(0.1),
      ArrowUp: () => { this.host.scrollTop -= 2 * SUBROW_HEIGHT; },
      ArrowDown: () => { this.host.scrollTop += 2 * SUBROW_HEIGHT; },
      Home: () => this.fit(),
      End: () => this.goToCrash(),
    };
    if (Object.hasOwn(actions, event.key) && !event.ctrlKey && !event.metaKey && !event.altKey) {
      event.preventDefault();
      actions[event.key]();
    }
  }

  position(event) {
    const box = this.chart.getBoundingClientRect();
    return {x: event.clientX - box.left, y: event.clientY - box.top};
  }

  // With everything on the screen there is nothing to zoom out to, and the page may scroll on.
  wheel(event) {
    const unit = event.deltaMode === 1 ? 16 : event.deltaMode === 2 ? 400 : 1;
    const sideways = event.shiftKey ? event.deltaY || event.deltaX : event.deltaX;
    const isPan = event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY);
    const isOut = !isPan && event.deltaY > 0 && this.span >= this.full.span;
    if (isOut && event.timeStamp - this.lastWheel > 400) {
      return;
    }
    event.preventDefault();
    if (isPan) {
      this.pan((sideways * unit) / this.plot);
      return;
    }
    if (!isOut) {
      this.lastWheel = event.timeStamp;
    }
    const strength = event.ctrlKey ? 0.01 : 0.0018;
    this.zoom(Math.exp(-event.deltaY * unit * strength), this.timeAt(Math.max(this.gutter, this.position(event).x)));
    this.hideTip();
  }

  pointerDown(event) {
    if (event.button !== 0 || event.offsetX > this.width) {
      return;
    }
    const at = this.position(event);
    this.pointers.set(event.pointerId, at);
    this.pressed = this.pointers.size === 1 ? {...at, moved: false} : null;
    this.host.setPointerCapture(event.pointerId);
  }

  pointerMove(event) {
    const at = this.position(event);
    const before = this.pointers.get(event.pointerId);
    if (!before) {
      this.hover(event, at);
      return;
    }
    if (this.pointers.size === 2) {
      this.pinch(event.pointerId, before, at);
    } else {
      this.drag(event, before, at);
    }
    this.pointers.set(event.pointerId, at);
  }

  drag(event, before, at) {
    if (this.pressed && !this.pressed.moved) {
      if (Math.hypot(at.x - this.pressed.x, at.y - this.pressed.y) < 4) {
        return;
      }
      this.pressed.moved = true;
      this.host.classList.add("dragging");
      this.hideTip();
    }
    this.pan((before.x - at.x) / this.plot);
    if (event.pointerType === "mouse") {
      this.host.scrollTop += before.y - at.y;
    }
  }

  pinch(moving, before, at) {
    const [, other] = [...this.pointers].find(([id]) => id !== moving);
    const apart = (a) => Math.max(20, Math.abs(a.x - other.x));
    this.zoom(apart(at) / apart(before), this.timeAt((at.x + other.x) / 2));
  }

  pointerUp(event) {
    const press = this.pressed;
    this.forget(event);
    if (press && !press.moved) {
      const at = this.position(event);
      const hit = this.hit(at, event.pointerType === "touch" ? TOUCH_REACH : REACH);
      if (hit) {
        this.setSelected(hit.row, false);
        this.onSelect(hit.row);
      }
      this.hover(event, at);
    }
  }

  forget(event) {
    this.pointers.delete(event.pointerId);
    this.pressed = null;
    this.host.classList.remove("dragging");
  }

  // ---- What is under the pointer ----

  subRowAt(y) {
    const top = y - AXIS_HEIGHT + this.host.scrollTop;
    if (y < AXIS_HEIGHT) {
      return null;
    }
    const lane = this.lanes.find((candidate) => top >= candidate.top && top < candidate.top + candidate.height);
    if (!lane) {
      return null;
    }
    const index = Math.floor((top - lane.top - LANE_PAD) / SUBROW_HEIGHT);
    return lane.subRows[Math.min(lane.subRows.length - 1, Math.max(0, index))];
  }

  // The nearest record, and of several on the same pixel the one that is seen; how many others share its pixel.
  hit({x, y}, reach) {
    const subRow = x >= this.gutter - reach ? this.subRowAt(y) : null;
    if (!subRow) {
      return null;
    }
    const [low, high] = subRow.within(this.timeAt(x - reach), this.timeAt(x + reach));
    let best = null;
    for (let index = low; index < high; ++index) {
      const row = subRow.rows[index];
      if (this.isFiltered && !this.matches[row]) {
        continue;
      }
      const pixel = Math.floor(this.x(subRow.times[index]) - this.gutter);
      const away = Math.abs(pixel + 0.5 + this.gutter - x);
      if (best && best.pixel === pixel) {
        best.others += 1;
      }
      if (!best || away < best.away || (best.pixel === pixel && this.model.paint[row] > this.model.paint[best.row])) {
        best = {row, pixel, away, others: best && best.pixel === pixel ? best.others : 0};
      }
    }
    return best;
  }

  hover(event, at) {
    const hit = event.pointerType === "touch" ? null : this.hit(at, REACH);
    this.host.classList.toggle("pointing", Boolean(hit));
    if (hit) {
      this.showTip(hit, event);
    } else {
      this.hideTip();
    }
  }

  showTip(hit, event) {
    const {model, tip} = this;
    const {row} = hit;
    const head = element("p", "muted");
    const level = element("b", `l-${model.paintName(row)}`, model.levelName(row) || KIND_NAMES[model.kind[row]]);
    head.append(document.createTextNode(`${model.timeLabel(row)}  `), level,
      document.createTextNode(`  ${visibleLine(model.nameOf(row))}`));
    const text = visible(model.text(row));
    const words = model.args(row).length ? `  ${visible(model.args(row).join(" "))}` : "";
    const body = element("p", "tip-text", (text.length > 240 ? `${text.slice(0, 240)}…` : text) + words);
    tip.replaceChildren(head, body);
    if (hit.others > 0) {
      tip.append(element("p", "muted", `and ${plural(hit.others, "other")} here; zoom in to part them`));
    }
    tip.hidden = false;
    const box = tip.getBoundingClientRect();
    const left = Math.min(event.clientX + 14, innerWidth - box.width - 8);
    const below = event.clientY + 18;
    const top = below + box.height > innerHeight - 8 ? event.clientY - box.height - 12 : below;
    tip.style.transform = `translate(${Math.max(8, left)}px, ${Math.max(8, top)}px)`;
  }

  hideTip() {
    this.tip.hidden = true;
    this.host.classList.remove("pointing");
  }

  // ---- The legend ----

  fillLegend() {
    const {model} = this;
    const seen = new Set();
    let unsure = false;
    for (let row = 0; row < model.timed; ++row) {
      seen.add(model.paint[row]);
      unsure ||= model.sure[row] !== SURE_EXACT;
    }
    const legend = byId("legend");
    [...seen].sort((a, b) => this.legendOrder(a) - this.legendOrder(b))
      .forEach((paint) => legend.append(this.legendItem(paint)));
    if (unsure) {
      legend.append(this.legendMark("mark hollow", "", "hollow: time not exact"));
    }
    if (model.crash !== null) {
      legend.append(this.legendMark("mark crash", "", "crash"));
    }
  }

  // From the worst on, the text levels first.
  legendOrder(paint) {
    const fatal = PAINTS.indexOf("fatal");
    return paint <= fatal ? fatal - paint : 2 * PAINTS.length - paint + (paint === PAINTS.indexOf("ring") ? PAINTS.length : 0);
  }

  legendItem(paint) {
    const name = PAINTS[paint];
    const kind = name === "ring" ? KIND_RING : name.startsWith("binary") ? KIND_BINARY : KIND_TEXT;
    const words = {plain: "line", cal: "CAL", ring: "ring event"};
    const text = words[name] ?? (kind === KIND_BINARY ? `trace level ${name.slice(-1)}` : name.toUpperCase());
    return this.legendMark(`mark ${KIND_SHAPES[kind]}`, `var(--m-${name})`, text);
  }

  legendMark(className, colour, text) {
    const item = element("li");
    const mark = element("span", className);
    mark.style.color = colour;
    item.append(mark, element("span", "", text));
    return item;
  }
}
