// The records on their lanes: a mark for a single one, bars where they are dense.
import {PAINT_FATAL, PAINT_WORST, SURE_EXACT} from "../model/kinds.js";
import {drawGlyph} from "./canvas.js";
import {SUBROW_HEIGHT} from "./lanes.js";

export const GLYPH = 4.5;

function fillBuckets(scene, buckets, subRow) {
  const {matches, isFiltered} = scene;
  const {paint} = scene.model;
  const {from, to, plot, span} = scene.view;
  buckets.clear(plot + 1);
  const [low, high] = subRow.within(from, to);
  const scale = plot / span;
  const {times, rows} = subRow;
  for (let index = low; index < high; ++index) {
    const x = ((times[index] - from) * scale) | 0;
    const row = rows[index];
    if (isFiltered && !matches[row]) {
      buckets.dim[x] = 1;
    } else {
      buckets.add(x, row, paint[row]);
    }
  }
}

function drawDim(context, scene, buckets, y) {
  if (!scene.isFiltered) {
    return;
  }
  context.fillStyle = scene.colours.dim;
  for (let x = 0; x < buckets.width; ++x) {
    if (buckets.dim[x]) {
      context.fillRect(scene.view.gutter + x - 1, y - 4, 2, 8);
    }
  }
}

function drawBars(context, scene, buckets, y) {
  const {gutter} = scene.view;
  for (let x = 0; x < buckets.width; ++x) {
    const count = buckets.count[x];
    if (count > 0 && !buckets.isLonely(x)) {
      const half = Math.min(SUBROW_HEIGHT / 2 - 1, 3.5 + Math.log2(count));
      const wide = buckets.count[x + 1] ? 1 : 2;
      buckets.drawStack(context, x, {left: gutter + x, bottom: y + half, wide, tall: 2 * half}, scene.colours.marks);
    }
  }
}

function drawLonely(context, scene, buckets, {kind, y}) {
  const {model, colours, view} = scene;
  for (let x = 0; x < buckets.width; ++x) {
    if (buckets.isLonely(x)) {
      context.fillStyle = context.strokeStyle = colours.marks[buckets.paint[x]];
      const size = buckets.paint[x] >= PAINT_FATAL && buckets.paint[x] <= PAINT_WORST ? GLYPH + 1.5 : GLYPH;
      const hollow = model.sure[buckets.row[x]] !== SURE_EXACT;
      drawGlyph(context, kind, {x: view.gutter + x + 0.5, y, size, hollow});
    }
  }
}

export function drawSubRow(context, scene, buckets, subRow) {
  fillBuckets(scene, buckets, subRow);
  const y = scene.y(subRow.top) + SUBROW_HEIGHT / 2;
  drawDim(context, scene, buckets, y);
  drawBars(context, scene, buckets, y);
  drawLonely(context, scene, buckets, {kind: subRow.kind, y});
}
