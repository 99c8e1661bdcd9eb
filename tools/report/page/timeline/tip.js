import {element} from "../base/dom.js";
import {plural} from "../base/numbers.js";
import {visible, visibleLine} from "../base/text.js";
import {KIND_NAMES} from "../model/kinds.js";

const LONGEST_TEXT = 240;

function headLine(model, row) {
  const head = element("p", "muted");
  const level = element("b", `l-${model.paintName(row)}`, model.levelName(row) || KIND_NAMES[model.kind[row]]);
  head.append(document.createTextNode(`${model.timeLabel(row)}  `), level,
    document.createTextNode(`  ${visibleLine(model.nameOf(row))}`));
  return head;
}

function bodyText(model, row) {
  const text = visible(model.text(row));
  return element("p", "tip-text", text.length > LONGEST_TEXT ? `${text.slice(0, LONGEST_TEXT)}…` : text);
}

// Describes what is under the pointer, beside it.
export class Tip {
  constructor(node, model) {
    this.node = node;
    this.model = model;
  }

  // `others` is the number of records on the same pixel that are not shown.
  show(row, others, {clientX, clientY}) {
    const {model, node} = this;
    node.replaceChildren(headLine(model, row), bodyText(model, row));
    if (others > 0) {
      node.append(element("p", "muted", `and ${plural(others, "other")} here; zoom in to tell them apart`));
    }
    node.hidden = false;
    this.place(clientX, clientY);
  }

  // Below the pointer, or above it if there is no room.
  place(x, y) {
    const box = this.node.getBoundingClientRect();
    const left = Math.min(x + 14, innerWidth - box.width - 8);
    const below = y + 18;
    const top = below + box.height > innerHeight - 8 ? y - box.height - 12 : below;
    this.node.style.transform = `translate(${Math.max(8, left)}px, ${Math.max(8, top)}px)`;
  }

  hide() {
    this.node.hidden = true;
  }
}
