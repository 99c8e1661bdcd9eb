function facts(pairs, prose) {
  const list = element("dl", "facts");
  for (const [key, value] of pairs) {
    list.append(element("dt", "", key), element("dd", prose ? "prose" : "", value));
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

function stackBlock(stack, open) {
  const node = element("details", "stack");
  node.open = open;
  const frames = stack.frames ?? [];
  const body = element("div", "frames");
  body.tabIndex = 0;
  body.setAttribute("role", "group");
  body.setAttribute("aria-label", visible(`Frames of ${stack.file}`));
  body.append(...(stack.header ?? []).map((line) => element("p", "", line)));
  const list = element("ol");
  list.append(...frames.map(frameItem));
  body.append(list);
  const title = element("summary");
  title.append(element("span", "mono", stack.file), element("span", "muted", `  ${plural(frames.length, "frame")}`));
  node.append(title, body);
  return node;
}

function momentText(model, moment) {
  return Number.isFinite(moment) ? model.clock.full(moment, 6) : moment ?? "";
}

function activeRings(model, rings) {
  return facts(rings.map((ring) => [
    ring.ring,
    [plural(ring.events ?? 0, "event"), momentText(model, ring.newest)].filter(Boolean).join(", newest "),
  ]));
}

function failureEvidence(model, failure) {
  const column = element("div");
  const stacks = failure.stacks ?? [];
  if (stacks.length) {
    const list = element("div");
    list.append(...stacks.map((stack, index) => stackBlock(stack, index === 0)));
    column.append(block(stacks.length === 1 ? "Stack trace" : "Stack traces", list));
  }
  if ((failure.activeRings ?? []).length) {
    column.append(block("Rings active last", activeRings(model, failure.activeRings)));
  }
  return column;
}

function failureFacts(model, failure) {
  const column = element("div");
  const pairs = failure.summary ?? [];
  const moment = model.crash === null ? [] : [["Moment on the timeline", model.clock.full(model.crash, 6)]];
  column.append(facts([...pairs, ...moment]));
  if ((failure.extra ?? []).length) {
    column.append(block("Extra words", wordList(failure.extra)));
  }
  if (failure.exception) {
    column.append(block("Exception record", facts(failure.exception)));
  }
  return column;
}

function showFailure(model) {
  const failure = model.data.failure;
  const card = byId("failure-body");
  card.classList.add(failure ? "failed" : "calm");
  const title = element("h2", "failure-title", failure ? failure.title : "No crash log in this folder");
  title.id = "failure-title";
  card.append(title);
  if (!failure) {
    card.append(element("p", "muted", "Nothing here says that, or how, the device failed. What the other files hold is shown below."));
    return;
  }
  const evidence = failureEvidence(model, failure);
  const grid = element("div", "failure-grid");
  grid.append(failureFacts(model, failure));
  if (evidence.childElementCount) {
    grid.append(evidence);
  }
  card.append(grid);
}

function showClock(model) {
  const statements = (model.data.clock ?? {}).statement ?? [];
  const lines = statements.length ? statements : ["Nothing is said about the times of this folder."];
  byId("clock").append(...lines.map((line) => element("li", "", line)));
}

function stateBadge(file) {
  const known = ["ok", "damaged", "unusable", "skipped"].includes(file.state);
  return element("span", known ? `badge ${file.state}` : "badge", file.state);
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

function showUnread(model) {
  const items = (model.data.files ?? []).flatMap((file) => {
    const notes = file.notes ?? [];
    const silent = file.state !== "ok" && notes.length === 0 ? [""] : [];
    return [...notes, ...silent].map((note) => unreadItem(file, note));
  });
  const otherwise = (model.data.files ?? []).length ? "Every file was read to its end." : "There is no file that could be read.";
  byId("unread").append(...(items.length ? items : [element("li", "", otherwise)]));
}

function cell(className, text) {
  return element("td", className, text);
}

function fileRow(file) {
  const row = element("tr");
  const state = cell("nowrap");
  state.append(stateBadge(file));
  const notes = cell("notes");
  notes.append(...(file.notes ?? []).map((note) => element("p", "", note)));
  row.append(cell("name", file.name), cell("nowrap", file.kind),
    cell("number", Number.isFinite(file.bytes) ? formatCount(file.bytes) : ""), state, notes);
  return row;
}

function fillBar(used, entries) {
  const bar = element("div", "fill");
  const inner = element("span");
  inner.style.width = `${entries > 0 ? Math.min(100, (100 * used) / entries) : 0}%`;
  bar.append(inner);
  return bar;
}

function ringRow(model, ring) {
  const row = element("tr", ring.used ? "" : "empty");
  const fill = cell();
  fill.append(fillBar(ring.used, ring.entries));
  row.append(cell("nowrap", ring.name), fill, cell("number", formatCount(ring.used)),
    cell("number", formatCount(ring.entries)), cell("nowrap", ring.used ? ring.wrapped : ""),
    cell("nowrap", momentText(model, ring.oldest)), cell("nowrap", momentText(model, ring.newest)));
  return row;
}

function showEmptyRings(rows, shown) {
  const button = byId("rings-empty");
  rows.forEach((row) => { row.hidden = !shown; });
  button.setAttribute("aria-pressed", String(shown));
  button.textContent = shown ? "Hide empty rings" : `Show ${plural(rows.length, "empty ring")}`;
}

function showRings(model) {
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

function writtenAt(generated) {
  const moment = /^(\d{4}-\d{2}-\d{2})T(\d{2}:\d{2}:\d{2})Z$/.exec(generated ?? "");
  return moment ? `${moment[1]} ${moment[2]} UTC` : generated ?? "";
}

function showHeading(model) {
  const {data} = model;
  const folder = data.folder || "Report";
  byId("folder").textContent = visibleLine(folder);
  document.title = visibleLine(`${folder} - nima-post report`);
  const span = model.timed > 0
    ? [`${model.clock.full(model.first, 3)} to ${model.clock.wall && !model.clock.severalDays
      ? model.clock.time(model.last, 3) : model.clock.full(model.last, 3)}`] : [];
  const parts = [plural((data.files ?? []).length, "file"), plural(model.count, "record"), ...span,
    `written ${writtenAt(data.generated)} by ${data.tool ?? "nima-post"}`];
  byId("about").textContent = visibleLine(parts.join(" · "));
}

function showSummary(model) {
  showHeading(model);
  showFailure(model);
  showClock(model);
  showUnread(model);
  const files = model.data.files ?? [];
  byId("files-table").tBodies[0].append(...files.map(fileRow));
  showRings(model);
  const omitted = model.data.omitted ?? {};
  if (omitted.rows > 0) {
    byId("omitted").textContent = visible(omitted.statement || `${plural(omitted.rows, "record")} left out.`);
    byId("omitted").hidden = false;
  }
}
