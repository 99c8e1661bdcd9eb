import {readColours} from "./canvas.js";
import {Lanes} from "./lanes.js";
import {View} from "./view.js";

export const AXIS_HEIGHT = 26;

// Everything that the timeline's pictures are made of.
export class Scene {
  constructor(model, host) {
    this.model = model;
    this.host = host;
    this.view = new View(model.first, model.last);
    this.lanes = new Lanes(model);
    this.matches = null;
    this.isFiltered = false;
    this.selected = -1;
    this.colours = readColours();
  }

  readColours() {
    this.colours = readColours();
  }

  isShown(row) {
    return !this.isFiltered || this.matches[row] === 1;
  }

  // The position on the screen of a position among the lanes.
  y(top) {
    return AXIS_HEIGHT + top - this.host.scrollTop;
  }

  isOnScreen(lane) {
    const y = this.y(lane.top);
    return y + lane.height > AXIS_HEIGHT && y < this.view.height;
  }
}
