const ROW_HEIGHT = 24;
const HEAD_HEIGHT = 28;
const OVERSCAN = 6;
const ALL = -2;
const NONE = -1;

function wholeRows(top) {
  return Math.round(top / ROW_HEIGHT) * ROW_HEIGHT;
}

function option(value, text) {
  const node = element("option", "", text);
  node.value = String(value);
  return node;
}

// Puts text into a node with every occurrence of the needle marked.
function setMarked(node, text, needle) {
  const lower = text.toLowerCase();
  node.textContent = "";
  if (!needle || lower.length !== text.length) {
    node.textContent = text;
    return;
  }
  let done = 0;
  for (let at = lower.indexOf(needle); at >= 0; at = lower.indexOf(needle, done)) {
    node.append(document.createTextNode(text.slice(done, at)), element("mark", "", text.slice(at, at + needle.length)));
    done = at + needle.length;
  }
  node.append(document.createTextNode(text.slice(done)));
}

// One row of the table on the screen; which record it shows changes with scrolling.
class RecordLine {
  constructor(model, index) {
    this.model = model;
    this.node = element("div", "record");
    this.node.id = `record-line-${index}`;
    this.node.setAttribute("role", "row");
    this.cells = {};
    for (const name of ["time", "level", "name", "text", "thread", "source"]) {
      this.cells[name] = element("span", `c-${name}`);
      this.cells[name].setAttribute("role", "gridcell");
      this.node.append(this.cells[name]);
    }
    this.words = element("span", "words-after");
  }

  show(row, position, needle, isSelected) {
    const {model, cells} = this;
    this.row = row;
    this.node.setAttribute("aria-rowindex", String(position + 2));
    this.node.setAttribute("aria-selected", String(isSelected));
    this.node.classList.toggle("selected", isSelected);
    this.node.style.setProperty("--mark", `var(--m-${model.paintName(row)})`);
    cells.time.textContent = model.timeLabel(row);
    cells.time.title = model.hasTime(row) ? `Time: ${SURE_WORDS[model.sure[row]]}` : "";
    cells.level.textContent = visibleLine(model.levelName(row) || (model.kind[row] === KIND_RING ? "ring" : ""));
    cells.level.className = `c-level l-${model.paintName(row)}`;
    setMarked(cells.name, visibleLine(model.nameOf(row)), needle);
    this.showText(row, needle);
    cells.thread.textContent = visibleLine(model.threadLabel(model.thread[row]));
    cells.thread.title = visibleLine(model.threadFull(model.thread[row]));
    cells.source.textContent = visibleLine(model.sourceName(row));
  }

  showText(row, needle) {
    const {text} = this.cells;
    setMarked(text, visibleLine(this.model.text(row)), needle);
    const args = this.model.args(row);
    if (args.length) {
      setMarked(this.words, `  ${visibleLine(args.join(" "))}`, needle);
      text.append(this.words);
    }
  }
}

// All records that match, of which only those on the screen are in the document.
class RecordTable {
  constructor(model) {
    this.model = model;
    this.grid = byId("grid");
    this.space = byId("grid-space");
    this.holder = byId("grid-rows");
    this.lines = [];
    this.matches = new Uint8Array(model.count).fill(1);
    this.shown = new Int32Array(model.count);
    this.shownCount = 0;
    this.selected = -1;
    this.needle = "";
    this.shownFrom = -Infinity;
    this.shownTo = Infinity;
    this.onSelect = () => {};
    this.onFilter = () => {};
    this.drawLater = frameRunner(() => this.draw());
    this.filterLater = frameRunner(() => this.filter());
    this.fillSelects();
    this.setTimeWidth();
    this.listen();
  }

  start() {
    this.filter();
    this.scrollToCrash();
  }

  counts(column, size) {
    const counts = new Uint32Array(size + 1);
    for (let row = 0; row < this.model.count; ++row) {
      const value = column[row];
      counts[value >= 0 && value < size ? value : size] += 1;
    }
    return counts;
  }

