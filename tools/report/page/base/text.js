// The device's text, as people can read it.

// Characters that would be invisible or would turn the direction of their neighbours: first and last of each range.
const UNSEEN_RANGES = [
  [0x0000, 0x0008], [0x000b, 0x001f], [0x007f, 0x009f], [0x00ad, 0x00ad], [0x034f, 0x034f], [0x061c, 0x061c],
  [0x180e, 0x180e], [0x200b, 0x200f], [0x2028, 0x202e], [0x2060, 0x206f], [0xfeff, 0xfeff], [0xfff9, 0xfffb],
];
const UNSEEN = new RegExp(
  `[${UNSEEN_RANGES.map(([first, last]) => `\\u${hex(first, 4)}-\\u${hex(last, 4)}`).join("")}]`, "g");

function hex(number, digits) {
  return number.toString(16).padStart(digits, "0");
}

// Invisible characters are replaced by their number.
export function visible(text) {
  return text.replace(UNSEEN, (character) => {
    const code = character.codePointAt(0);
    return code < 0x100 ? `\\x${hex(code, 2)}` : `\\u${hex(code, 4)}`;
  });
}

export function visibleLine(text) {
  return visible(text).replace(/\n/g, "↵");
}
