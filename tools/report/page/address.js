// Keeps what the reader has chosen in the fragment of the page's address, so that a link shows the same picture.
import {byId} from "./base/dom.js";
import {readFragment, writeFragment} from "./base/fragment.js";

// Browsers take only so many changes of the address in a second.
const PAUSE_MS = 250;

function isEmpty(state) {
  return Object.keys(state).length === 0;
}

export class Address {
  // `read` tells what is chosen now, or null while that is not settled, and `show` shows what a fragment says.
  constructor(read, show) {
    this.read = read;
    this.show = show;
    this.initial = {};
    this.timer = 0;
  }

  start() {
    this.initial = this.read() ?? {};
    const state = readFragment(location.hash);
    if (!isEmpty(state)) {
      this.go(state);
    }
    addEventListener("hashchange", () => this.follow());
    // The links to the page's parts leave the fragment as it is.
    for (const link of document.querySelectorAll("nav a")) {
      link.addEventListener("click", (event) => {
        event.preventDefault();
        document.querySelector(link.getAttribute("href")).scrollIntoView();
      });
    }
  }

  follow() {
    const id = location.hash.slice(1);
    if (!id || !document.getElementById(id)) {
      this.go(readFragment(location.hash));
    }
  }

  go(state) {
    this.show(state);
    byId("timeline").scrollIntoView();
  }

  // To be called when something else has been chosen.
  changed() {
    clearTimeout(this.timer);
    this.timer = setTimeout(() => this.write(), PAUSE_MS);
  }

  // What stands as it did at first is left out.
  write() {
    const state = this.read();
    if (state === null) {
      return;
    }
    const chosen = Object.entries(state).filter(([key, value]) => value !== this.initial[key]);
    const fragment = writeFragment(Object.fromEntries(chosen));
    if (fragment !== location.hash) {
      history.replaceState(null, "", fragment || location.href.split("#")[0]);
    }
  }
}
