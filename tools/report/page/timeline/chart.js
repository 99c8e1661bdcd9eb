import {KIND_TEXT, SURE_EXACT} from "../model/kinds.js";
import {drawAxis, drawTickLines} from "./axis.js";
import {Buckets} from "./buckets.js";
import {clipTo, drawGlyph, drawLabel, fillBox, fitCanvas} from "./canvas.js";
import {drawGutter} from "./gutter.js";
import {SUBROW_HEIGHT} from "./lanes.js";
import {GLYPH, drawSubRow} from "./marks.js";
import {AXIS_HEIGHT} from "./scene.js";

function drawBands(context, scene) {
  const {colours, lanes, view} = scene;
  lanes.list.forEach((lane, index) => {
    if (!scene.isOnScreen(lane)) {
      return;
    }
    if (index % 2 === 1) {
      fillBox(context, colours.raised, 0, scene.y(lane.top), view.width, lane.height);
    }
    fillBox(context, colours.soft, 0, Math.round(scene.y(lane.top + lane.height)) - 1, view.width, 1);
  });
}

function drawCrashLines(context, {model, view, colours}) {
  for (const crash of model.crashTimes.filter((time) => view.contains(time))) {
    fillBox(context, colours.crash, Math.round(view.x(crash)) - 1, 0, 2, view.height);
  }
}

function drawLanes(context, scene, buckets) {
  const {gutter, plot, height} = scene.view;
  context.save();
  clipTo(context, gutter - GLYPH, AXIS_HEIGHT, plot + 2 * GLYPH + 4, height);
  for (const lane of scene.lanes.list) {
    if (scene.isOnScreen(lane)) {
      lane.subRows.forEach((subRow) => drawSubRow(context, scene, buckets, subRow));
    }
  }
  context.restore();
}

function drawSelection(context, scene) {
  const {model, view, colours, selected} = scene;
  if (selected < 0 || !model.hasTime(selected) || !view.contains(model.times[selected])) {
    return;
  }
  const x = view.gutter + Math.floor(view.x(model.times[selected]) - view.gutter) + 0.5;
  const y = scene.y(scene.lanes.subRowOf(selected).top) + SUBROW_HEIGHT / 2;
  fillBox(context, colours.accent, x - 0.5, AXIS_HEIGHT, 1, view.height);
  context.fillStyle = colours.surface;
  drawGlyph(context, KIND_TEXT, {x, y, size: GLYPH + 4, hollow: false});
  context.strokeStyle = colours.accent;
  drawGlyph(context, KIND_TEXT, {x, y, size: GLYPH + 3.5, hollow: true});
  context.fillStyle = context.strokeStyle = colours.marks[model.paint[selected]];
  drawGlyph(context, model.kind[selected], {x, y, size: GLYPH - 0.5, hollow: model.sure[selected] !== SURE_EXACT});
}

function drawNothing(context, {view, colours}) {
  context.textAlign = "center";
  drawLabel(context, "No records with a time", {font: `13px ${colours.sans}`, colour: colours.muted,
    x: view.width / 2, y: (view.height + AXIS_HEIGHT) / 2, room: view.width});
}

// The large picture: lanes of records under an axis.
export class Chart {
  constructor(canvas) {
    this.canvas = canvas;
    this.buckets = new Buckets();
  }

  draw(scene) {
    const {width, height} = scene.view;
    const context = fitCanvas(this.canvas, width, height);
    fillBox(context, scene.colours.surface, 0, 0, width, height);
    context.save();
    clipTo(context, 0, AXIS_HEIGHT, width, height - AXIS_HEIGHT);
    drawBands(context, scene);
    drawTickLines(context, scene);
    drawCrashLines(context, scene);
    drawLanes(context, scene, this.buckets);
    drawSelection(context, scene);
    drawGutter(context, scene);
    context.restore();
    drawAxis(context, scene);
    if (scene.model.timed === 0) {
      drawNothing(context, scene);
    }
  }
}
