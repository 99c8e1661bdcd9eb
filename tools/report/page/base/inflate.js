// Takes deflated bytes apart (RFC 1951). The browsers' own way of doing so gives its bytes only later, and a row that
// is scrolled to is to be there at once.

const LONGEST = 15;
const FAST_BITS = 10;
const END = 256;
const ORDER = [16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15];
// What lengths from 257 on and distances begin with, and how many bits more they have.
const [LENGTHS, LENGTH_BITS] = ranges(3, 28, (index) => (index < 8 ? 0 : (index >> 2) - 1));
const [DISTANCES, DISTANCE_BITS] = ranges(1, 30, (index) => (index < 4 ? 0 : (index >> 1) - 1));
// The longest length has a code of its own.
LENGTHS.push(258);
LENGTH_BITS.push(0);

function ranges(first, count, bitsOf) {
  const starts = [];
  const bits = [];
  for (let index = 0, start = first; index < count; ++index) {
    starts.push(start);
    bits.push(bitsOf(index));
    start += 2 ** bitsOf(index);
  }
  return [starts, bits];
}

function damaged() {
  return new Error("packed rows are damaged");
}

// Huffman codes: short ones are looked up, long ones are read bit by bit.
class Codes {
  constructor(lengths) {
    this.counts = new Uint16Array(LONGEST + 1);
    lengths.forEach((length) => { this.counts[length] += length > 0 ? 1 : 0; });
    const places = new Uint16Array(LONGEST + 2);
    for (let length = 1; length <= LONGEST; ++length) {
      places[length + 1] = places[length] + this.counts[length];
    }
    this.symbols = new Uint16Array(lengths.length);
    lengths.forEach((length, symbol) => {
      if (length > 0) {
        this.symbols[places[length]++] = symbol;
      }
    });
    // A symbol and, in the lowest four bits, its length; 0 for a long code.
    this.fast = new Uint16Array(1 << FAST_BITS);
    this.fillFast();
  }

  fillFast() {
    let code = 0;
    let index = 0;
    for (let length = 1; length <= FAST_BITS; ++length) {
      for (let count = this.counts[length]; count > 0; --count) {
        const entry = (this.symbols[index++] << 4) | length;
        for (let bits = reversed(code++, length); bits < this.fast.length; bits += 1 << length) {
          this.fast[bits] = entry;
        }
      }
      code <<= 1;
    }
  }
}

function reversed(code, length) {
  let bits = 0;
  for (let index = 0; index < length; ++index) {
    bits |= ((code >> index) & 1) << (length - 1 - index);
  }
  return bits;
}

function fixedCodes() {
  const lengths = new Uint8Array(288).fill(8);
  lengths.fill(9, 144, 256);
  lengths.fill(7, 256, 280);
  return [new Codes(lengths), new Codes(new Uint8Array(30).fill(5))];
}

const [FIXED_LENGTHS, FIXED_DISTANCES] = fixedCodes();

class Inflater {
  constructor(bytes, size) {
    this.bytes = bytes;
    this.at = 0;
    this.hold = 0;
    this.held = 0;
    this.out = new Uint8Array(size);
    this.size = 0;
  }

  // Beyond the end there are zeros, which lead to no end of the block.
  need(count) {
    while (this.held < count) {
      this.hold |= (this.bytes[this.at++] ?? 0) << this.held;
      this.held += 8;
    }
    if (this.at > this.bytes.length + 4) {
      throw damaged();
    }
  }

  bits(count) {
    this.need(count);
    const value = this.hold & ((1 << count) - 1);
    this.hold >>>= count;
    this.held -= count;
    return value;
  }

  symbol(codes) {
    this.need(LONGEST);
    const entry = codes.fast[this.hold & ((1 << FAST_BITS) - 1)];
    if (entry === 0) {
      return this.longSymbol(codes);
    }
    this.hold >>>= entry & 15;
    this.held -= entry & 15;
    return entry >> 4;
  }

  longSymbol(codes) {
    let code = 0;
    let first = 0;
    let index = 0;
    for (let length = 1; length <= LONGEST; ++length) {
      code |= this.bits(1);
      const count = codes.counts[length];
      if (code - first < count) {
        return codes.symbols[index + code - first];
      }
      index += count;
      first = (first + count) << 1;
      code <<= 1;
    }
    throw damaged();
  }

  run() {
    for (let last = 0; !last;) {
      last = this.bits(1);
      const kind = this.bits(2);
      if (kind === 0) {
        this.stored();
      } else if (kind === 1) {
        this.packed(FIXED_LENGTHS, FIXED_DISTANCES);
      } else if (kind === 2) {
        this.packed(...this.readCodes());
      } else {
        throw damaged();
      }
    }
    if (this.size !== this.out.length) {
      throw damaged();
    }
    return this.out;
  }

  stored() {
    this.at -= this.held >> 3;
    this.hold = this.held = 0;
    const length = this.bytes[this.at] | (this.bytes[this.at + 1] << 8);
    const from = this.at + 4;
    if (!(from + length <= this.bytes.length && this.size + length <= this.out.length)) {
      throw damaged();
    }
    this.out.set(this.bytes.subarray(from, from + length), this.size);
    this.at = from + length;
    this.size += length;
  }

  readCodes() {
    const literals = this.bits(5) + 257;
    const distances = this.bits(5) + 1;
    const count = this.bits(4) + 4;
    const orders = new Uint8Array(ORDER.length);
    for (let index = 0; index < count; ++index) {
      orders[ORDER[index]] = this.bits(3);
    }
    const lengths = this.readLengths(new Codes(orders), literals + distances);
    return [new Codes(lengths.subarray(0, literals)), new Codes(lengths.subarray(literals))];
  }

  readLengths(codes, count) {
    const lengths = new Uint8Array(count);
    for (let index = 0; index < count;) {
      const symbol = this.symbol(codes);
      if (symbol < 16) {
        lengths[index++] = symbol;
      } else {
        index = this.repeatLength(lengths, index, symbol);
      }
    }
    return lengths;
  }

  repeatLength(lengths, index, symbol) {
    const value = symbol === 16 ? lengths[index - 1] : 0;
    const times = [() => 3 + this.bits(2), () => 3 + this.bits(3), () => 11 + this.bits(7)][symbol - 16]();
    if (index + times > lengths.length) {
      throw damaged();
    }
    lengths.fill(value, index, index + times);
    return index + times;
  }

  packed(lengths, distances) {
    const {out} = this;
    for (let symbol = this.symbol(lengths); symbol !== END; symbol = this.symbol(lengths)) {
      if (symbol < END) {
        if (this.size === out.length) {
          throw damaged();
        }
        out[this.size++] = symbol;
      } else {
        this.copy(symbol - END - 1, distances);
      }
    }
  }

  copy(index, distances) {
    const length = LENGTHS[index] + this.bits(LENGTH_BITS[index]);
    const code = this.symbol(distances);
    const distance = DISTANCES[code] + this.bits(DISTANCE_BITS[code]);
    if (!(distance <= this.size && this.size + length <= this.out.length)) {
      throw damaged();
    }
    const {out} = this;
    const end = this.size + length;
    for (let to = this.size; to < end; ++to) {
      out[to] = out[to - distance];
    }
    this.size = end;
  }
}

// The bytes that were deflated, of which there are `size`.
export function inflate(bytes, size) {
  return new Inflater(bytes, size).run();
}