  fillSelect(id, column, labels, noneLabel) {
    const counts = this.counts(column, labels.length);
    const entries = labels.map((label, index) => ({label, index, count: counts[index]})).filter((entry) => entry.count > 0);
    const select = byId(id);
    select.append(option(ALL, "All"), ...entries.map((entry) =>
      option(entry.index, `${entry.label || "(none)"} (${formatCount(entry.count)})`)));
    if (counts[labels.length] > 0) {
      select.append(option(NONE, `${noneLabel} (${formatCount(counts[labels.length])})`));
    }
  }

  fillSelects() {
    const {model} = this;
    this.fillSelect("filter-source", model.source, model.sources, "No source");
    this.fillSelect("filter-level", model.level, model.levels, "No level");
    this.fillSelect("filter-thread", model.thread, model.threads.map((_, index) => model.threadFull(index)), "No thread");
    this.fillSelect("filter-name", model.name, model.names, "No name");
    const worse = ["ERROR", "WARN"].filter((level) => model.levels.includes(level));
    byId("filter-level").firstChild.after(...worse.map((level) => option(level, `${level} and worse`)));
  }

  // As wide as the longest time, in characters of the table's type.
  setTimeWidth() {
    const {model} = this;
    const widest = model.timed ? Math.max(model.clock.short(model.first).length, model.clock.short(model.last).length) : 9;
    this.grid.style.setProperty("--time-width", `${Math.ceil((widest + 1) * 7.4) + 2}px`);
  }

  listen() {
    const form = byId("filters");
    for (const name of ["input", "change", "reset"]) {
      form.addEventListener(name, () => this.filterLater());
    }
    form.addEventListener("submit", (event) => event.preventDefault());
    byId("search").addEventListener("keydown", (event) => {
      if (event.key === "Enter") {
        event.preventDefault();
        this.filter();
        this.step(event.shiftKey ? -1 : 1);
      }
    });
    this.grid.addEventListener("scroll", () => this.drawLater());
    this.grid.addEventListener("click", (event) => this.click(event));
    this.grid.addEventListener("keydown", (event) => this.key(event));
    new ResizeObserver(() => this.drawLater()).observe(this.grid);
  }

  click(event) {
    const line = this.lines.find((candidate) => candidate.node.contains(event.target));
    if (line) {
      this.choose(line.row);
    }
  }

  key(event) {
    const page = Math.max(1, Math.floor(this.grid.clientHeight / ROW_HEIGHT) - 2);
    const steps = {ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page, Home: -Infinity, End: Infinity};
    if (event.key in steps && !event.ctrlKey && !event.metaKey && !event.altKey) {
      event.preventDefault();
      this.step(steps[event.key]);
    }
  }

  // From a selection that the filter hides, the steps go on from where it would stand.
  step(by) {
    if (this.shownCount === 0) {
      return;
    }
    let position = this.firstVisible();
    if (this.selected >= 0) {
      const at = lowerBound(this.shown, this.shownCount, this.selected);
      const hidden = this.shown[at] !== this.selected;
      position = at + by - (hidden && by > 0 ? 1 : 0);
    } else if (!Number.isFinite(by)) {
      position = by;
    }
    this.choose(this.shown[Math.max(0, Math.min(this.shownCount - 1, position))]);
  }

  firstVisible() {
    return Math.min(this.shownCount - 1, Math.ceil(this.grid.scrollTop / ROW_HEIGHT));
  }

  choose(row) {
    this.setSelected(row, true);
    this.onSelect(row);
  }

  setSelected(row, scroll) {
    this.selected = row;
    if (row >= 0 && scroll) {
      this.reveal(row);
    }
    this.draw();
  }

  reveal(row) {
    const position = lowerBound(this.shown, this.shownCount, row);
    if (position >= this.shownCount || this.shown[position] !== row) {
      return;
    }
    const top = position * ROW_HEIGHT;
    const room = this.grid.clientHeight - HEAD_HEIGHT;
    if (top < this.grid.scrollTop || top + ROW_HEIGHT > this.grid.scrollTop + room) {
      const near = Math.abs(top - this.grid.scrollTop - room / 2) < room;
      const middle = top - room / 2 + ROW_HEIGHT / 2;
      const edge = top < this.grid.scrollTop ? top : top + ROW_HEIGHT - room;
      this.grid.scrollTop = near ? edge : wholeRows(middle);
    }
  }

