// Numbers and durations in words.

export const NS_PER_MS = 1e6;
export const NS_PER_S = 1e9;

export function pad(number, digits) {
  return String(number).padStart(digits, "0");
}

export function formatCount(number) {
  return String(number).replace(/\B(?=(\d{3})+$)/g, ",");
}

export function plural(number, word, ending = "s") {
  return `${formatCount(number)} ${word}${number === 1 ? "" : ending}`;
}

function trimmed(number) {
  return String(Number(number.toPrecision(3)));
}

function formatSeconds(seconds) {
  if (seconds < 60) {
    return `${trimmed(seconds)} s`;
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

// The sign of a duration is dropped.
export function formatDuration(ns) {
  const size = Math.abs(ns);
  if (size < 1e3) {
    return `${Math.round(size)} ns`;
  }
  if (size < NS_PER_MS) {
    return `${trimmed(size / 1e3)} µs`;
  }
  if (size < NS_PER_S) {
    return `${trimmed(size / NS_PER_MS)} ms`;
  }
  return formatSeconds(size / NS_PER_S);
}
