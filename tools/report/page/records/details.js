import {byId, element} from "../base/dom.js";
import {formatCount, formatDuration} from "../base/numbers.js";

const NOTHING_SELECTED = "None. Click a record on the timeline or in the table to see all it holds.";

function argumentRow(word, index) {
  const row = element("tr");
  const value = /^0x[0-9a-f]{1,16}$/i.test(word) ? BigInt(word).toString() : "";
  row.append(element("td", "", index + 1), element("td", "", word), element("td", "number", value));
  return row;
}

function argumentTable(args) {
  const table = element("table", "argument-table");
  const head = element("tr");
  for (const title of ["Word", "Hexadecimal", "Decimal"]) {
    const th = element("th", title === "Decimal" ? "number" : "", title);
    th.scope = "col";
    head.append(th);
  }
  const body = element("tbody");
  body.append(...args.map(argumentRow));
  const top = element("thead");
  top.append(head);
  table.append(top, body);
  return table;
}

function button(text, action) {
  const node = element("button", "", text);
  node.type = "button";
  node.addEventListener("click", action);
  return node;
}

// Everything that is known about one record.
export class Details {
  constructor(model) {
    this.model = model;
    this.body = byId("details-body");
    this.onCentre = () => {};
    this.onThread = () => {};
  }

  show(row) {
    if (row < 0) {
      this.body.replaceChildren(element("p", "muted", NOTHING_SELECTED));
      return;
    }
    const args = this.model.args(row);
    this.body.replaceChildren(
      element("div", "detail-text", this.model.text(row) || "(no text)"),
      ...(args.length ? [argumentTable(args)] : []),
      this.factList(row),
      this.actions(row));
    this.body.scrollTop = 0;
  }

  factList(row) {
    const {model} = this;
    const list = element("dl", "facts");
    const add = (key, value, className) => {
      if (value) {
        list.append(element("dt", "", key), element("dd", className, value));
      }
    };
    add("Time", model.hasTime(row) ? model.momentLabel(model.times[row], model.mark[row]) : "not known", "mono");
    add("Certainty", model.hasTime(row) ? model.timeMarks.words(model.mark[row]) : "");
    add("Relative to the crash", this.crashDistance(row));
    add("Level", model.levelName(row), `l-${model.paintName(row)}`);
    add("Name", model.nameOf(row));
    add("Thread", model.threadFull(model.thread[row]));
    add("Process", model.hasProcesses ? model.processName(row) : "");
    add("Source", model.sourceName(row));
    add("Record", `${formatCount(row + 1)} of ${formatCount(model.count)}`);
    return list;
  }

  crashDistance(row) {
    const {model} = this;
    if (model.crash === null || !model.hasTime(row)) {
      return "";
    }
    const distance = model.times[row] - model.crash;
    return distance === 0 ? "the same moment" : `${formatDuration(distance)} ${distance < 0 ? "before" : "after"}`;
  }

  actions(row) {
    const {model} = this;
    const node = element("div", "actions");
    if (model.hasTime(row)) {
      node.append(button("Zoom to it", () => this.onCentre(row)));
    }
    if (model.thread[row] >= 0) {
      node.append(button("Only this thread", () => this.onThread(model.thread[row])));
    }
    return node;
  }
}
