import {byId, frameRunner} from "../base/dom.js";
import {NS_PER_MS, NS_PER_S, formatDuration} from "../base/numbers.js";
import {Chart} from "./chart.js";
import {startControls} from "./controls.js";
import {SUBROW_HEIGHT} from "./lanes.js";
import {fillLegend} from "./legend.js";
import {Overview} from "./overview.js";
import {pick} from "./pick.js";
import {Pointer} from "./pointer.js";
import {AXIS_HEIGHT, Scene} from "./scene.js";
import {Tip} from "./tip.js";

const FEWEST_SUBROWS = 3;

function digitsFor(span) {
  if (span > 100 * NS_PER_S) {
    return 0;
  }
  if (span > NS_PER_S) {
    return 3;
  }
  return span > NS_PER_MS ? 6 : 9;
}

function showRange(model, view) {
  const range = byId("range");
  const ends = model.clock.range(view.from, view.to, digitsFor(view.span)).join(" – ");
  range.textContent = model.timed ? `${ends}  (${formatDuration(view.span)})` : "";
  range.dataset.from = String(view.from);
  range.dataset.to = String(view.to);
}

// All records with a time, a lane for each thread.
export class Timeline {
  constructor(model) {
    this.model = model;
    this.host = byId("lanes");
    this.scene = new Scene(model, this.host);
    this.view = this.scene.view;
    this.chart = new Chart(byId("chart"));
    this.overview = new Overview(byId("overview"), this.scene);
    this.tip = new Tip(byId("tip"), model);
    this.onSelect = () => {};
    this.onView = () => {};
    this.drawLater = frameRunner(() => this.draw());
    this.view.onChange = () => this.showView();
  }

  start() {
    this.layout();
    fillLegend(byId("legend"), this.model);
    this.listenToPointer();
    startControls(this.scene);
    this.listen();
    this.view.fit();
    this.draw();
  }

  state() {
    const {full, from, to} = this.view;
    const isWhole = from === full.from && to === full.to;
    const range = isWhole ? {} : {from: Math.round(from), to: Math.round(to)};
    const row = this.scene.selected >= 0 ? {row: this.scene.selected + 1} : {};
    return {...range, ...row, lanes: Math.round(this.host.scrollTop)};
  }

  setState({from, to, lanes}, row) {
    const isRange = from < to;
    if (isRange) {
      this.view.set(from, to);
    } else {
      this.view.fit();
    }
    this.setSelected(row, !isRange);
    this.host.scrollTop = lanes ?? this.host.scrollTop;
  }

  layout() {
    const wanted = Math.max(this.scene.lanes.height, SUBROW_HEIGHT * FEWEST_SUBROWS) + AXIS_HEIGHT;
    this.host.style.height = `${wanted + 2}px`;
    this.view.resize(this.host.clientWidth, this.host.clientHeight);
    byId("lanes-height").style.height = `${Math.max(0, wanted - this.view.height)}px`;
  }

  listen() {
    this.host.addEventListener("scroll", () => {
      this.drawLater();
      this.onView(this.view.from, this.view.to);
    });
    document.addEventListener("themechange", () => {
      this.scene.readColours();
      this.overview.forget();
      this.drawLater();
    });
    new ResizeObserver(() => {
      this.layout();
      this.drawLater();
    }).observe(this.host);
  }

  listenToPointer() {
    const pointer = new Pointer(this.host, byId("chart"), this.view);
    pointer.onHover = (at, reach, event) => this.hover(at, reach, event);
    pointer.onLeave = () => this.hideTip();
    pointer.onClick = (at, reach) => {
      const hit = pick(this.scene, at, reach);
      if (hit) {
        this.setSelected(hit.row, false);
        this.onSelect(hit.row);
      }
    };
  }

  hover(at, reach, event) {
    const hit = pick(this.scene, at, reach);
    if (hit) {
      this.host.classList.add("pointing");
      this.tip.show(hit.row, hit.others, event);
    } else {
      this.hideTip();
    }
  }

  hideTip() {
    this.tip.hide();
    this.host.classList.remove("pointing");
  }

  showView() {
    showRange(this.model, this.view);
    this.drawLater();
    this.onView(this.view.from, this.view.to);
  }

  // On paper the timeline has no size.
  draw() {
    if (this.view.width > 0) {
      this.chart.draw(this.scene);
      this.overview.draw();
    }
  }

  setMatches(matches, isFiltered) {
    this.scene.matches = matches;
    this.scene.isFiltered = isFiltered;
    this.overview.forget();
    this.drawLater();
  }

  setSelected(row, reveal) {
    this.scene.selected = row;
    if (reveal && row >= 0 && this.model.hasTime(row)) {
      const t = this.model.times[row];
      if (!this.view.contains(t)) {
        this.view.centreOn(t);
      }
      this.revealLane(row);
    }
    this.drawLater();
  }

  centre(row) {
    this.view.approach(this.model.times[row]);
    this.revealLane(row);
  }

  revealLane(row) {
    const subRow = this.scene.lanes.subRowOf(row);
    if (!subRow) {
      return;
    }
    const room = this.view.height - AXIS_HEIGHT;
    if (subRow.top < this.host.scrollTop || subRow.top + SUBROW_HEIGHT > this.host.scrollTop + room) {
      this.host.scrollTop = subRow.top - room / 2;
    }
  }
}
