// What the marks mean; only marks that occur are listed.
import {element} from "../base/dom.js";
import {KIND_BINARY, KIND_RING, KIND_SHAPES, KIND_TEXT, PAINTS, PAINT_WORST, PAINT_RING, SURE_EXACT}
  from "../model/kinds.js";

const WORDS = {plain: "line", cal: "CAL", ring: "ring event"};

// Text levels from the worst on, then the levels of the binary trace, then the rings.
function legendOrder(paint) {
  if (paint === PAINT_RING) {
    return 3 * PAINTS.length;
  }
  return paint <= PAINT_WORST ? PAINT_WORST - paint : 2 * PAINTS.length - paint;
}

function legendMark(className, colour, text) {
  const item = element("li");
  const mark = element("span", className);
  mark.style.color = colour;
  item.append(mark, element("span", "", text));
  return item;
}

function kindOfPaint(paint) {
  if (paint === PAINT_RING) {
    return KIND_RING;
  }
  return paint > PAINT_WORST ? KIND_BINARY : KIND_TEXT;
}

function legendItem(paint) {
  const name = PAINTS[paint];
  const kind = kindOfPaint(paint);
  const text = WORDS[name] ?? (kind === KIND_BINARY ? `trace level ${name.slice(-1)}` : name.toUpperCase());
  return legendMark(`mark ${KIND_SHAPES[kind]}`, `var(--m-${name})`, text);
}

export function fillLegend(legend, model) {
  const seen = new Uint8Array(PAINTS.length);
  const marks = new Uint8Array(256);
  model.crashes.forEach((crash) => { marks[crash.sure ?? SURE_EXACT] = 1; });
  let isUnsure = false;
  for (let row = 0; row < model.count; ++row) {
    if (model.hasTime(row)) {
      seen[model.paint[row]] = 1;
      marks[model.mark[row]] = 1;
      isUnsure = isUnsure || model.sure[row] !== SURE_EXACT;
    }
  }
  const used = (flags) => [...flags.keys()].filter((key) => flags[key] === 1);
  legend.append(...used(seen).sort((a, b) => legendOrder(a) - legendOrder(b)).map(legendItem));
  if (isUnsure) {
    legend.append(legendMark("mark hollow", "", "hollow: time not exact"));
  }
  if (model.crashTimes.length) {
    legend.append(legendMark("mark crash", "", "crash"));
  }
  legend.append(...model.timeMarks.legend(used(marks)).map(([sign, meaning]) =>
    element("li", "time-mark", `${sign} ${meaning}`)));
}
