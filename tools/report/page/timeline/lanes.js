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

function finishLane(model, lane) {
  const subRows = lane.kinds.filter(Boolean);
  subRows.forEach((subRow) => subRow.finish(model.times));
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
  return {thread, process: model.process[row], key: `${model.process[row]}/${thread}`};
}

function buildLanes(model) {
  const lanes = new Map();
  for (let row = 0; row < model.timed; ++row) {
    const {thread, process, key} = laneKey(model, row);
    if (!lanes.has(key)) {
      lanes.set(key, {thread, process, kinds: [null, null, null]});
    }
    const {kinds} = lanes.get(key);
    const kind = model.kind[row];
    if (!kinds[kind]) {
      kinds[kind] = new SubRow(kind);
    }
    kinds[kind].rows.push(row);
  }
  const late = (number, isLast) => (isLast ? Number.MAX_SAFE_INTEGER : number);
  const order = (a, b) => late(a.process, a.process === 0) - late(b.process, b.process === 0) ||
    late(a.thread, a.thread < 0) - late(b.thread, b.thread < 0);
  return [...lanes.values()].sort(order).map((lane) => finishLane(model, lane));
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
