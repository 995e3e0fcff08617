// What comes in now, what was refused, and how the collector itself is.
import { count, el, empty, fill, find, moment, size, table } from "./dom.js";
import { ask, filters } from "./state.js";
import { eventLine } from "./people.js";

const shown = 100;
let source = null;
let paused = false;
let held = [];
let arrived = [];

const list = el("div", { class: "scroll", tabindex: "0", "aria-live": "off", "data-panel": "live-events" });
const pauseButton = el("button", { type: "button", title: "Space", onclick: togglePause }, "Pause");

function add(events) {
  for (const event of events) list.prepend(eventLine(event));
  while (list.childElementCount > shown) list.lastElementChild.remove();
}

export function togglePause() {
  paused = !paused;
  pauseButton.textContent = paused ? "Go on" : "Pause";
  if (!paused) add(held.splice(0));
}

function rate() {
  const now = Date.now();
  arrived = arrived.filter((at) => now - at < 60000);
  find("live-rate").textContent = `${count(arrived.length)} a minute`;
}
setInterval(rate, 2000);

export function showLive() {
  source?.close();
  fill(list, empty("Events appear here as they are stored."));
  source = new EventSource(`/api/live?${new URLSearchParams(filters())}`);
  source.onopen = () => document.querySelector(".dot").classList.add("on");
  source.onerror = () => document.querySelector(".dot").classList.remove("on");
  source.onmessage = ({ data }) => {
    const event = JSON.parse(data);
    arrived.push(Date.now());
    list.querySelector(".empty")?.remove();
    if (paused) held = [...held, event].slice(-shown);
    else add([event]);
  };
  fill(find("live"), el("h2", {}, "Live"), el("div", { class: "tools" }, pauseButton), list);
}

export async function showRejects() {
  const { total, rows } = await ask("rejects");
  fill(find("rejects"), el("h2", {}, "Rejected lines", el("span", { class: "total" }, count(total))),
    rows.length === 0 ? empty("Every line was an event.") : el("div", { class: "scroll", tabindex: "0" }, table({
      panel: "rejects", caption: "Rejected lines", heading: "Received (UTC)", rows, head: (row) => moment(row.received_at),
      columns: [{ title: "Reason", cell: (row) => row.reason }, { title: "Installation", cell: (row) => row.installation },
        { title: "Line", cell: (row) => row.line }] })));
}

export async function showHealth() {
  const health = await ask("health");
  const facts = [`${count(health.events)} events`, `${count(health.installations)} installations`,
    `${size(health.bytes)} on disk`,
    `last upload ${health.last_received_at ? moment(health.last_received_at) + " UTC" : "none yet"}`,
    health.writer ? `${count(health.writer.queued)} uploads wait` : null,
    health.count_differs ? `${count(health.count_differs)} uploads counted their lines wrongly` : null,
    `analytics-collector ${health.version}`, "all times UTC"];
  fill(find("health"), facts.filter(Boolean).map((fact) => el("span", {}, fact)),
    health.writer?.fault ? el("span", { class: "bad" }, health.writer.fault) : null);
}
