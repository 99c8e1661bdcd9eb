// The page's data: one JSON object in the element "data". The writer escapes every "<" as \u003c and writes UTF-8. Text
// is shown as it is, never read as markup.
//
// {
//   "tool": "nima-post 1.0.0", "database": "fleet.db", "generated": "2026-11-24T18:00:00Z",
//   "totals": {"devices": 1000, "cases": 1040, "crashes": 370},
//   "signatures": [                       that which struck the most devices first
//     {"signature": "...", "devices": 90, "crashes": 101,
//      "first": "2026-11-24T15:09:26.046886123" | null, "last": as "first",    local time of the devices
//      "example": "/fleet/unit-1", "member": "",    a folder to look at, or an archive and the device in it
//      "days": [["2026-11-24" | null, 3], ...],     crashes of each day that had any; null: without a date
//      "struck": ["unit-1", ...],                   names of devices
//      "frames": [["0x.. (Feed(int)+0x1d8)", 0 | 1, 0 | 1], ...],   of the example: foreign, part of the signature
//      "messages": [{"level": "ERROR", "name": "Engine", "text": "# jams", "struck": 88, "healthy": 2}, ...],
//      "healthy": 620,                              devices without any crash
//      "firmware": [["4.2.1" | null, 60, 70], ...]} version, devices, crashes
//   ]
// }
import {byId, element} from "../../report/page/base/dom.js";
import {plural} from "../../report/page/base/numbers.js";
import {showDetail} from "./detail.js";
import {fillTable} from "./table.js";
import {showTrend} from "./trend.js";

// "#2" is the second signature.
function chosen(data) {
  const match = /^#(\d{1,9})$/.exec(location.hash);
  return match ? data.signatures[Number(match[1]) - 1] : undefined;
}

function show(data) {
  const signature = chosen(data);
  byId("list").hidden = Boolean(signature);
  byId("detail").hidden = !signature;
  showTrend(signature ? [signature] : data.signatures);
  if (signature) {
    showDetail(byId("detail"), signature);
  }
}

function start() {
  const data = JSON.parse(byId("data").textContent);
  const totals = data.totals;
  document.title = `${data.database} - nima-post fleet`;
  byId("title").append(element("span", "", data.database));
  byId("totals").textContent = [plural(totals.devices, "device"), plural(totals.cases, "case"),
    plural(totals.crashes, "crash", "es"), plural(data.signatures.length, "signature"),
    `made by ${data.tool} at ${data.generated}`].join(", ");
  fillTable(byId("signatures"), data.signatures);
  addEventListener("hashchange", () => show(data));
  show(data);
}

document.addEventListener("DOMContentLoaded", start);
