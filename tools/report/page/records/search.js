// Looks for a text in the records, block by block: in what a record says, in its words as the details list them, and
// in its name.
import {lowerBound} from "../base/sorted.js";

const WORDS = /^[0-9a-fx ]+$/;

// Marks in `found` which texts of a block hold the needle. No needle holds the line feed that parts two texts.
function findTexts(block, needle, found) {
  const lower = block.all.toLowerCase();
  if (lower.length !== block.all.length) {
    // Some letters change their length with their case, so that places no longer tell which text it is.
    for (let index = 0; index < found.length; ++index) {
      found[index] = block.text(index).toLowerCase().includes(needle) ? 1 : 0;
    }
    return;
  }
  const {starts} = block;
  for (let at = lower.indexOf(needle), index = 0; at >= 0; at = lower.indexOf(needle, starts[index])) {
    index = lowerBound(starts, starts.length, at + 1);
    found[index - 1] = 1;
  }
}

function findWords(block, needle, found) {
  for (let index = 0; index < found.length; ++index) {
    if (!found[index] && block.argumentStarts[index] < block.argumentStarts[index + 1]) {
      found[index] = block.words(index).join(" ").includes(needle) ? 1 : 0;
    }
  }
}

export class Search {
  // `matches` has a byte for each row; those of rows that are not to match are 0.
  constructor(model, matches, needle) {
    this.model = model;
    this.matches = matches;
    this.needle = needle;
    this.names = model.names.map((name) => name.toLowerCase().includes(needle));
    this.next = 0;
  }

  get isDone() {
    return this.next >= this.model.texts.blockCount;
  }

  // The share of the rows that have been looked at.
  get progress() {
    return this.isDone ? 1 : this.next / this.model.texts.blockCount;
  }

  // Looks through the next block.
  step() {
    const {model, matches, names, needle} = this;
    const {firsts} = model.texts;
    const first = firsts[this.next];
    const end = firsts[this.next + 1];
    if (matches.subarray(first, end).includes(1)) {
      const found = new Uint8Array(end - first);
      const block = model.texts.block(this.next);
      findTexts(block, needle, found);
      if (WORDS.test(needle)) {
        findWords(block, needle, found);
      }
      for (let row = first; row < end; ++row) {
        matches[row] &= found[row - first] || (names[model.name[row]] ? 1 : 0);
      }
    }
    this.next += 1;
  }
}
