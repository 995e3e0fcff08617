// Periods, chips, keyboard: how the page is steered.
import { el, fill, find } from "./dom.js";
import { change, chosen, clearFilters, filters, period, query, setPeriod } from "./state.js";
import { togglePause } from "./live.js";

const hour = 3600;
const now = () => Math.ceil(Date.now() / 1000 / hour) * hour;
const presets = [["24 h", 24 * hour], ["7 d", 7 * 24 * hour], ["30 d", 30 * 24 * hour], ["90 d", 90 * 24 * hour]];

const last = (length) => setPeriod(now() - length, now());
const today = () => setPeriod(Math.floor(now() / 86400) * 86400 - (now() % 86400 === 0 ? 86400 : 0), now());
function thisMonth() {
  const date = new Date();
  setPeriod(Date.UTC(date.getUTCFullYear(), date.getUTCMonth()) / 1000, now());
}
function move(direction) {
  const { from, to } = period();
  if (direction > 0 && to >= now()) return;
  setPeriod(from + direction * (to - from), to + direction * (to - from));
}

const helpRows = [["D", "today"], ["W", "7 days"], ["T", "30 days"], ["M", "this month"], ["R", "live stream"],
  ["Left, Right", "the period before, after"], ["X", "compare with the period before"], ["/", "search"],
  ["Space", "pause the live stream"], ["Esc", "clear the filters"], ["?", "this list"]];

function showHelp() {
  const dialog = find("dialog");
  fill(dialog, el("h2", {}, "Keys"), el("table", {}, el("tbody", {}, helpRows.map(([key, what]) =>
    el("tr", {}, el("th", { scope: "row" }, el("kbd", {}, key)), el("td", {}, what))))),
    el("button", { type: "button", onclick: () => dialog.close() }, "Close"));
  dialog.showModal();
}

const toLive = () => find("live").scrollIntoView({ behavior: "smooth" });
const toSearch = () => document.querySelector("#names input[type=search]")?.focus();

const actions = {
  d: today, w: () => last(7 * 86400), t: () => last(30 * 86400), m: thisMonth, r: toLive,
  ArrowLeft: () => move(-1), ArrowRight: () => move(1),
  x: () => change({ compare: chosen("compare") === "1" ? null : "1" }),
  "/": toSearch, " ": togglePause, "?": showHelp, Escape: clearFilters,
};

// Keys belong to what has the focus first: a field takes letters, a button takes Space, a scrolled panel the arrows.
addEventListener("keydown", (event) => {
  const target = event.target;
  const typing = ["INPUT", "SELECT", "TEXTAREA"].includes(target.tagName);
  if (event.ctrlKey || event.metaKey || event.altKey || find("dialog").open) return;
  if (typing && event.key === "Escape") target.blur();
  if (typing || (event.key === " " && ["BUTTON", "A", "SUMMARY"].includes(target.tagName))) return;
  const action = actions[event.key] ?? actions[event.key.toLowerCase()];
  if (!action) return;
  event.preventDefault();
  action();
});

function dateField(label, value, take) {
  return el("input", { type: "date", "aria-label": label, value: new Date(value * 1000).toISOString().slice(0, 10),
    onchange: (event) => event.target.value && take(Date.parse(event.target.value + "T00:00:00Z") / 1000) });
}

export function showPeriods() {
  const { from, to, open } = period();
  fill(find("periods"),
    el("button", { type: "button", title: "The period before (Left)", onclick: () => move(-1) }, "<"),
    presets.map(([title, length]) => el("button", { type: "button", "aria-pressed": String(open && to - from === length),
      onclick: () => last(length) }, title)),
    dateField("First day", from, (day) => setPeriod(day, Math.max(to, day + 86400))),
    dateField("Last day", to - 1, (day) => setPeriod(Math.min(from, day), day + 86400)),
    el("button", { type: "button", title: "The period after (Right)", onclick: () => move(1) }, ">"));
  find("export-csv").href = `/api/export?${query({ format: "csv" })}`;
  find("export-jsonl").href = `/api/export?${query({ format: "jsonl" })}`;
}

export function showChips() {
  fill(find("chips"), filters().map(([word, value]) =>
    el("button", { type: "button", class: "chip", "data-chip": word, title: "Take this filter away",
      onclick: () => change({ [word]: null }) }, `${word}: ${value} ×`)));
}

export function steer() {
  find("help").addEventListener("click", showHelp);
  find("live-dot").addEventListener("click", toLive);
  find("theme").addEventListener("click", () => {
    const root = document.documentElement;
    const dark = root.dataset.theme ? root.dataset.theme === "dark" : matchMedia("(prefers-color-scheme: dark)").matches;
    root.dataset.theme = dark ? "light" : "dark";
    localStorage.setItem("theme", root.dataset.theme);
    change({});
  });
}
