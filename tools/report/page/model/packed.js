// The rows as the page holds them: blocks, each with its columns, which are needed at once, and with its texts, which
// are taken apart when one of them is looked at.
import {ByteReader, unpack} from "../base/bytes.js";
import {NS_PER_S} from "../base/numbers.js";
import {upperBound} from "../base/sorted.js";

const WITHOUT_TIME = 8;
const DAMAGED = "(this page is damaged: the text cannot be read)";
// How many characters of texts are kept ready.
const MOST_READY = 64e6;

export class Columns {
  constructor(count) {
    this.times = new Float64Array(count).fill(Infinity);
    this.mark = new Uint8Array(count);
    this.source = new Int32Array(count);
    this.thread = new Int32Array(count);
    this.level = new Int32Array(count);
    this.name = new Int32Array(count);
    this.process = new Int32Array(count);
    this.boot = new Int32Array(count);
  }

  // Adds the rows of a block from `row` on, and returns how many these are.
  add(bytes, row) {
    const reader = new ByteReader(bytes);
    const count = reader.next();
    const end = row + count;
    if (end > this.times.length) {
      throw new Error("more rows than there should be");
    }
    // Apart, they are exact even where a number does not hold their sum.
    const seconds = reader.nextSigned() * NS_PER_S;
    let below = reader.next();
    for (let index = row; index < end; ++index) {
      below += reader.nextSigned();
      this.times[index] = seconds + below;
    }
    this.addMarks(reader.take(count), row);
    for (const [column, least] of [[this.source, 0], [this.thread, 1], [this.level, 1], [this.name, 1],
      [this.process, 0], [this.boot, 0]]) {
      for (let index = row; index < end; ++index) {
        column[index] = reader.next() - least;
      }
    }
    return count;
  }

  addMarks(marks, row) {
    this.mark.set(marks, row);
    marks.forEach((mark, index) => {
      if (mark & WITHOUT_TIME) {
        this.mark[row + index] = mark - WITHOUT_TIME;
        this.times[row + index] = Infinity;
      }
    });
  }
}

// Where each of several things begins that follow one another, and where the last one ends.
function startsOf(lengths) {
  const starts = new Uint32Array(lengths.length + 1);
  lengths.forEach((length, index) => { starts[index + 1] = starts[index] + length; });
  return starts;
}

// The texts of a block as one, with where each begins.
class TextBlock {
  constructor(bytes, count) {
    const reader = new ByteReader(bytes);
    this.starts = startsOf(Array.from({length: count}, () => reader.next() + 1));
    this.argumentStarts = startsOf(reader.take(count));
    this.arguments = Array.from({length: this.argumentStarts[count]}, () => reader.next());
    this.all = new TextDecoder("utf-8", {ignoreBOM: true}).decode(bytes.subarray(reader.at));
    if (this.all.length !== this.starts[count]) {
      throw new Error("texts of rows are damaged");
    }
  }

  // Instead of one that cannot be read.
  static damaged(count) {
    const block = Object.create(TextBlock.prototype);
    block.starts = startsOf(new Array(count).fill(DAMAGED.length + 1));
    block.argumentStarts = new Uint32Array(count + 1);
    block.arguments = [];
    block.all = `${DAMAGED}\n`.repeat(count);
    return block;
  }

  text(index) {
    return this.all.slice(this.starts[index], this.starts[index + 1] - 1);
  }

  words(index) {
    return this.arguments.slice(this.argumentStarts[index], this.argumentStarts[index + 1])
      .map((value) => `0x${value.toString(16)}`);
  }
}

export class Texts {
  // `firsts` are the first rows of the blocks, and at last how many rows there are.
  constructor(nodes, firsts) {
    this.nodes = nodes;
    this.firsts = firsts;
    this.ready = new Map();
    this.readyLength = 0;
  }

  get blockCount() {
    return this.nodes.length;
  }

  block(number) {
    let block = this.ready.get(number);
    if (!block) {
      block = this.unpackBlock(number);
      this.makeRoom(block.all.length);
      this.ready.set(number, block);
    }
    return block;
  }

  unpackBlock(number) {
    const count = this.firsts[number + 1] - this.firsts[number];
    try {
      return new TextBlock(unpack(this.nodes[number].textContent), count);
    } catch {
      return TextBlock.damaged(count);
    }
  }

  // What was taken apart first goes first.
  makeRoom(length) {
    this.readyLength += length;
    for (const [number, block] of this.ready) {
      if (this.readyLength <= MOST_READY) {
        break;
      }
      this.readyLength -= block.all.length;
      this.ready.delete(number);
    }
  }

  // The block of a row, and its place in that.
  placeOf(row) {
    const number = upperBound(this.firsts, this.firsts.length - 1, row) - 1;
    return [this.block(number), row - this.firsts[number]];
  }

  text(row) {
    const [block, index] = this.placeOf(row);
    return block.text(index);
  }

  words(row) {
    const [block, index] = this.placeOf(row);
    return block.words(index);
  }
}

// All rows of the page's elements, of which there should be `count`.
export function readRows(columnNodes, textNodes, count) {
  const columns = new Columns(count);
  const firsts = [0];
  for (const node of columnNodes) {
    firsts.push(firsts.at(-1) + columns.add(unpack(node.textContent), firsts.at(-1)));
    node.remove();
  }
  if (firsts.at(-1) !== count || textNodes.length !== columnNodes.length) {
    throw new Error("rows are missing");
  }
  return {columns, texts: new Texts(textNodes, firsts)};
}
