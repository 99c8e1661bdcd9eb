// What failed, according to crash logs and stack traces: the latest crash, then the earlier ones.
import {byId, element} from "../base/dom.js";
import {plural} from "../base/numbers.js";
import {visible} from "../base/text.js";

function facts(pairs) {
  const list = element("dl", "facts");
  for (const [key, value] of pairs) {
    list.append(element("dt", "", key), element("dd", "", value));
  }
  return list;
}

function block(title, content) {
  const node = element("div", "block");
  node.append(element("h3", "", title), content);
  return node;
}

function wordList(words) {
  const list = element("ul", "words");
  list.append(...words.map((word, index) => element("li", "", `D${index} ${word}`)));
  return list;
}

// What symbols say about a frame stands below it.
function frameItem(frame, index, resolved) {
  const item = element("li");
  const text = element("span");
  text.append(element("span", "frame", frame), ...resolved.map((line) => element("span", "resolved", line)));
  item.append(element("span", "", index), text);
  return item;
}

function frameList(stack, frames) {
  const body = element("div", "frames");
  body.tabIndex = 0;
  body.setAttribute("role", "group");
  body.setAttribute("aria-label", visible(`Frames of ${stack.file}`));
  body.append(...(stack.header ?? []).map((line) => element("p", "", line)));
  const list = element("ol");
  list.append(...frames.map((frame, index) => frameItem(frame, index, stack.resolved?.[index] ?? [])));
  body.append(list, ...(stack.statement ?? []).map((line) => element("p", "", line)));
  return body;
}

function stackBlock(stack, open) {
  const node = element("details", "stack");
  node.open = open;
  const frames = stack.frames ?? [];
  const title = element("summary");
  title.append(element("span", "mono", stack.file), element("span", "muted", `  ${plural(frames.length, "frame")}`));
  node.append(title, frameList(stack, frames));
  return node;
}

function activeRings(model, rings) {
  return facts(rings.map((ring) => [
    ring.ring,
    [plural(ring.events ?? 0, "event"), model.markedMoment(ring.newest, ring.sure)].filter(Boolean).join(", newest "),
  ]));
}

function evidenceColumn(model, crash) {
  const column = element("div");
  const stacks = crash.stacks ?? [];
  if (stacks.length) {
    const list = element("div");
    list.append(...stacks.map((stack, index) => stackBlock(stack, index === 0)));
    column.append(block(stacks.length === 1 ? "Stack trace" : "Stack traces", list));
  }
  if ((crash.activeRings ?? []).length) {
    column.append(block("Most recently active rings", activeRings(model, crash.activeRings)));
  }
  return column;
}

function factColumn(model, crash) {
  const column = element("div");
  const pairs = crash.summary ?? [];
  const moment = Number.isFinite(crash.time)
    ? [["Time on the timeline", model.momentLabel(crash.time, crash.sure)]] : [];
  column.append(facts([...pairs, ...moment]));
  if ((crash.extra ?? []).length) {
    column.append(block("Extra words", wordList(crash.extra)));
  }
  if (crash.exception) {
    column.append(block("Exception record", facts(crash.exception)));
  }
  return column;
}

function crashGrid(model, crash) {
  const evidence = evidenceColumn(model, crash);
  const grid = element("div", "failure-grid");
  grid.append(factColumn(model, crash));
  if (evidence.childElementCount) {
    grid.append(evidence);
  }
  return grid;
}

function earlierCrash(model, crash, number) {
  const node = element("details", "crash");
  const perhaps = crash.perhaps ? ` (${crash.perhaps})` : "";
  const title = element("summary", "", `${number}. ${crash.title}${perhaps}`);
  if (Number.isFinite(crash.time)) {
    title.append(element("span", "muted mono", `  ${model.momentLabel(crash.time, crash.sure)}`));
  }
  node.append(title, crashGrid(model, crash));
  return node;
}

// The newest first, as the eye reads on from the headline.
function earlierCrashes(model, crashes) {
  const list = element("div");
  list.append(...crashes.map((crash, index) => earlierCrash(model, crash, index + 1)).reverse());
  const isSure = model.crashes.every((crash) => !crash.perhaps);
  const count = plural(crashes.length, "earlier crash", "es");
  return block(`${isSure ? "" : "At most "}${count} in this folder`, list);
}

export function showFailure(model) {
  const {crashes} = model;
  const latest = crashes.at(-1);
  const card = byId("failure-body");
  card.classList.add(latest ? "failed" : "calm");
  const title = element("h2", "failure-title", latest ? latest.title : "No crash log in this folder");
  title.id = "failure-title";
  card.append(title);
  if (latest?.perhaps) {
    card.append(element("p", "muted", latest.perhaps));
  }
  if (!latest) {
    card.append(element("p", "muted",
      "Nothing in this folder says that the device failed, or how. What the other files hold is shown below."));
    return;
  }
  card.append(crashGrid(model, latest));
  if (crashes.length > 1) {
    card.append(earlierCrashes(model, crashes.slice(0, -1)));
  }
}
