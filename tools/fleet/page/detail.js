// The page of one signature.
import {element} from "../../report/page/base/dom.js";
import {plural} from "../../report/page/base/numbers.js";
import {dayOf} from "./table.js";

function block(title, ...nodes) {
  return [element("h3", "", title), ...nodes];
}

function heading(signature) {
  const back = element("a", "", "All signatures");
  back.href = "#";
  const line = [plural(signature.devices, "device"), plural(signature.crashes, "crash", "es"),
    `first ${dayOf(signature.first)}`, `last ${dayOf(signature.last)}`].join(", ");
  return [back, element("h2", "mono", signature.signature), element("p", "", line)];
}

function example(signature) {
  const device = signature.member ? ` --device ${signature.member}` : "";
  return block("To look at", element("code", "", `nima-post ${signature.example}${device}`));
}

function table(titles, rows) {
  const node = document.createElement("table");
  const head = node.createTHead().insertRow();
  for (const title of titles) {
    head.append(element("th", "", title));
  }
  const body = node.createTBody();
  for (const cells of rows) {
    body.insertRow().append(...cells.map((cell) => element("td", typeof cell === "number" ? "number" : "mono", cell)));
  }
  return node;
}

function firmware(signature) {
  const rows = signature.firmware.map(([version, devices, crashes]) => [version ?? "unknown", devices, crashes]);
  return rows.length > 0 ? block("Firmware", table(["Version", "Devices", "Crashes"], rows)) : [];
}

function frames(signature) {
  if (signature.frames.length === 0) {
    return [];
  }
  const list = element("ol", "frames mono");
  for (const [line, foreign, chosen] of signature.frames) {
    const kinds = [foreign ? "foreign" : "", chosen ? "chosen" : ""].filter(Boolean).join(" ");
    list.append(element("li", kinds, line));
  }
  return block("Frames of the example, those of the signature marked", list);
}

function messages(signature) {
  const rows = signature.messages.map((each) => [each.struck, each.healthy, each.level, each.name, each.text]);
  const title = "In the minute before it, on most of these devices, and on few or none without a crash";
  const titles = [`Of ${signature.devices} struck`, `Of ${signature.healthy} healthy`, "Level", "Tracer", "Message"];
  return block(title, rows.length > 0 ? table(titles, rows) : element("p", "muted", "Nothing"));
}

function struck(signature) {
  const more = signature.devices - signature.struck.length;
  const names = signature.struck.join(", ") + (more > 0 ? ` and ${plural(more, "more device")}` : "");
  return block("Devices", element("p", "", names));
}

export function showDetail(node, signature) {
  node.replaceChildren(...heading(signature), ...example(signature), ...firmware(signature), ...frames(signature),
    ...messages(signature), ...struck(signature));
}
