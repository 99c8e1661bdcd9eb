import {NS_PER_MS, NS_PER_S, pad} from "../base/numbers.js";

const MONTHS = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"];
const MS_PER_DAY = 86400000;

// Turns nanoseconds since the origin into what people read.
export class Clock {
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
    const units = [date.getUTCHours(), date.getUTCMinutes(), date.getUTCSeconds()];
    const clock = units.map((unit) => pad(unit, 2)).join(":");
    return digits === 0 ? clock : `${clock}.${below.slice(0, digits)}`;
  }

  // For a table: with the day only if the records span several days.
  short(t) {
    return this.severalDays ? `${this.date(t).slice(5)} ${this.time(t, 6)}` : this.time(t, 6);
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
    return Number.isFinite(moment) ? this.full(moment, 6) : moment ?? "";
  }

  // Nanoseconds from the midnight before the origin, so that ticks fall on full hours.
  tickOffset() {
    return this.wall ? (((this.originMs % MS_PER_DAY) + MS_PER_DAY) % MS_PER_DAY) * NS_PER_MS : 0;
  }
}
