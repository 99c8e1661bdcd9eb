import {NS_PER_MS, NS_PER_S, pad} from "../base/numbers.js";

const MONTHS = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"];
const MS_PER_DAY = 86400000;

// Turns nanoseconds since the origin into what people read.
export class Clock {
  constructor(clock) {
    this.wall = Boolean(clock.wall) && Number.isFinite(clock.originMs);
    // Together they are beyond what a number holds to the nanosecond.
    this.originMs = this.wall ? clock.originMs : 0;
    this.originNs = this.wall ? clock.originNs ?? 0 : 0;
    this.severalDays = false;
  }

  setRange(from, to) {
    this.severalDays = this.wall && this.date(from) !== this.date(to);
  }

  parts(t) {
    const whole = Math.floor(t) + this.originNs;
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

  // "+12.345678901 s"
  seconds(t, digits) {
    const size = Math.abs(t);
    const whole = Math.floor(size / NS_PER_S);
    const below = digits === 0 ? "" : `.${pad(size - whole * NS_PER_S, 9).slice(0, digits)}`;
    return `${t < 0 ? "-" : "+"}${whole}${below} s`;
  }

  time(t, digits) {
    if (!this.wall) {
      return this.seconds(Math.round(t), digits);
    }
    const {date, below} = this.parts(t);
    const units = [date.getUTCHours(), date.getUTCMinutes(), date.getUTCSeconds()];
    const clock = units.map((unit) => pad(unit, 2)).join(":");
    return digits === 0 ? clock : `${clock}.${below.slice(0, digits)}`;
  }

  // For a table: with the day only if the records span several days.
  short(t) {
    return this.severalDays ? `${this.date(t).slice(5)} ${this.time(t, 9)}` : this.time(t, 9);
  }

  full(t, digits = 9) {
    return this.wall ? `${this.date(t)} ${this.time(t, digits)}` : this.time(t, digits);
  }

  // The end is written without its day if that is the same as the start's.
  range(from, to, digits) {
    const isOneDay = this.wall && this.date(from) === this.date(to);
    return [this.full(from, digits), isOneDay ? this.time(to, digits) : this.full(to, digits)];
  }

  // A moment, which may also be a text or unknown.
  moment(moment) {
    return Number.isFinite(moment) ? this.full(moment) : moment ?? "";
  }

  // Nanoseconds from the midnight before the origin, so that ticks fall on full hours.
  tickOffset() {
    const ms = ((this.originMs % MS_PER_DAY) + MS_PER_DAY) % MS_PER_DAY;
    return this.wall ? ms * NS_PER_MS + this.originNs : 0;
  }
}
