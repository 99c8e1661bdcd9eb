// What a reader has chosen, as the fragment of the page's address.

// By what each may be; anything else is left out.
const TEXT = (value) => (value.length > 0 && value.length <= 1000 ? value : undefined);
const NUMBER = (value) => (/^-?\d{1,18}$/.test(value) ? Number(value) : undefined);
const KEYS = {
  q: TEXT, source: TEXT, level: TEXT, thread: TEXT, name: TEXT, boot: TEXT, process: TEXT, visible: TEXT,
  from: NUMBER, to: NUMBER, lanes: NUMBER, top: NUMBER, row: NUMBER,
};

export function readFragment(text) {
  const parameters = new URLSearchParams(text.replace(/^#/, ""));
  const state = {};
  for (const [key, check] of Object.entries(KEYS)) {
    const value = check(parameters.get(key) ?? "");
    if (value !== undefined) {
      state[key] = value;
    }
  }
  return state;
}

// "#level=ERROR&top=12"; empty where nothing is chosen.
export function writeFragment(state) {
  const parameters = new URLSearchParams();
  for (const key of Object.keys(KEYS).filter((each) => state[each] !== undefined)) {
    parameters.set(key, String(state[key]));
  }
  const text = parameters.toString();
  return text ? `#${text}` : "";
}
