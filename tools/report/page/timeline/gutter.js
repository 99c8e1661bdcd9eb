// The lanes' labels to the left of the plot.
import {KIND_NAMES} from "../model/kinds.js";
import {drawLabel, fillBox} from "./canvas.js";
import {LANE_PAD, SUBROW_HEIGHT} from "./lanes.js";
import {AXIS_HEIGHT} from "./scene.js";

const LEFT = 10;
// If the gutter is narrower than this, the names of the kinds are left out.
const ROOM_FOR_KINDS = 120;

function drawThread(context, scene, lane) {
  const {colours} = scene;
  const {gutter} = scene.view;
  const room = gutter - 22 - (gutter > ROOM_FOR_KINDS ? 34 : 0);
  const y = scene.y(lane.top) + LANE_PAD + SUBROW_HEIGHT / 2;
  context.textAlign = "left";
  drawLabel(context, lane.label, {font: `600 12.5px ${colours.sans}`, colour: colours.text, x: LEFT, y, room});
  if (lane.id && lane.subRows.length > 1) {
    const font = `11px ${colours.mono}`;
    drawLabel(context, lane.id, {font, colour: colours.muted, x: LEFT, y: y + SUBROW_HEIGHT, room});
  }
}

function drawKinds(context, scene, lane) {
  const {colours} = scene;
  const x = scene.view.gutter - 14;
  const font = `11px ${colours.sans}`;
  context.textAlign = "right";
  for (const subRow of lane.subRows) {
    const y = scene.y(subRow.top) + SUBROW_HEIGHT / 2;
    drawLabel(context, KIND_NAMES[subRow.kind], {font, colour: colours.muted, x, y, room: 40});
  }
}

function drawLaneLabel(context, scene, lane, isRaised) {
  const {colours} = scene;
  const width = scene.view.gutter - 8;
  const top = scene.y(lane.top);
  if (isRaised) {
    fillBox(context, colours.raised, 0, top, width, lane.height);
  }
  fillBox(context, colours.soft, 0, Math.round(top + lane.height) - 1, width, 1);
  drawThread(context, scene, lane);
  if (scene.view.gutter > ROOM_FOR_KINDS) {
    drawKinds(context, scene, lane);
  }
}

// The name of a process above its lanes, across the whole picture.
function drawGroup(context, scene, group) {
  const {colours} = scene;
  const top = scene.y(group.top);
  fillBox(context, colours.line, 0, top, scene.view.width, group.height);
  context.textAlign = "left";
  drawLabel(context, group.label, {font: `600 12px ${colours.sans}`, colour: colours.text, x: LEFT,
    y: top + group.height / 2, room: scene.view.width - 2 * LEFT});
}

export function drawGutter(context, scene) {
  const {colours} = scene;
  const {gutter, height} = scene.view;
  fillBox(context, colours.surface, 0, AXIS_HEIGHT, gutter - 8, height);
  fillBox(context, colours.line, gutter - 8, 0, 1, height);
  context.textBaseline = "middle";
  scene.lanes.list.forEach((lane, index) => {
    if (scene.isOnScreen(lane)) {
      drawLaneLabel(context, scene, lane, index % 2 === 1);
    }
  });
  scene.lanes.groups.filter((group) => scene.isOnScreen(group)).forEach((group) => drawGroup(context, scene, group));
}
