// Where the list stands. No browser scrolls through an element as high as a million rows are, and long before that
// they lose the places of what is in it. So beyond a height that all take, a step of the scroll bar is several steps of
// the list; the wheel moves the list itself.

export const ROW_HEIGHT = 24;
const HEAD_HEIGHT = 28;
const MOST_HEIGHT = 6e6;
// How far down the last row before a moment stands.
const BEFORE = 0.7;

export class Scroller {
  constructor(grid, space, holder) {
    this.grid = grid;
    this.space = space;
    this.holder = holder;
    this.height = 0;
    this.shownHeight = 0;
    // A place of the scroll bar, and that of the list, which it tells less exactly.
    this.exact = {bar: 0, top: 0};
    this.onWheel = () => {};
    grid.addEventListener("wheel", (event) => this.wheel(event), {passive: false});
  }

  setCount(count) {
    const {top} = this;
    this.height = count * ROW_HEIGHT;
    this.shownHeight = Math.min(this.height, MOST_HEIGHT);
    this.space.style.height = `${this.shownHeight}px`;
    this.scrollTo(top);
  }

  // The height in which rows are seen.
  get room() {
    return Math.max(0, this.grid.clientHeight - HEAD_HEIGHT);
  }

  get scale() {
    const {height, room, shownHeight} = this;
    return shownHeight > room && height > shownHeight ? (height - room) / (shownHeight - room) : 1;
  }

  // The place in the whole list that is at the top of what is seen.
  get top() {
    const bar = this.grid.scrollTop;
    return bar === this.exact.bar ? this.exact.top : bar * this.scale;
  }

  // The first row of which nothing is hidden.
  get firstRow() {
    return Math.ceil(this.top / ROW_HEIGHT - 1e-3);
  }

  scrollTo(top) {
    const wanted = Math.max(0, Math.min(top, this.height - this.room));
    this.grid.scrollTop = wanted / this.scale;
    const bar = this.grid.scrollTop;
    this.exact = {bar, top: this.scale === 1 ? bar : wanted};
  }

  // A browser that moves the scroll bar would leave out rows.
  wheel(event) {
    const unit = [1, ROW_HEIGHT, this.room][event.deltaMode];
    const {top} = this;
    if (this.scale === 1 || event.ctrlKey || event.shiftKey) {
      return;
    }
    this.scrollTo(top + event.deltaY * unit);
    // At either end, the page scrolls.
    if (this.top !== top) {
      event.preventDefault();
      this.onWheel();
    }
  }

  showFirst(row) {
    this.scrollTo(row * ROW_HEIGHT);
  }

  showBefore(row) {
    this.scrollTo(Math.round(row - (this.room * BEFORE) / ROW_HEIGHT) * ROW_HEIGHT);
  }

  // Scrolls no more than needed, or else to the middle.
  reveal(row) {
    const {room, top} = this;
    const place = row * ROW_HEIGHT;
    if (place < top || place + ROW_HEIGHT > top + room) {
      const near = Math.abs(place - top - room / 2) < room;
      const edge = place < top ? place : place + ROW_HEIGHT - room;
      const middle = Math.round((place - room / 2) / ROW_HEIGHT + 0.5) * ROW_HEIGHT;
      this.scrollTo(near ? edge : middle);
    }
  }

  // Puts the lines, of which the first shows this row, where they are to be seen.
  place(row) {
    this.holder.style.transform = `translateY(${this.grid.scrollTop + row * ROW_HEIGHT - this.top}px)`;
  }
}
