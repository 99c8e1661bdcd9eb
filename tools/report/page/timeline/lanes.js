import {lowerBound, upperBound} from "../base/sorted.js";
import {visibleLine} from "../base/text.js";

export const SUBROW_HEIGHT = 17;
export const LANE_PAD = 5;
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
    label: known ? visibleLine(known.name || known.id) : "No thread",
    id: known && known.name ? visibleLine(known.id) : "",
    subRows,
    height: subRows.length * SUBROW_HEIGHT + 2 * LANE_PAD,
  };
}

function buildLanes(model) {
  const lanes = new Map();
  for (let row = 0; row < model.timed; ++row) {
    const thread = model.threads[model.thread[row]] ? model.thread[row] : NO_THREAD;
    if (!lanes.has(thread)) {
      lanes.set(thread, {thread, kinds: [null, null, null]});
    }
    const {kinds} = lanes.get(thread);
    const kind = model.kind[row];
    if (!kinds[kind]) {
      kinds[kind] = new SubRow(kind);
    }
    kinds[kind].rows.push(row);
  }
  const order = (lane) => (lane.thread < 0 ? Infinity : lane.thread);
  return [...lanes.values()].sort((a, b) => order(a) - order(b)).map((lane) => finishLane(model, lane));
}

// A lane for each thread; places count from the top of all of them.
export class Lanes {
  constructor(model) {
    this.model = model;
    this.list = buildLanes(model);
    this.height = 0;
    for (const lane of this.list) {
      lane.top = this.height;
      lane.subRows.forEach((subRow, index) => {
        subRow.top = lane.top + LANE_PAD + index * SUBROW_HEIGHT;
      });
      this.height += lane.height;
    }
  }

  subRowOf(row) {
    const lane = this.list.find((candidate) => candidate.thread === this.model.thread[row]) ||
      this.list.find((candidate) => candidate.thread === NO_THREAD);
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