  // A reader wants what happened last before the crash.
  scrollToCrash() {
    const {model} = this;
    if (model.crash === null) {
      return;
    }
    const position = upperBound(model.times, model.timed, model.crash);
    this.grid.scrollTop = wholeRows(position * ROW_HEIGHT - (this.grid.clientHeight - HEAD_HEIGHT) * 0.7);
  }

  readFilter() {
    const number = (id) => Number(byId(id).value);
    const level = byId("filter-level").value;
    return {
      needle: byId("search").value.toLowerCase(),
      source: number("filter-source"),
      thread: number("filter-thread"),
      name: number("filter-name"),
      levels: this.wantedLevels(level),
      timeOnly: byId("filter-range").checked,
    };
  }

  wantedLevels(value) {
    if (Number(value) === ALL) {
      return null;
    }
    const worst = SEVERITY.indexOf(value);
    if (worst < 0) {
      return new Set([Number(value)]);
    }
    return new Set(SEVERITY.slice(0, worst + 1).map((name) => this.model.levels.indexOf(name)).filter((index) => index >= 0));
  }

  filter() {
    const wanted = this.readFilter();
    const {model} = this;
    this.needle = wanted.needle;
    const isFiltered = Boolean(wanted.needle) || wanted.levels !== null ||
      [wanted.source, wanted.thread, wanted.name].some((value) => value !== ALL);
    this.fillMatches(wanted);
    const from = wanted.timeOnly ? lowerBound(model.times, model.timed, this.shownFrom) : 0;
    const to = wanted.timeOnly ? upperBound(model.times, model.timed, this.shownTo) : model.count;
    this.shownCount = 0;
    for (let row = from; row < to; ++row) {
      if (this.matches[row]) {
        this.shown[this.shownCount++] = row;
      }
    }
    this.onFilter(this.matches, isFiltered);
    this.showCount(isFiltered || wanted.timeOnly);
    this.space.style.height = `${this.shownCount * ROW_HEIGHT}px`;
    this.grid.setAttribute("aria-rowcount", String(this.shownCount + 1));
    if (this.selected >= 0) {
      this.reveal(this.selected);
    }
    this.draw();
  }

  fillMatches(wanted) {
    const {model, matches} = this;
    const fits = (column, row, value) => value === ALL || column[row] === value;
    for (let row = 0; row < model.count; ++row) {
      matches[row] = fits(model.source, row, wanted.source) && fits(model.thread, row, wanted.thread) &&
        fits(model.name, row, wanted.name) && (wanted.levels === null || wanted.levels.has(model.level[row])) &&
        (!wanted.needle || model.searchText(row).includes(wanted.needle)) ? 1 : 0;
    }
  }

  showCount(isFiltered) {
    const total = plural(this.model.count, "record");
    byId("count").textContent = isFiltered ? `${formatCount(this.shownCount)} of ${total} match` : total;
    byId("count").dataset.matches = String(this.shownCount);
    byId("grid-empty").hidden = this.shownCount > 0;
    byId("grid-empty").textContent = this.model.count > 0 ? "No record matches." : "There are no records.";
  }

  setShownTime(from, to) {
    this.shownFrom = from;
    this.shownTo = to;
    if (byId("filter-range").checked) {
      this.filterLater();
    }
  }

  filterThread(thread) {
    byId("filter-thread").value = String(thread);
    this.filter();
  }

  ensureLines(count) {
    while (this.lines.length < count) {
      const line = new RecordLine(this.model, this.lines.length);
      this.lines.push(line);
      this.holder.append(line.node);
    }
  }

