// Drawing on a canvas.
import {KIND_RING, KIND_TEXT, PAINTS} from "../model/kinds.js";

export function fitCanvas(canvas, width, height) {
  const ratio = devicePixelRatio || 1;
  const [wide, high] = [Math.round(width * ratio), Math.round(height * ratio)];
  if (canvas.width !== wide || canvas.height !== high) {
    canvas.width = wide;
    canvas.height = high;
    canvas.style.height = `${height}px`;
  }
  const context = canvas.getContext("2d");
  context.setTransform(ratio, 0, 0, ratio, 0, 0);
  return context;
}

// The current colours and fonts of the style sheet.
export function readColours() {
  const style = getComputedStyle(document.documentElement);
  const read = (name) => style.getPropertyValue(`--${name}`).trim();
  return {
    marks: PAINTS.map((paint) => read(`m-${paint}`)),
    surface: read("surface"), raised: read("raised"), text: read("text"), muted: read("muted"), line: read("line"),
    soft: read("line-soft"), accent: read("accent"), crash: read("crash"), dim: read("m-dim"),
    mass: read("m-mass"),
    sans: read("sans"), mono: read("mono"),
  };
}

export function fillBox(context, colour, left, top, width, height) {
  context.fillStyle = colour;
  context.fillRect(left, top, width, height);
}

export function clipTo(context, left, top, width, height) {
  context.beginPath();
  context.rect(left, top, width, height);
  context.clip();
}

// A mark in the shape of its kind, hollow where the time is not exact.
export function drawGlyph(context, kind, {x, y, size, hollow}) {
  context.beginPath();
  if (kind === KIND_TEXT) {
    context.arc(x, y, size, 0, 2 * Math.PI);
  } else if (kind === KIND_RING) {
    context.rect(x - size + 0.5, y - size + 0.5, 2 * size - 1, 2 * size - 1);
  } else {
    context.moveTo(x, y - size - 1);
    context.lineTo(x + size + 1, y);
    context.lineTo(x, y + size + 1);
    context.lineTo(x - size - 1, y);
    context.closePath();
  }
  if (hollow) {
    context.lineWidth = 1.75;
    context.stroke();
  } else {
    context.fill();
  }
}

// Text is shortened until it fits.
export function drawLabel(context, text, {font, colour, x, y, room}) {
  context.font = font;
  context.fillStyle = colour;
  let shown = text;
  while (shown.length > 1 && context.measureText(shown).width > room) {
    shown = `${shown.slice(0, shown.endsWith("…") ? -2 : -1)}…`;
  }
  context.fillText(shown, x, y + 0.5);
}
