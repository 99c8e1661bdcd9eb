// The signs that stand with times, and what they mean. The page's data brings them, so that all of nima-post has one
// legend.

const SURENESS = 3;
const OVERWRITTEN = 4;

// Marks are given by number, as the rows have them.
export class TimeMarks {
  constructor(legend) {
    this.overwritten = legend.at(-1) ?? ["", ""];
    this.sure = legend.slice(0, -1);
  }

  parts(mark) {
    const sure = this.sure[mark & SURENESS] ?? ["", ""];
    return mark & OVERWRITTEN ? [sure, this.overwritten] : [sure];
  }

  sign(mark) {
    return this.parts(mark).map(([sign]) => sign).join("");
  }

  words(mark) {
    return this.parts(mark).map(([, meaning]) => meaning).join(", ");
  }

  // The entries of the legend that any of these marks needs.
  legend(marks) {
    const used = new Set(marks.flatMap((mark) => this.parts(mark)));
    return [...this.sure, this.overwritten].filter((entry) => used.has(entry));
  }
}

export function surenessOf(mark) {
  return mark & SURENESS;
}
