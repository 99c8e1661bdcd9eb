import {lowerBound, upperBound} from "../base/sorted.js";
import {visibleLine} from "../base/text.js";

export const SUBROW_HEIGHT = 17;
export const LANE_PAD = 5;
export const GROUP_HEIGHT = 20;
const NO_THREAD = -1;

// The records of one thread and one kind, in time order.
class SubRow {
  constructor(kind) {
    this.kind = kind;
    this.count = 0;
    this.top = 0;
  }

  // Takes its rows, of which there are `count`, in the order in which they are shown.
  reserve() {
    this.rows = new Int32Array(this.count);
    this.times = new Float64Array(this.count);
    this.count = 0;
    this.isSorted = true;
  }

  add(row, time) {
    this.isSorted = this.isSorted && (this.count === 0 || this.times[this.count - 1] <= time);
    this.rows[this.count] = row;
    this.times[this.count++] = time;
  }

  // Where the clock was set back, the order of the rows is not that of their times.
  finish(times) {
    if (!this.isSorted) {
      this.rows.sort((a, b) => times[a] - times[b]);
      this.times.sort();
    }
  }

  within(from, to) {
    return [lowerBound(this.times, this.times.length, from), upperBound(this.times, this.times.length, to)];
  }
}

function finishLane(model, lane) {
  const subRows = lane.kinds.filter(Boolean);
  const known = model.threads[lane.thread];
  return {
    thread: lane.thread,
    process: lane.process,
    label: known ? visibleLine(known.name || known.id) : "No thread",
    id: known && known.name ? visibleLine(known.id) : "",
    subRows,
    height: subRows.length * SUBROW_HEIGHT + 2 * LANE_PAD,
  };
}

// A thread is of one process; records without a thread have a lane in each.
function laneKey(model, row) {
  const thread = model.threads[model.thread[row]] ? model.thread[row] : NO_THREAD;
  return {thread, process: model.process[row]};
}

// The lane of each record by process and thread, with what is counted for it.
class LaneSet {
  constructor(model) {
    this.model = model;
    this.byPlace = new Map();
    this.list = [];
  }

  subRowOf(row) {
    const {thread, process} = laneKey(this.model, row);
    const place = process * (this.model.threads.length + 1) + thread + 1;
    let lane = this.byPlace.get(place);
    if (!lane) {
      lane = {thread, process, kinds: [null, null, null]};
      this.byPlace.set(place, lane);
      this.list.push(lane);
    }
    const kind = this.model.kind[row];
    lane.kinds[kind] = lane.kinds[kind] ?? new SubRow(kind);
    return lane.kinds[kind];
  }
}

function buildLanes(model) {
  const lanes = new LaneSet(model);
  const subRows = new Array(model.count);
  for (let row = 0; row < model.count; ++row) {
    if (model.hasTime(row)) {
      subRows[row] = lanes.subRowOf(row);
      subRows[row].count += 1;
    }
  }
  const all = lanes.list.flatMap((lane) => lane.kinds.filter(Boolean));
  all.forEach((subRow) => subRow.reserve());
  subRows.forEach((subRow, row) => subRow.add(row, model.times[row]));
  all.forEach((subRow) => subRow.finish(model.times));
  const late = (number, isLast) => (isLast ? Number.MAX_SAFE_INTEGER : number);
  const order = (a, b) => late(a.process, a.process === 0) - late(b.process, b.process === 0) ||
    late(a.thread, a.thread < 0) - late(b.thread, b.thread < 0);
  return lanes.list.sort(order).map((lane) => finishLane(model, lane));
}

// A lane for each thread, those of a process together under its name where there are several; places count from the
// top of all of them.
export class Lanes {
  constructor(model) {
    this.model = model;
    this.list = buildLanes(model);
    this.height = 0;
    const hasGroups = new Set(this.list.map((lane) => lane.process)).size > 1;
    this.groups = [];
    for (const lane of this.list) {
      if (hasGroups && lane.process !== this.groups.at(-1)?.process) {
        const label = visibleLine(model.processes[lane.process] ?? "");
        this.groups.push({process: lane.process, label, top: this.height, height: GROUP_HEIGHT});
        this.height += GROUP_HEIGHT;
      }
      lane.top = this.height;
      lane.subRows.forEach((subRow, index) => {
        subRow.top = lane.top + LANE_PAD + index * SUBROW_HEIGHT;
      });
      this.height += lane.height;
    }
  }

  subRowOf(row) {
    const {thread, process} = laneKey(this.model, row);
    const lane = this.list.find((candidate) => candidate.thread === thread && candidate.process === process);
    return lane ? lane.subRows.find((subRow) => subRow.kind === this.model.kind[row]) : undefined;
  }

  subRowAt(top) {
    const lane = this.list.find((candidate) => top >= candidate.top && top < candidate.top + candidate.height);
    if (!lane) {
      return null;
    }
    const index = Math.floor((top - lane.top - LANE_PAD) / SUBROW_HEIGHT);
    return lane.subRows[Math.min(lane.subRows.length - 1, Math.max(0, index))];
  }
}
