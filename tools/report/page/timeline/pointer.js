const DRAG_STARTS = 4;
const REACH = 6;
const TOUCH_REACH = 14;
const LINE_OF_WHEEL = 16;
const PAGE_OF_WHEEL = 400;
// After the wheel has zoomed out to everything, it scrolls the page only after a pause of this length.
const WHEEL_PAUSE_MS = 400;

function wheelUnit(event) {
  if (event.deltaMode === WheelEvent.DOM_DELTA_LINE) {
    return LINE_OF_WHEEL;
  }
  return event.deltaMode === WheelEvent.DOM_DELTA_PAGE ? PAGE_OF_WHEEL : 1;
}

// Mouse, pen and fingers on the chart: they move and zoom the view, and point at things.
export class Pointer {
  constructor(host, chart, view) {
    this.host = host;
    this.chart = chart;
    this.view = view;
    this.pointers = new Map();
    this.pressed = null;
    this.lastWheel = 0;
    // Called with a place in pixels of the chart, and the distance from a mark that still counts.
    this.onHover = () => {};
    this.onClick = () => {};
    // Nothing is pointed at any more.
    this.onLeave = () => {};
    this.listen();
  }

  listen() {
    const {host, view} = this;
    host.addEventListener("wheel", (event) => this.wheel(event), {passive: false});
    host.addEventListener("pointerdown", (event) => this.down(event));
    host.addEventListener("pointermove", (event) => this.move(event));
    host.addEventListener("pointerup", (event) => this.up(event));
    host.addEventListener("pointercancel", (event) => this.forget(event));
    host.addEventListener("pointerleave", () => this.onLeave());
    host.addEventListener("dblclick", (event) => view.zoom(4, view.timeAt(this.place(event).x)));
  }

  place(event) {
    const box = this.chart.getBoundingClientRect();
    return {x: event.clientX - box.left, y: event.clientY - box.top};
  }

  wheel(event) {
    if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
      event.preventDefault();
      this.wheelSideways(event);
    } else if (this.takesWheel(event)) {
      event.preventDefault();
      const strength = event.ctrlKey ? 0.01 : 0.0018;
      const x = Math.max(this.view.gutter, this.place(event).x);
      this.view.zoom(Math.exp(-event.deltaY * wheelUnit(event) * strength), this.view.timeAt(x));
      this.onLeave();
    }
  }

  wheelSideways(event) {
    const by = event.shiftKey ? event.deltaY || event.deltaX : event.deltaX;
    this.view.pan((by * wheelUnit(event)) / this.view.plot);
  }

  // If everything is on the screen, there is nothing to zoom out to, and the page may scroll.
  takesWheel(event) {
    const isAtEnd = event.deltaY > 0 && this.view.span >= this.view.full.span;
    if (!isAtEnd) {
      this.lastWheel = event.timeStamp;
    }
    return event.timeStamp - this.lastWheel <= WHEEL_PAUSE_MS;
  }

  down(event) {
    // The scroll bar is not part of the chart.
    if (event.button !== 0 || event.offsetX > this.view.width) {
      return;
    }
    const at = this.place(event);
    this.pointers.set(event.pointerId, at);
    this.pressed = this.pointers.size === 1 ? {...at, moved: false} : null;
    this.host.setPointerCapture(event.pointerId);
  }

  move(event) {
    const at = this.place(event);
    const before = this.pointers.get(event.pointerId);
    if (!before) {
      this.hover(event, at);
      return;
    }
    if (this.pointers.size === 2) {
      this.pinch(event.pointerId, before, at);
    } else {
      this.drag(event, before, at);
    }
    this.pointers.set(event.pointerId, at);
  }

  drag(event, before, at) {
    if (this.pressed && !this.pressed.moved) {
      if (Math.hypot(at.x - this.pressed.x, at.y - this.pressed.y) < DRAG_STARTS) {
        return;
      }
      this.pressed.moved = true;
      this.host.classList.add("dragging");
      this.onLeave();
    }
    this.view.pan((before.x - at.x) / this.view.plot);
    if (event.pointerType === "mouse") {
      this.host.scrollTop += before.y - at.y;
    }
  }

  pinch(moving, before, at) {
    const [, other] = [...this.pointers].find(([id]) => id !== moving);
    const apart = (place) => Math.max(20, Math.abs(place.x - other.x));
    this.view.zoom(apart(at) / apart(before), this.view.timeAt((at.x + other.x) / 2));
  }

  up(event) {
    const press = this.pressed;
    this.forget(event);
    if (press && !press.moved) {
      const at = this.place(event);
      this.onClick(at, event.pointerType === "touch" ? TOUCH_REACH : REACH);
      this.hover(event, at);
    }
  }

  // A finger covers what it points at.
  hover(event, at) {
    if (event.pointerType === "touch") {
      this.onLeave();
    } else {
      this.onHover(at, REACH, event);
    }
  }

  forget(event) {
    this.pointers.delete(event.pointerId);
    this.pressed = null;
    this.host.classList.remove("dragging");
  }
}
