// The time along the top, with a flag for each crash.
import {NS_PER_S} from "../base/numbers.js";
import {drawLabel, fillBox} from "./canvas.js";
import {AXIS_HEIGHT} from "./scene.js";

const TICK_STEPS = tickSteps();
const FLAG_WIDTH = 44;
const TEXT_Y = 11;

function tickSteps() {
  const steps = [];
  for (let power = 2; power < 9; ++power) {
    steps.push(10 ** power, 2 * 10 ** power, 5 * 10 ** power);
  }
  for (const [unit, counts] of [[1, [1, 2, 5, 10, 15, 30]], [60, [1, 2, 5, 10, 15, 30]], [3600, [1, 2, 3, 6, 12]],
    [86400, [1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 5000, 20000]]]) {
    steps.push(...counts.map((count) => count * unit * NS_PER_S));
  }
  return steps;
}

function tickLabel(clock, t, step) {
  if (!clock.wall) {
    return clock.time(t, step >= NS_PER_S ? 0 : Math.ceil(9 - Math.log10(step)));
  }
  if (step >= 86400 * NS_PER_S) {
    return clock.day(t);
  }
  if (step >= 60 * NS_PER_S) {
    return clock.time(t, 0).slice(0, 5);
  }
  return clock.time(t, step >= NS_PER_S ? 0 : Math.ceil(9 - Math.log10(step) - 1e-9));
}

function findTicks(context, scene) {
  const {model, view, colours} = scene;
  if (model.timed === 0) {
    return [];
  }
  context.font = `12px ${colours.sans}`;
  const step = TICK_STEPS.find((candidate) => {
    const width = context.measureText(tickLabel(model.clock, view.from, candidate)).width + 28;
    return (candidate / view.span) * view.plot >= width;
  }) || TICK_STEPS[TICK_STEPS.length - 1];
  const offset = model.clock.tickOffset();
  const ticks = [];
  for (let t = Math.ceil((view.from + offset) / step) * step - offset; t <= view.to; t += step) {
    ticks.push({x: Math.round(view.x(t)), label: tickLabel(model.clock, t, step)});
  }
  return ticks;
}

function placeFlags({view, model}) {
  return model.crashTimes.filter((time) => view.contains(time)).map((time) => {
    const x = view.x(time);
    return {x, left: Math.min(Math.max(x - FLAG_WIDTH / 2, view.gutter), view.width - FLAG_WIDTH - 2)};
  });
}

function drawFlag(context, colours, {x, left}) {
  context.font = `600 11.5px ${colours.sans}`;
  fillBox(context, colours.crash, left, 3, FLAG_WIDTH, 17);
  context.fillRect(Math.round(x) - 1, 19, 2, AXIS_HEIGHT - 19);
  context.fillStyle = colours.surface;
  context.textAlign = "center";
  context.fillText("crash", left + FLAG_WIDTH / 2, 12);
}

// A label that would overlap a flag or the edges is left out.
function drawTicks(context, scene, flags) {
  const {gutter, width} = scene.view;
  for (const tick of findTicks(context, scene)) {
    fillBox(context, scene.colours.muted, tick.x, AXIS_HEIGHT - 6, 1, 5);
    const half = context.measureText(tick.label).width / 2;
    const isCovered = flags.some(({left}) => tick.x + half > left - 4 && tick.x - half < left + FLAG_WIDTH + 4);
    if (!isCovered && tick.x - half > gutter - 8 && tick.x + half < width) {
      context.fillText(tick.label, tick.x, TEXT_Y);
    }
  }
}

export function drawTickLines(context, scene) {
  for (const tick of findTicks(context, scene)) {
    fillBox(context, scene.colours.soft, tick.x, AXIS_HEIGHT, 1, scene.view.height);
  }
}

export function drawAxis(context, scene) {
  const {colours, model, view} = scene;
  const font = `12px ${colours.sans}`;
  fillBox(context, colours.raised, 0, 0, view.width, AXIS_HEIGHT - 1);
  fillBox(context, colours.line, 0, AXIS_HEIGHT - 1, view.width, 1);
  context.textAlign = "center";
  context.textBaseline = "middle";
  context.font = font;
  const flags = placeFlags(scene);
  drawTicks(context, scene, flags);
  context.textAlign = "left";
  drawLabel(context, model.clock.wall ? "Local time" : "Since first record",
    {font, colour: colours.muted, x: 10, y: TEXT_Y, room: view.gutter - 20});
  flags.forEach((flag) => drawFlag(context, colours, flag));
}
