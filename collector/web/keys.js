// Application, period, chips, keyboard: how the page is steered.
import { el, fill, find } from "./dom.js";
import { ask, change, chosen, clearFilters, filters, period, query, redraw, setPeriod } from "./state.js";
import { togglePause } from "./live.js";

const hour = 3600, day = 24 * hour;
const now = () => Math.ceil(Date.now() / 1000 / hour) * hour;
const presets = [["24 h", day], ["7 d", 7 * day], ["30 d", 30 * day], ["90 d", 90 * day]];

const last = (length) => setPeriod(now() - length, now());
const today = () => setPeriod(Math.floor((now() - hour) / day) * day, now());
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
  ["Left, Right", "the period before, after"], ["X", "compare with the period before"], ["/", "search the names"],
  ["Space", "pause the live stream"], ["Esc", "clear the filters"], ["?", "this list"]];

function showHelp() {
  const dialog = find("dialog");
  fill(dialog, el("h2", {}, "Keys"), el("table", {}, el("caption", {}, "Keys"), el("tbody", {}, helpRows.map(([key, what]) =>
    el("tr", {}, el("th", { scope: "row" }, el("kbd", {}, key)), el("td", {}, what))))),
    el("p", { class: "quiet" }, "Drawing a stretch of the chart with the pointer makes it the period."),
    el("button", { type: "button", onclick: () => dialog.close() }, "Close"));
  dialog.showModal();
}

const toLive = () => find("live").scrollIntoView({ behavior: "smooth" });
const toSearch = () => document.querySelector("#names input[type=search]").focus();

const actions = {
  d: today, w: () => last(7 * day), t: () => last(30 * day), m: thisMonth, r: toLive,
  arrowleft: () => move(-1), arrowright: () => move(1), x: () => change({ compare: chosen("compare") === "1" ? null : "1" }),
  "/": toSearch, " ": togglePause, "?": showHelp, escape: clearFilters,
};

// Keys belong to what has the focus first: a field takes letters, a button takes Space, a panel that scrolls the arrows.
function isTaken({ key, target }) {
  if (["INPUT", "SELECT", "TEXTAREA"].includes(target.tagName)) {
    if (key === "Escape") target.blur();
    return true;
  }
  return (key === " " && ["BUTTON", "A", "SUMMARY"].includes(target.tagName)) ||
    (key.startsWith("Arrow") && target.scrollWidth > target.clientWidth && target.classList.contains("scroll"));
}

addEventListener("keydown", (event) => {
  if (event.ctrlKey || event.metaKey || event.altKey || find("dialog").open || isTaken(event)) return;
  const action = actions[event.key.toLowerCase()];
  if (!action) return;
  event.preventDefault();
  action();
});

function dateField(label, at, take) {
  return el("input", { type: "date", "aria-label": label, title: label, value: new Date(at * 1000).toISOString().slice(0, 10),
    onchange: (event) => event.target.value && take(Date.parse(event.target.value + "T00:00:00Z") / 1000) });
}

function showPeriods() {
  const { from, to, open } = period();
  const isNow = to >= now();
  fill(find("periods"),
    el("button", { type: "button", title: "The period before (Left)", "aria-label": "The period before", onclick: () => move(-1) }, "‹"),
    el("button", { type: "button", title: "The period after (Right)", "aria-label": "The period after", disabled: isNow,
      onclick: () => move(1) }, "›"),
    presets.map(([title, length]) => el("button", { type: "button", "aria-pressed": String(open && to - from === length),
      onclick: () => last(length) }, title)),
    dateField("First day (UTC)", from, (first) => setPeriod(first, Math.max(to, first + day))),
    dateField("Last day (UTC)", to - 1, (first) => setPeriod(Math.min(from, first), first + day)));
  find("export-csv").href = `/api/export?${query({ format: "csv" })}`;
  find("export-jsonl").href = `/api/export?${query({ format: "jsonl" })}`;
}

function showChips() {
  const chip = (text, title, onclick, word) => el("button", { type: "button", class: "chip", "data-chip": word, title, onclick }, text);
  const chips = filters().map(([word, value]) =>
    chip([`${word}: `, el("span", {}, value), " ×"], "Take this filter away", () => change({ [word]: null }), word));
  fill(find("chips"), chips, chips.length > 1 ? chip("Clear all (Esc)", "Take all filters away", clearFilters) : null);
}

async function showApplications() {
  const { rows } = await ask("versions", { application: null, version: null, name: null, installation: null, fact: null, limit: 10000 });
  const current = chosen("application");
  const applications = [...new Set([...rows.map((row) => row.application), ...(current === null ? [] : [current])])].sort();
  const select = find("application");
  select.hidden = applications.length < 2;
  if (document.activeElement === select) return; // it may be open
  fill(select, el("option", { value: "" }, "All applications"), applications.map((application) =>
    el("option", { value: application, selected: application === current }, application)));
}

export function showSteering() {
  showPeriods();
  showChips();
  return showApplications();
}

function switchTheme() {
  const root = document.documentElement;
  const dark = root.dataset.theme ? root.dataset.theme === "dark" : matchMedia("(prefers-color-scheme: dark)").matches;
  root.dataset.theme = dark ? "light" : "dark";
  localStorage.setItem("theme", root.dataset.theme);
  redraw();
}

export function steer() {
  find("help").addEventListener("click", showHelp);
  find("live-dot").addEventListener("click", toLive);
  find("theme").addEventListener("click", switchTheme);
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", redraw);
  find("application").addEventListener("change", ({ target }) => {
    target.blur();
    change({ application: target.selectedIndex === 0 ? null : target.value, version: null });
  });
}
