// The table of rings. Empty ones are shown only on request.
import {byId, element} from "../base/dom.js";
import {formatCount, plural} from "../base/numbers.js";

function fillBar(used, entries) {
  const bar = element("div", "fill");
  const inner = element("span");
  inner.style.width = `${entries > 0 ? Math.min(100, (100 * used) / entries) : 0}%`;
  bar.append(inner);
  return bar;
}

function ringRow(model, ring) {
  const row = element("tr", ring.used ? "" : "empty");
  const fill = element("td");
  fill.append(fillBar(ring.used, ring.entries));
  row.append(element("td", "nowrap", ring.name), fill, element("td", "number", formatCount(ring.used)),
    element("td", "number", formatCount(ring.entries)), element("td", "nowrap", ring.used ? ring.wrapped : ""),
    ...[ring.oldest, ring.newest].map((time) => element("td", "nowrap", model.markedMoment(time, ring.sure))));
  return row;
}

function showEmptyRings(rows, shown) {
  const button = byId("rings-empty");
  rows.forEach((row) => { row.hidden = !shown; });
  button.setAttribute("aria-pressed", String(shown));
  button.textContent = shown ? "Hide empty rings" : `Show ${plural(rows.length, "empty ring")}`;
}

export function showRings(model) {
  const rings = model.data.rings ?? [];
  const body = byId("rings-table").tBodies[0];
  if (!rings.length) {
    byId("rings-table").parentElement.replaceWith(element("p", "muted", "No rings in this folder."));
    return;
  }
  body.append(...rings.map((ring) => ringRow(model, ring)));
  const empty = [...body.querySelectorAll("tr.empty")];
  if (!empty.length) {
    return;
  }
  const button = byId("rings-empty");
  button.hidden = false;
  button.addEventListener("click", () => showEmptyRings(empty, button.getAttribute("aria-pressed") !== "true"));
  showEmptyRings(empty, false);
}
