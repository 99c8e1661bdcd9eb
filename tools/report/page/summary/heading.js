// What the page is about: the folder, how much there is, how certain the times are, what was left out.
import {byId, element} from "../base/dom.js";
import {plural} from "../base/numbers.js";
import {visible, visibleLine} from "../base/text.js";

function writtenAt(generated) {
  const moment = /^(\d{4}-\d{2}-\d{2})T(\d{2}:\d{2}:\d{2})Z$/.exec(generated ?? "");
  return moment ? `${moment[1]} ${moment[2]} UTC` : generated ?? "";
}

export function showHeading(model) {
  const {data} = model;
  const folder = data.folder || "Report";
  byId("folder").textContent = visibleLine(folder);
  document.title = visibleLine(`${folder} - nima-post report`);
  const span = model.timed > 0 ? [model.clock.range(model.first, model.last, 9).join(" to ")] : [];
  const parts = [plural((data.files ?? []).length, "file"), plural(model.count, "record"), ...span,
    `written ${writtenAt(data.generated)} by ${data.tool ?? "nima-post"}`];
  byId("about").textContent = visibleLine(parts.join(" · "));
}

export function showClock(model) {
  const statements = ((model.data.clock ?? {}).statement ?? []).map((finding) => finding.sentence);
  const lines = statements.length ? statements : ["Nothing is known about the times in this folder."];
  byId("clock").append(...lines.map((line) => element("li", "", line)));
}

export function showOmitted(model) {
  const omitted = model.data.omitted ?? {};
  if (omitted.rows > 0) {
    byId("omitted").textContent = visible(omitted.statement || `${plural(omitted.rows, "record")} left out.`);
    byId("omitted").hidden = false;
  }
}
