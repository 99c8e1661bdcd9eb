import {element} from "../base/dom.js";
import {visibleLine} from "../base/text.js";
import {KIND_RING} from "../model/kinds.js";

// Puts text into a node with every occurrence of the needle marked.
function setMarked(node, text, needle) {
  const lower = text.toLowerCase();
  node.textContent = "";
  if (!needle || lower.length !== text.length) {
    node.textContent = text;
    return;
  }
  let done = 0;
  for (let at = lower.indexOf(needle); at >= 0; at = lower.indexOf(needle, done)) {
    const end = at + needle.length;
    node.append(document.createTextNode(text.slice(done, at)), element("mark", "", text.slice(at, end)));
    done = end;
  }
  node.append(document.createTextNode(text.slice(done)));
}

// One line of the table on the screen; which record it shows changes with scrolling.
export class RecordLine {
  constructor(model, index) {
    this.model = model;
    this.node = element("div", "record");
    this.node.id = `record-line-${index}`;
    this.node.setAttribute("role", "row");
    this.cells = {};
    for (const name of ["time", "level", "name", "text", "thread", "source"]) {
      this.cells[name] = element("span", `c-${name}`);
      this.cells[name].setAttribute("role", "gridcell");
      this.node.append(this.cells[name]);
    }
  }

  show(row, position, needle, isSelected) {
    const {model, cells} = this;
    this.row = row;
    this.node.setAttribute("aria-rowindex", String(position + 2));
    this.node.setAttribute("aria-selected", String(isSelected));
    this.node.classList.toggle("selected", isSelected);
    this.node.style.setProperty("--mark", `var(--m-${model.paintName(row)})`);
    cells.time.textContent = model.timeLabel(row);
    cells.time.title = model.hasTime(row) ? `Time: ${model.timeMarks.words(model.mark[row])}` : "";
    cells.level.textContent = visibleLine(model.levelName(row) || (model.kind[row] === KIND_RING ? "ring" : ""));
    cells.level.className = `c-level l-${model.paintName(row)}`;
    setMarked(cells.name, visibleLine(model.nameOf(row)), needle);
    setMarked(cells.text, visibleLine(model.text(row)), needle);
    cells.thread.textContent = visibleLine(model.threadLabel(model.thread[row]));
    cells.thread.title = visibleLine(model.threadFull(model.thread[row]));
    cells.source.textContent = visibleLine(model.sourceName(row));
  }
}
