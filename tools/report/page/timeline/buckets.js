import {PAINTS} from "../model/kinds.js";

const LONELY = 5;

// What falls on each pixel of one line of marks.
export class Buckets {
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

  // Nothing is close enough to overlap a whole mark.
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

  // A bar of everything in a pixel, with the worst at the bottom and never too thin to be seen.
  drawStack(context, x, {left, bottom, wide, tall}, colours) {
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
}
