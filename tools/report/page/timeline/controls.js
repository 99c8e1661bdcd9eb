// The timeline's buttons and keys.
import {byId, isPlainKey} from "../base/dom.js";
import {SUBROW_HEIGHT} from "./lanes.js";

// Keys and buttons have no pointer: they zoom around the selection if it is visible.
function zoomStep({model, view, selected}, factor) {
  const t = selected >= 0 ? model.times[selected] : NaN;
  view.zoom(factor, view.contains(t) ? t : (view.from + view.to) / 2);
}

function goToCrash({model, view}) {
  view.showBefore(model.crash ?? model.last);
}

function listenButtons(scene) {
  const {model, view} = scene;
  const actions = {
    "pan-left": () => view.pan(-0.25),
    "pan-right": () => view.pan(0.25),
    "zoom-in": () => zoomStep(scene, 2),
    "zoom-out": () => zoomStep(scene, 0.5),
    "zoom-fit": () => view.fit(),
    "zoom-crash": () => goToCrash(scene),
  };
  for (const [id, action] of Object.entries(actions)) {
    byId(id).addEventListener("click", action);
  }
  byId("zoom-crash").textContent = model.crash === null ? "End" : "Crash";
  byId("help-end").textContent = model.crash === null ? "the last record" : "the crash";
  byId("zoom-crash").title = model.crash === null ? "The last record (End)" : "The moment of the crash (End)";
}

function listenKeys(scene) {
  const {host, view} = scene;
  const actions = {
    "+": () => zoomStep(scene, 2),
    "=": () => zoomStep(scene, 2),
    "-": () => zoomStep(scene, 0.5),
    ArrowLeft: () => view.pan(-0.1),
    ArrowRight: () => view.pan(0.1),
    ArrowUp: () => { host.scrollTop -= 2 * SUBROW_HEIGHT; },
    ArrowDown: () => { host.scrollTop += 2 * SUBROW_HEIGHT; },
    Home: () => view.fit(),
    End: () => goToCrash(scene),
  };
  host.addEventListener("keydown", (event) => {
    if (Object.hasOwn(actions, event.key) && isPlainKey(event)) {
      event.preventDefault();
      actions[event.key]();
    }
  });
}

export function startControls(scene) {
  listenButtons(scene);
  listenKeys(scene);
}
