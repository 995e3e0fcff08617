// What comes in now.
import { count, el, empty, fill, find } from "./dom.js";
import { filters } from "./state.js";

const shown = 100;
let source = null;
let address = null;
let paused = false;
let held = [];
let arrived = [];

const list = el("div", { class: "scroll", tabindex: "0", role: "region", "aria-label": "Live events", "data-panel": "live-events" });
const pauseButton = el("button", { type: "button", title: "Space", "aria-pressed": "false", onclick: togglePause }, "Pause");
const json = el("a", { target: "_blank", title: "The stream itself" }, "Stream");
fill(find("live"), el("h2", {}, el("span", {}, "Live"), el("span", { class: "spread" }), pauseButton, json), list);

const eventLine = (event) => el("div", { class: "event" }, el("span", { class: "moment" }, event.logged_at), " ",
  el("b", {}, event.name ?? "null"), " ", el("span", { class: "quiet" }, `${event.application} ${event.version}`), " ",
  el("code", {}, JSON.stringify(event.event)));

function add(events) {
  if (events.length) list.querySelector(".empty")?.remove();
  for (const event of events) list.prepend(eventLine(event));
  while (list.childElementCount > shown) list.lastElementChild.remove();
}

function label() {
  pauseButton.textContent = paused ? `Go on (${count(held.length)} wait)` : "Pause";
  pauseButton.setAttribute("aria-pressed", String(paused));
}

export function togglePause() {
  paused = !paused;
  if (!paused) add(held.splice(0));
  label();
}

function take(event) {
  arrived.push(Date.now());
  if (!paused) return add([event]);
  held = [...held, event].slice(-shown);
  label();
}

function rate() {
  arrived = arrived.filter((at) => Date.now() - at < 60000);
  find("live-rate").textContent = `${count(arrived.length)} a minute`;
}
setInterval(rate, 2000);

/** Follows the filters of the address; the stream goes on while they stay. */
export function showLive() {
  const next = `/api/live?${new URLSearchParams(filters())}`;
  if (next === address) return;
  address = json.href = next;
  source?.close();
  held = [];
  fill(list, empty("Events appear here as they are stored."));
  source = new EventSource(next);
  source.onopen = () => document.querySelector(".dot").classList.add("on");
  source.onerror = () => document.querySelector(".dot").classList.remove("on");
  source.onmessage = ({ data }) => take(JSON.parse(data));
}
// A page that is being left holds its place at the collector no longer than it must.
addEventListener("pagehide", () => source?.close());
