// Light or dark: as the system is set until the reader chooses, and always light on paper.
import {byId} from "./base/dom.js";

function applyTheme(theme) {
  document.documentElement.dataset.theme = theme;
  const button = byId("theme");
  button.textContent = theme === "dark" ? "Light" : "Dark";
  button.setAttribute("aria-pressed", String(theme === "dark"));
  button.setAttribute("aria-label", theme === "dark" ? "Dark colours are on" : "Dark colours are off");
  document.dispatchEvent(new Event("themechange"));
}

// Paper is light, and a folded list cannot be opened on it.
function startPrinting() {
  let theme = null;
  let closed = [];
  addEventListener("beforeprint", () => {
    theme = document.documentElement.dataset.theme;
    applyTheme("light");
    closed = [...document.querySelectorAll("details:not([open])")];
    closed.forEach((node) => { node.open = true; });
  });
  addEventListener("afterprint", () => {
    applyTheme(theme);
    closed.forEach((node) => { node.open = false; });
  });
}

export function startTheme() {
  const system = matchMedia("(prefers-color-scheme: dark)");
  let isChosen = false;
  applyTheme(system.matches ? "dark" : "light");
  system.addEventListener("change", () => {
    if (!isChosen) {
      applyTheme(system.matches ? "dark" : "light");
    }
  });
  byId("theme").addEventListener("click", () => {
    isChosen = true;
    applyTheme(document.documentElement.dataset.theme === "dark" ? "light" : "dark");
  });
  startPrinting();
}
