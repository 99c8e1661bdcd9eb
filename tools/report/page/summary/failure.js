// What failed, according to the crash log and the stack traces.
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

function frameItem(frame, index) {
  const item = element("li");
  item.append(element("span", "", index), element("span", "", frame));
  return item;
}

function frameList(stack, frames) {
  const body = element("div", "frames");
  body.tabIndex = 0;
  body.setAttribute("role", "group");
  body.setAttribute("aria-label", visible(`Frames of ${stack.file}`));
  body.append(...(stack.header ?? []).map((line) => element("p", "", line)));
  const list = element("ol");
  list.append(...frames.map(frameItem));
  body.append(list);
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
    [plural(ring.events ?? 0, "event"), model.clock.moment(ring.newest)].filter(Boolean).join(", newest "),
  ]));
}

function evidenceColumn(model, failure) {
  const column = element("div");
  const stacks = failure.stacks ?? [];
  if (stacks.length) {
    const list = element("div");
    list.append(...stacks.map((stack, index) => stackBlock(stack, index === 0)));
    column.append(block(stacks.length === 1 ? "Stack trace" : "Stack traces", list));
  }
  if ((failure.activeRings ?? []).length) {
    column.append(block("Most recently active rings", activeRings(model, failure.activeRings)));
  }
  return column;
}

function factColumn(model, failure) {
  const column = element("div");
  const pairs = failure.summary ?? [];
  const moment = model.crash === null ? [] : [["Time on the timeline", model.clock.full(model.crash, 6)]];
  column.append(facts([...pairs, ...moment]));
  if ((failure.extra ?? []).length) {
    column.append(block("Extra words", wordList(failure.extra)));
  }
  if (failure.exception) {
    column.append(block("Exception record", facts(failure.exception)));
  }
  return column;
}

export function showFailure(model) {
  const failure = model.data.failure;
  const card = byId("failure-body");
  card.classList.add(failure ? "failed" : "calm");
  const title = element("h2", "failure-title", failure ? failure.title : "No crash log in this folder");
  title.id = "failure-title";
  card.append(title);
  if (!failure) {
    card.append(element("p", "muted",
      "Nothing in this folder says that the device failed, or how. What the other files hold is shown below."));
    return;
  }
  const evidence = evidenceColumn(model, failure);
  const grid = element("div", "failure-grid");
  grid.append(factColumn(model, failure));
  if (evidence.childElementCount) {
    grid.append(evidence);
  }
  card.append(grid);
}
