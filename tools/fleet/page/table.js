// The table of all signatures.
import {element} from "../../report/page/base/dom.js";
import {formatCount} from "../../report/page/base/numbers.js";

export function dayOf(time) {
  return time === null ? "-" : time.slice(0, 10);
}

function row(signature, number) {
  const line = document.createElement("tr");
  line.append(
    element("td", "number", formatCount(signature.devices)), element("td", "number", formatCount(signature.crashes)),
    element("td", "day", dayOf(signature.first)), element("td", "day", dayOf(signature.last)));
  const link = element("a", "mono", signature.signature);
  link.href = `#${number}`;
  const cell = document.createElement("td");
  cell.append(link);
  line.append(cell);
  return line;
}

export function fillTable(table, signatures) {
  table.tBodies[0].append(...signatures.map((signature, i) => row(signature, i + 1)));
}
