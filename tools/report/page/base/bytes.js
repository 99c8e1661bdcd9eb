// Bytes of the page: in base64, deflated, with their length in front.
import {inflate} from "./inflate.js";

function fromBase64(text) {
  const binary = atob(text);
  const bytes = new Uint8Array(binary.length);
  for (let index = 0; index < bytes.length; ++index) {
    bytes[index] = binary.charCodeAt(index);
  }
  return bytes;
}

export function unpack(text) {
  const bytes = fromBase64(text);
  const size = new DataView(bytes.buffer).getUint32(0, true);
  return inflate(bytes.subarray(4), size);
}

// Numbers of seven bits a byte, one after the other.
export class ByteReader {
  constructor(bytes) {
    this.bytes = bytes;
    this.at = 0;
  }

  next() {
    let byte = this.bytes[this.at++];
    let value = byte & 127;
    for (let scale = 128; byte > 127; scale *= 128) {
      byte = this.bytes[this.at++];
      value += (byte & 127) * scale;
    }
    return value;
  }

  // The sign is in the lowest bit.
  nextSigned() {
    const value = this.next();
    return value % 2 ? -(value + 1) / 2 : value / 2;
  }

  take(count) {
    this.at += count;
    return this.bytes.subarray(this.at - count, this.at);
  }
}
