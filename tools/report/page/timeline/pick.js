import {AXIS_HEIGHT} from "./scene.js";

function subRowAt(scene, {x, y}, reach) {
  if (y < AXIS_HEIGHT || x < scene.view.gutter - reach) {
    return null;
  }
  return scene.lanes.subRowAt(y - AXIS_HEIGHT + scene.host.scrollTop);
}

// The better of two candidates; on the same pixel, the one that is visible.
function better(paint, best, found) {
  if (!best) {
    return found;
  }
  const isSamePixel = best.pixel === found.pixel;
  if (isSamePixel) {
    best.others += 1;
    found.others = best.others;
  }
  const isSeen = isSamePixel && paint[found.row] > paint[best.row];
  return isSeen || found.away < best.away ? found : best;
}

// The record nearest to a place, or null; `others` counts the records that share its pixel.
export function pick(scene, place, reach) {
  const {model, view} = scene;
  const subRow = subRowAt(scene, place, reach);
  if (!subRow) {
    return null;
  }
  const [low, high] = subRow.within(view.timeAt(place.x - reach), view.timeAt(place.x + reach));
  let best = null;
  for (let index = low; index < high; ++index) {
    const row = subRow.rows[index];
    if (scene.isShown(row)) {
      const pixel = Math.floor(view.x(subRow.times[index]) - view.gutter);
      const away = Math.abs(pixel + 0.5 + view.gutter - place.x);
      best = better(model.paint, best, {row, pixel, away, others: 0});
    }
  }
  return best;
}
