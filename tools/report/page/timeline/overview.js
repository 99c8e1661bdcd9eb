import {PAINTS} from "../model/kinds.js";
import {Buckets} from "./buckets.js";
import {fillBox, fitCanvas} from "./canvas.js";

const HEIGHT = 34;
// Only what went wrong has a colour here; rank 0 is for everything else.
const WRONG = ["warn", "error", "fatal", "crash"].map((name) => PAINTS.indexOf(name));
const RANKS = PAINTS.map((_, paint) => WRONG.indexOf(paint) + 1);

// The small picture of the whole time range, with a window that shows and moves the view.
export class Overview {
  constructor(canvas, scene) {
    this.canvas = canvas;
    this.scene = scene;
    this.buckets = new Buckets();
    this.image = null;
    this.listen();
  }

  // The records' colours, or which records match, have changed.
  forget() {
    this.image = null;
  }

  x(t) {
    const {gutter, plot, full} = this.scene.view;
    return gutter + ((t - full.from) / full.span) * plot;
  }

  draw() {
    const width = this.canvas.clientWidth;
    const context = fitCanvas(this.canvas, width, HEIGHT);
    const key = `${width}/${devicePixelRatio}`;
    if (!this.image || this.key !== key) {
      this.image = this.makeImage(width);
      this.key = key;
    }
    context.clearRect(0, 0, width, HEIGHT);
    context.drawImage(this.image, 0, 0, width, HEIGHT);
    this.drawWindow(context, width);
    this.drawCrashes(context);
    this.drawTitle(context);
  }

  fillBuckets() {
    const {model, view, matches, isFiltered} = this.scene;
    const {plot, full} = view;
    const {times, paint} = model;
    this.buckets.clear(plot + 1);
    const scale = plot / full.span;
    for (let row = 0; row < model.count; ++row) {
      if (model.hasTime(row) && (!isFiltered || matches[row])) {
        this.buckets.add(((times[row] - full.from) * scale) | 0, row, RANKS[paint[row]]);
      }
    }
  }

  makeImage(width) {
    const image = document.createElement("canvas");
    const context = fitCanvas(image, width, HEIGHT);
    const {buckets, scene} = this;
    this.fillBuckets();
    const most = buckets.count.reduce((a, b) => Math.max(a, b), 1);
    const colours = [scene.colours.mass, ...WRONG.map((paint) => scene.colours.marks[paint])];
    for (let x = 0; x < buckets.width; ++x) {
      if (buckets.count[x] > 0) {
        const tall = 5 + (HEIGHT - 9) * (Math.log2(buckets.count[x] + 1) / Math.log2(most + 1));
        const wide = buckets.count[x + 1] ? 1 : 1.5;
        buckets.drawStack(context, x, {left: scene.view.gutter + x, bottom: HEIGHT, wide, tall}, colours);
      }
    }
    return image;
  }

  drawWindow(context, width) {
    const {colours, view} = this.scene;
    const left = Math.max(view.gutter, this.x(view.from));
    const right = Math.min(view.gutter + view.plot, Math.max(left + 2, this.x(view.to)));
    context.globalAlpha = 0.62;
    fillBox(context, colours.surface, view.gutter - 8, 0, left - view.gutter + 8, HEIGHT);
    context.fillRect(right, 0, width - right, HEIGHT);
    context.globalAlpha = 1;
    context.strokeStyle = colours.accent;
    context.lineWidth = 1.5;
    context.strokeRect(left + 0.5, 1, Math.max(2, right - left - 1), HEIGHT - 2);
  }

  drawCrashes(context) {
    const {model, colours} = this.scene;
    for (const crash of model.crashTimes) {
      fillBox(context, colours.crash, Math.round(this.x(crash)) - 1, 0, 2, HEIGHT);
    }
  }

  drawTitle(context) {
    const {colours} = this.scene;
    context.fillStyle = colours.muted;
    context.font = `12px ${colours.sans}`;
    context.textBaseline = "middle";
    context.textAlign = "left";
    context.fillText("All", 10, HEIGHT / 2 + 1);
  }

  listen() {
    const {canvas} = this;
    const {view} = this.scene;
    const move = (event) => {
      const x = event.clientX - canvas.getBoundingClientRect().left;
      view.centreOn(view.full.from + ((x - view.gutter) / view.plot) * view.full.span);
    };
    canvas.addEventListener("pointerdown", (event) => {
      canvas.setPointerCapture(event.pointerId);
      move(event);
    });
    canvas.addEventListener("pointermove", (event) => {
      if (event.buttons) {
        move(event);
      }
    });
  }
}
