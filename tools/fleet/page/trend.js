// Crashes by day, as bars.
import {byId, element} from "../../report/page/base/dom.js";
import {plural} from "../../report/page/base/numbers.js";

const DAY_MS = 86400000;
// Days without a crash are shown, too, unless that would be too many.
const MOST_DAYS = 1000;

function counted(signatures) {
  const days = new Map();
  let undated = 0;
  for (const [day, count] of signatures.flatMap((signature) => signature.days)) {
    if (day === null) {
      undated += count;
    } else {
      days.set(day, (days.get(day) ?? 0) + count);
    }
  }
  return {days, undated};
}

function allDays(days) {
  const known = [...days.keys()].sort();
  const first = Date.parse(known[0]);
  const last = Date.parse(known[known.length - 1]);
  const length = (last - first) / DAY_MS + 1;
  if (!(length <= MOST_DAYS)) {
    return known;
  }
  return Array.from({length}, (_, i) => new Date(first + i * DAY_MS).toISOString().slice(0, 10));
}

function bar(label, count, most) {
  const column = document.createElement("div");
  column.title = `${label}: ${plural(count, "crash", "es")}`;
  const filled = document.createElement("i");
  filled.style.height = `${(100 * count) / most}%`;
  column.append(filled);
  return column;
}

export function showTrend(signatures) {
  const {days, undated} = counted(signatures);
  const names = allDays(days);
  const most = Math.max(1, undated, ...days.values());
  const bars = names.map((name) => bar(name, days.get(name) ?? 0, most));
  if (bars.length > 0) {
    bars[0].append(element("span", "", names[0]));
  }
  if (bars.length > 1) {
    bars[bars.length - 1].append(element("span", "end", names[names.length - 1]));
  }
  const rest = bar("undated", undated, most);
  rest.className = "undated";
  rest.append(element("span", "", "undated"));
  byId("bars").replaceChildren(...bars, rest);
  byId("trend-title").textContent = `Crashes by day, ${most} at the most`;
}
