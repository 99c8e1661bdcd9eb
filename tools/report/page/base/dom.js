// The document's nodes.
import {visible} from "./text.js";

export function byId(id) {
  return document.getElementById(id);
}

export function element(tag, className, text) {
  const node = document.createElement(tag);
  if (className) {
    node.className = className;
  }
  if (text !== undefined && text !== null) {
    node.textContent = visible(String(text));
  }
  return node;
}

// Key strokes that belong to the browser are left to it.
export function isPlainKey(event) {
  return !event.ctrlKey && !event.metaKey && !event.altKey;
}

// Gathers calls until the next frame.
export function frameRunner(action) {
  let pending = false;
  return () => {
    if (!pending) {
      pending = true;
      requestAnimationFrame(() => {
        pending = false;
        action();
      });
    }
  };
}