  draw() {
    const first = Math.max(0, Math.floor(this.grid.scrollTop / ROW_HEIGHT) - OVERSCAN);
    const room = Math.ceil(this.grid.clientHeight / ROW_HEIGHT) + 2 * OVERSCAN;
    const count = Math.max(0, Math.min(room, this.shownCount - first));
    this.ensureLines(count);
    this.holder.style.transform = `translateY(${first * ROW_HEIGHT}px)`;
    let active = "";
    this.lines.forEach((line, index) => {
      line.node.hidden = index >= count;
      if (index < count) {
        const row = this.shown[first + index];
        line.show(row, first + index, this.needle, row === this.selected);
        line.node.classList.toggle("after-crash", this.isFirstAfterCrash(first + index));
        active = row === this.selected ? line.node.id : active;
      }
    });
    if (active) {
      this.grid.setAttribute("aria-activedescendant", active);
    } else {
      this.grid.removeAttribute("aria-activedescendant");
    }
  }

  isFirstAfterCrash(position) {
    const {model} = this;
    return model.crash !== null && model.times[this.shown[position]] > model.crash &&
      (position === 0 || model.times[this.shown[position - 1]] <= model.crash);
  }
}

// Everything that is known of one record.
class Details {
  constructor(model) {
    this.model = model;
    this.body = byId("details-body");
    this.onCentre = () => {};
    this.onThread = () => {};
  }

  show(row) {
    if (row < 0) {
      this.body.replaceChildren(element("p", "muted", "None. A click on the timeline or in the table shows a record here with all it holds."));
      return;
    }
    const args = this.model.args(row);
    this.body.replaceChildren(
      element("div", "detail-text", this.model.text(row) || "(no text)"),
      ...(args.length ? [this.argumentTable(args)] : []),
      this.factList(row),
      this.actions(row));
    this.body.scrollTop = 0;
  }

  argumentTable(args) {
    const table = element("table", "argument-table");
    const head = element("tr");
    for (const title of ["Word", "Hexadecimal", "Decimal"]) {
      const th = element("th", title === "Decimal" ? "number" : "", title);
      th.scope = "col";
      head.append(th);
    }
    const body = element("tbody");
    body.append(...args.map((word, index) => this.argumentRow(word, index)));
    const top = element("thead");
    top.append(head);
    table.append(top, body);
    return table;
  }

  argumentRow(word, index) {
    const row = element("tr");
    const value = /^0x[0-9a-f]{1,16}$/i.test(word) ? BigInt(word).toString() : "";
    row.append(element("td", "", index + 1), element("td", "", word), element("td", "number", value));
    return row;
  }

  factList(row) {
    const {model} = this;
    const list = element("dl", "facts");
    const add = (key, value, className) => {
      if (value) {
        list.append(element("dt", "", key), element("dd", className, value));
      }
    };
    add("Time", model.hasTime(row) ? model.clock.full(model.times[row]) : "not known", "mono");
    add("Certainty", model.hasTime(row) ? SURE_WORDS[model.sure[row]] : "");
    add("To the crash", this.crashDistance(row));
    add("Level", model.levelName(row), `l-${model.paintName(row)}`);
    add("Name", model.nameOf(row));
    add("Thread", model.threadFull(model.thread[row]));
    add("Source", model.sourceName(row));
    add("Record", `${formatCount(row + 1)} of ${formatCount(model.count)}`);
    return list;
  }

  crashDistance(row) {
    const {model} = this;
    if (model.crash === null || !model.hasTime(row)) {
      return "";
    }
    const distance = model.times[row] - model.crash;
    return distance === 0 ? "at its moment" : `${formatDuration(distance)} ${distance < 0 ? "before" : "after"} it`;
  }

  actions(row) {
    const {model} = this;
    const node = element("div", "actions");
    if (model.hasTime(row)) {
      node.append(this.button("Zoom to it", () => this.onCentre(row)));
    }
    if (model.thread[row] >= 0) {
      node.append(this.button("Only this thread", () => this.onThread(model.thread[row])));
    }
    return node;
  }

  button(text, action) {
    const node = element("button", "", text);
    node.type = "button";
    node.addEventListener("click", action);
    return node;
  }
}
