// The files of the folder: their table, and the notes on reading them.
import {byId, element} from "../base/dom.js";
import {formatCount} from "../base/numbers.js";

const STATES = ["ok", "damaged", "unusable", "skipped"];

function stateBadge(file) {
  return element("span", STATES.includes(file.state) ? `badge ${file.state}` : "badge", file.state);
}

function unreadItem(file, note) {
  const item = element("li");
  item.append(element("span", "source", file.name), document.createTextNode("  "));
  if (file.state !== "ok") {
    item.append(stateBadge(file), document.createTextNode("  "));
  }
  item.append(element("span", "", note));
  return item;
}

function showUnread(files) {
  const items = files.flatMap((file) => {
    const notes = file.notes ?? [];
    const silent = file.state !== "ok" && notes.length === 0 ? [""] : [];
    return [...notes.map((note) => note.sentence), ...silent].map((text) => unreadItem(file, text));
  });
  const otherwise = files.length ? "Every file was read to the end." : "No file could be read.";
  byId("unread").append(...(items.length ? items : [element("li", "", otherwise)]));
}

function fileRow(file) {
  const row = element("tr");
  const state = element("td", "nowrap");
  state.append(stateBadge(file));
  const notes = element("td", "notes");
  notes.append(...(file.notes ?? []).map((note) => element("p", "", note.sentence)));
  row.append(element("td", "name", file.name), element("td", "nowrap", file.kind),
    element("td", "number", Number.isFinite(file.bytes) ? formatCount(file.bytes) : ""), state, notes);
  return row;
}

export function showFiles(model) {
  const files = model.data.files ?? [];
  showUnread(files);
  byId("files-table").tBodies[0].append(...files.map(fileRow));
}
