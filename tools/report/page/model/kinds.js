// The kinds of records, and how they are painted.

export const KIND_TEXT = 0;
export const KIND_BINARY = 1;
export const KIND_RING = 2;
export const KIND_NAMES = ["text", "trace", "ring"];
export const KIND_SHAPES = ["circle", "diamond", "square"];

export const SURE_EXACT = 0;

// If several records share a pixel, the last in this list is visible.
export const PAINTS = [
  "cal", "debug", "plain", "info", "perf", "warn", "error", "fatal", "crash",
  "binary3", "binary2", "binary1", "binary0",
  "ring",
];
export const PAINT_FATAL = PAINTS.indexOf("fatal");
// Of the levels that are words.
export const PAINT_WORST = PAINTS.indexOf("crash");
export const PAINT_RING = PAINTS.indexOf("ring");

export function kindOfSource(sourceKind) {
  if (sourceKind === "systrace") {
    return KIND_BINARY;
  }
  return sourceKind === "ring" ? KIND_RING : KIND_TEXT;
}

export function paintOf(kind, level) {
  if (kind === KIND_RING) {
    return PAINT_RING;
  }
  const name = kind === KIND_BINARY ? `binary${level || 0}` : level.toLowerCase();
  const paint = PAINTS.indexOf(name);
  return paint >= 0 ? paint : PAINTS.indexOf(kind === KIND_BINARY ? "binary3" : "plain");
}
