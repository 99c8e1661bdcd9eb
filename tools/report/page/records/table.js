import {byId, frameRunner, isPlainKey} from "../base/dom.js";
import {formatCount, plural} from "../base/numbers.js";
import {lowerBound} from "../base/sorted.js";
import {RecordFilter} from "./filter.js";
import {RecordLine} from "./line.js";
import {ROW_HEIGHT, Scroller} from "./scroller.js";

const OVERSCAN = 6;
const CHARACTER_WIDTH = 7.4;
// A search lets the page draw after so many milliseconds.
const SEARCH_SLICE = 30;

// All records that match; only those on the screen are in the document.
export class RecordTable {
  constructor(model) {
    this.model = model;
    this.filter = new RecordFilter(model);
    this.grid = byId("grid");
    this.scroller = new Scroller(this.grid, byId("grid-space"), byId("grid-rows"));
    this.lines = [];
    this.selected = -1;
    this.timer = 0;
    this.whenFound = null;
    this.onSelect = () => {};
    this.onFilter = () => {};
    this.onMove = () => {};
    this.drawLater = frameRunner(() => this.draw());
    this.filterLater = frameRunner(() => this.applyFilter());
    this.setTimeWidth();
    this.listen();
  }

  start() {
    this.setState({}, -1);
  }

  // Whether all that matches has been found.
  get isSettled() {
    return this.filter.isDone;
  }

  // What is chosen, and where the list stands.
  state() {
    const {shown, shownCount} = this.filter;
    const first = shownCount > 0 ? shown[Math.min(shownCount - 1, this.scroller.firstRow)] : 0;
    return {...this.filter.state(), top: first + 1};
  }

  setState(state, row) {
    this.filter.setState(state);
    this.selected = row;
    this.applyFilter(() => {
      if (state.top > 0 && state.top <= this.model.count) {
        this.scroller.showFirst(this.positionOf(state.top - 1));
      } else if (row >= 0) {
        this.reveal(row);
      } else {
        this.scrollToCrash();
      }
    });
  }

  // Among what is shown; where it would be if it is hidden.
  positionOf(row) {
    return lowerBound(this.filter.shown, this.filter.shownCount, row);
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
    const moved = () => {
      this.drawLater();
      this.onMove();
    };
    this.grid.addEventListener("scroll", moved);
    this.scroller.onWheel = moved;
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
    const page = Math.max(1, Math.floor(this.scroller.room / ROW_HEIGHT) - 1);
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
    let position = Math.min(shownCount - 1, this.scroller.firstRow);
    if (this.selected >= 0) {
      const at = this.positionOf(this.selected);
      const hidden = shown[at] !== this.selected;
      position = at + by - (hidden && by > 0 ? 1 : 0);
    } else if (!Number.isFinite(by)) {
      position = by;
    }
    this.choose(shown[Math.max(0, Math.min(shownCount - 1, position))]);
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
    const position = this.positionOf(row);
    if (position < this.filter.shownCount && this.filter.shown[position] === row) {
      this.scroller.reveal(position);
    }
  }

  // A reader wants to see what happened last before the crash.
  scrollToCrash() {
    const {crashRow} = this.model;
    if (crashRow !== null) {
      this.scroller.showBefore(this.positionOf(crashRow) + 1);
    }
  }

  // `whenFound` is called once the search is done.
  applyFilter(whenFound = () => this.revealSelected()) {
    clearTimeout(this.timer);
    this.whenFound = whenFound;
    this.filter.apply();
    this.goOn();
  }

  revealSelected() {
    if (this.selected >= 0) {
      this.reveal(this.selected);
    }
  }

  goOn() {
    const {filter} = this;
    filter.searchFor(SEARCH_SLICE);
    this.showCount();
    this.scroller.setCount(filter.shownCount);
    this.grid.setAttribute("aria-rowcount", String(filter.shownCount + 1));
    if (filter.isDone) {
      this.onFilter(filter.matches, filter.isFiltered);
      this.whenFound();
    } else {
      this.timer = setTimeout(() => this.goOn(), 0);
    }
    this.draw();
  }

  showCount() {
    const {shownCount, isFiltered, isTimeOnly, isDone, progress} = this.filter;
    const total = plural(this.model.count, "record");
    const count = byId("count");
    const soFar = isDone ? "" : `, ${Math.floor(progress * 100)} % searched`;
    count.textContent = isFiltered || isTimeOnly ? `${formatCount(shownCount)} of ${total} match${soFar}` : total;
    count.dataset.matches = isDone ? String(shownCount) : "";
    byId("grid-empty").hidden = shownCount > 0 || !isDone;
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
      this.scroller.holder.append(line.node);
    }
  }

  draw() {
    const {shown, shownCount, needle} = this.filter;
    const first = Math.max(0, Math.floor(this.scroller.top / ROW_HEIGHT) - OVERSCAN);
    const room = Math.ceil(this.scroller.room / ROW_HEIGHT) + 1 + 2 * OVERSCAN;
    const count = Math.max(0, Math.min(room, shownCount - first));
    this.ensureLines(count);
    this.scroller.place(first);
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
    const {crashRow} = this.model;
    const {shown} = this.filter;
    return crashRow !== null && shown[position] > crashRow && (position === 0 || shown[position - 1] <= crashRow);
  }
}
