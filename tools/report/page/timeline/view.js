import {NS_PER_S} from "../base/numbers.js";

const MIN_SPAN = 1e3;
const NARROW = 560;
const RIGHT_MARGIN = 12;

// The time that is shown, and where it is on the screen: the gutter on the left holds labels, the plot shows time.
export class View {
  constructor(first, last) {
    const margin = last > first ? (last - first) * 0.02 : NS_PER_S / 2;
    this.full = {from: first - margin, to: last + margin};
    this.full.span = this.full.to - this.full.from;
    this.from = this.full.from;
    this.to = this.full.to;
    this.onChange = () => {};
    this.resize(0, 0);
  }

  resize(width, height) {
    this.width = width;
    this.height = height;
    this.gutter = width < NARROW ? 92 : 168;
    this.plot = Math.max(10, Math.floor(width - this.gutter - RIGHT_MARGIN));
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

  contains(t) {
    return t >= this.from && t <= this.to;
  }

  // Never leaves more than half a screen empty on either side.
  set(from, to) {
    const span = Math.min(Math.max(to - from, MIN_SPAN), this.full.span);
    const centre = Math.min(Math.max((from + to) / 2, this.full.from), this.full.to);
    this.from = centre - span / 2;
    this.to = centre + span / 2;
    if (span > this.full.span * (1 - 1e-6)) {
      this.from = this.full.from;
      this.to = this.full.to;
    }
    this.onChange();
  }

  centreOn(t) {
    this.set(t - this.span / 2, t + this.span / 2);
  }

  // Centres on a moment and zooms in eight times, if possible.
  approach(t) {
    const span = Math.max(MIN_SPAN, Math.min(this.span, this.full.span) / 8);
    this.set(t - span / 2, t + span / 2);
  }

  zoom(factor, around) {
    const span = Math.min(Math.max(this.span / factor, MIN_SPAN), this.full.span);
    const share = (around - this.from) / this.span;
    this.set(around - share * span, around + (1 - share) * span);
  }

  pan(share) {
    const by = share * this.span;
    this.set(this.from + by, this.to + by);
  }

  fit() {
    this.set(this.full.from, this.full.to);
  }

  // A few seconds that end soon after the moment.
  showBefore(moment) {
    const span = Math.min(this.span, 10 * NS_PER_S, this.full.span / 4);
    this.set(moment - 0.8 * span, moment + 0.2 * span);
  }
}
