// Every crash, boot and process. Each leads to its records.
import {byId, element} from "../base/dom.js";
import {writeFragment} from "../base/fragment.js";
import {NS_PER_S, formatCount} from "../base/numbers.js";
import {visible} from "../base/text.js";

function link(text, state) {
  const node = element("a", "", text);
  node.href = writeFragment(state);
  return node;
}

function cell(content, className = "") {
  const node = element("td", className);
  node.append(content instanceof Node ? content : document.createTextNode(visible(String(content))));
  return node;
}

function tableRow(...cells) {
  const row = element("tr");
  row.append(...cells);
  return row;
}

function fill(id, rows) {
  byId(id).tBodies[0].append(...rows);
  byId(id).hidden = rows.length === 0;
}

// The last seconds before it, and itself.
function crashState({row, time}) {
  const range = Number.isFinite(time)
    ? {from: Math.floor(time - 8 * NS_PER_S), to: Math.ceil(time + 2 * NS_PER_S)} : {};
  return {...range, row: row + 1};
}

function crashRow(model, crash, index) {
  const moment = Number.isFinite(crash.time) ? model.momentLabel(crash.time, crash.sure) : "not known";
  const isHere = Number.isInteger(crash.row);
  const title = isHere ? link(crash.title, crashState(crash)) : `${crash.title} (not among the records of this page)`;
  return tableRow(cell(index + 1, "number"), cell(title, "title"), cell(moment, "nowrap"),
    cell(crash.processWords || model.processWords(0, crash.boot ?? 0), "nowrap"),
    cell([crash.after, crash.perhaps].filter(Boolean).join("; "), "notes"));
}

function times(model, {first, last, sure}) {
  return [first, last].map((time, end) => {
    const unknown = end === 0 ? "not known" : "";
    return cell(model.markedMoment(time, sure) || unknown, "nowrap");
  });
}

function bootRow(model, boot) {
  const processes = boot.processes ?? [];
  return tableRow(cell(link(`boot ${boot.boot}`, {boot: boot.boot}), "nowrap"), ...times(model, boot),
    cell(processes.join(", ")), cell(boot.proof ?? "", "notes"));
}

function processRow(model, process, index) {
  return tableRow(cell(link(process.words, {process: index + 1}), "nowrap"), ...times(model, process),
    cell(formatCount(process.threads ?? 0), "number"), cell(process.proof ?? "", "notes"));
}

export function showHappened(model) {
  const {boots, crashes} = model;
  const processes = model.data.processes ?? [];
  fill("crash-list", crashes.map((crash, index) => crashRow(model, crash, index)));
  fill("boot-list", boots.map((boot) => bootRow(model, boot)));
  fill("process-list", processes.map((process, index) => processRow(model, process, index)));
  byId("happened-none").hidden = crashes.length + boots.length + processes.length > 0;
}
