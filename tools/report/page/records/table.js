import {byId, frameRunner, isPlainKey} from "../base/dom.js";
import {formatCount, plural} from "../base/numbers.js";
import {lowerBound, upperBound} from "../base/sorted.js";
import {RecordFilter} from "./filter.js";
import {RecordLine} from "./line.js";

const ROW_HEIGHT = 24;
const HEAD_HEIGHT = 28;
const OVERSCAN = 6;
const CHARACTER_WIDTH = 7.4;

function wholeRows(top) {
  return Math.round(top / ROW_HEIGHT) * ROW_HEIGHT;
}

// All records that match; only those on the screen are in the document.
export class RecordTable {
  constructor(model) {
    this.model = model;
    this.filter = new RecordFilter(model);
    this.grid = byId("grid");
    this.space = byId("grid-space");
    this.holder = byId("grid-rows");
    this.lines = [];
    this.selected = -1;
    this.onSelect = () => {};
    this.onFilter = () => {};
    this.drawLater = frameRunner(() => this.draw());
    this.filterLater = frameRunner(() => this.applyFilter());
    this.setTimeWidth();
    this.listen();
  }

  start() {
    this.applyFilter();
    this.scrollToCrash();
  }

  // As wide as the longest time with its marks.
  setTimeWidth() {
    const {clock, first, last, timed} = this.model;
    const widest = timed ? Math.max(clock.short(first).length, clock.short(last).length) : "not known".length;
    this.grid.style.setProperty("--time-width", `${Math.ceil((widest + 3) * CHARACTER_WIDTH) + 2}px`);
  }

  listen() {
    const {form} = this.filter;
    for (const name of ["input", "change", "reset"]) {
      form.addEventListener(name, () => this.filterLater());
    }
    form.addEventListener("submit", (event) => event.preventDefault());
    byId("search").addEventListener("keydown", (event) => {
      if (event.key === "Enter") {
        event.preventDefault();
        this.applyFilter();
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
    if (event.key in steps && isPlainKey(event)) {
      event.preventDefault();
      this.step(steps[event.key]);
    }
  }

  // If the filter hides the selection, steps count from where it would be.
  step(by) {
    const {shown, shownCount} = this.filter;
    if (shownCount === 0) {
      return;
    }
    let position = this.firstVisible();
    if (this.selected >= 0) {
      const at = lowerBound(shown, shownCount, this.selected);
      const hidden = shown[at] !== this.selected;
      position = at + by - (hidden && by > 0 ? 1 : 0);
    } else if (!Number.isFinite(by)) {
      position = by;
    }
    this.choose(shown[Math.max(0, Math.min(shownCount - 1, position))]);
  }

  firstVisible() {
    return Math.min(this.filter.shownCount - 1, Math.ceil(this.grid.scrollTop / ROW_HEIGHT));
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
    const {shown, shownCount} = this.filter;
    const position = lowerBound(shown, shownCount, row);
    if (position >= shownCount || shown[position] !== row) {
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

  // A reader wants to see what happened last before the crash.
  scrollToCrash() {
    const {model} = this;
    if (model.crash === null) {
      return;
    }
    const position = upperBound(model.times, model.timed, model.crash);
    this.grid.scrollTop = wholeRows(position * ROW_HEIGHT - (this.grid.clientHeight - HEAD_HEIGHT) * 0.7);
  }

  applyFilter() {
    const {filter} = this;
    filter.apply();
    this.onFilter(filter.matches, filter.isFiltered);
    this.showCount();
    this.space.style.height = `${filter.shownCount * ROW_HEIGHT}px`;
    this.grid.setAttribute("aria-rowcount", String(filter.shownCount + 1));
    if (this.selected >= 0) {
      this.reveal(this.selected);
    }
    this.draw();
  }

  showCount() {
    const {shownCount, isFiltered, isTimeOnly} = this.filter;
    const total = plural(this.model.count, "record");
    const count = byId("count");
    count.textContent = isFiltered || isTimeOnly ? `${formatCount(shownCount)} of ${total} match` : total;
    count.dataset.matches = String(shownCount);
    byId("grid-empty").hidden = shownCount > 0;
    byId("grid-empty").textContent = this.model.count > 0 ? "No records match." : "There are no records.";
  }

  setVisibleTime(from, to) {
    if (this.filter.setVisibleTime(from, to)) {
      this.filterLater();
    }
  }

  filterThread(thread) {
    this.filter.chooseThread(thread);
    this.applyFilter();
  }

  ensureLines(count) {
    while (this.lines.length < count) {
      const line = new RecordLine(this.model, this.lines.length);
      this.lines.push(line);
      this.holder.append(line.node);
    }
  }

  draw() {
    const {shown, shownCount, needle} = this.filter;
    const first = Math.max(0, Math.floor(this.grid.scrollTop / ROW_HEIGHT) - OVERSCAN);
    const room = Math.ceil(this.grid.clientHeight / ROW_HEIGHT) + 2 * OVERSCAN;
    const count = Math.max(0, Math.min(room, shownCount - first));
    this.ensureLines(count);
    this.holder.style.transform = `translateY(${first * ROW_HEIGHT}px)`;
    let active = "";
    this.lines.forEach((line, index) => {
      line.node.hidden = index >= count;
      if (index < count) {
        const row = shown[first + index];
        line.show(row, first + index, needle, row === this.selected);
        line.node.classList.toggle("after-crash", this.isFirstAfterCrash(first + index));
        active = row === this.selected ? line.node.id : active;
      }
    });
    this.setActiveLine(active);
  }

  setActiveLine(id) {
    if (id) {
      this.grid.setAttribute("aria-activedescendant", id);
    } else {
      this.grid.removeAttribute("aria-activedescendant");
    }
  }

  isFirstAfterCrash(position) {
    const {crash, times} = this.model;
    const {shown} = this.filter;
    return crash !== null && times[shown[position]] > crash && (position === 0 || times[shown[position - 1]] <= crash);
  }
}
