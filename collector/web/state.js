// What the page shows: kept in its address alone, so that a link shows the same to another person.
import { iso, seconds } from "./dom.js";

const filterWords = ["application", "version", "name", "installation", "fact"];
const hour = 3600;
const week = 7 * 24 * hour;
const longest = 3660 * 24 * hour; // ten years: a mistyped date must not draw a million days
const longestOfHours = 100 * 24 * hour;

const listeners = [];
export const onChange = (listener) => listeners.push(listener);
/** Draws everything anew, as after a change of colours. */
export const redraw = () => listeners.forEach((listener) => listener());
addEventListener("popstate", redraw);

const words = () => new URLSearchParams(location.search);

function put(into, further) {
  for (const [word, value] of Object.entries(further)) {
    into.delete(word);
    for (const one of [].concat(value ?? [])) into.append(word, one);
  }
  return into;
}

/** Changes words of the address (null takes one out) and shows what they say. */
export function change(changes) {
  const text = put(words(), changes).toString();
  history.pushState(null, "", text ? `/?${text}` : "/");
  redraw();
}

export const filters = () => filterWords.filter((word) => words().has(word)).map((word) => [word, words().get(word)]);
export const clearFilters = () => change(Object.fromEntries(filterWords.map((word) => [word, null])));
export const chosen = (word) => words().get(word);
export const all = (word) => words().getAll(word);

/** A word of the address as seconds; null when it is missing or no time. */
function time(word) {
  const at = words().has(word) ? seconds(words().get(word)) : NaN;
  return Number.isFinite(at) ? at : null;
}

/** The period in seconds, whole hours as the API counts them; `open` when it ends now. */
export function period() {
  const open = time("to") === null;
  const to = Math.ceil((time("to") ?? Date.now() / 1000) / hour) * hour;
  const from = time("from") === null ? to - week : Math.floor(time("from") / hour) * hour;
  return { from: Math.max(Math.min(from, to - hour), to - longest), to, open };
}

export function setPeriod(from, to) {
  const now = Math.ceil(Date.now() / 1000 / hour) * hour;
  change({ from: iso(from), to: to >= now ? null : iso(to) });
}

/** The query of an API address: the period, `shift` seconds earlier, and the filters, with further words. */
export function query(further = {}, shift = 0) {
  const { from, to } = period();
  const next = new URLSearchParams({ from: iso(from - shift), to: iso(to - shift) });
  return put(put(next, Object.fromEntries(filters())), further).toString();
}

export const apiAddress = (name, further, shift) => `/api/${name}?${query(further, shift)}`;

/** The step of the chart: as chosen, else hours for up to eight days; days for what is too long for hours. */
export function step() {
  const { from, to } = period();
  if (to - from > longestOfHours) return "day";
  return ["hour", "day"].includes(chosen("step")) ? chosen("step") : to - from <= 8 * 24 * hour ? "hour" : "day";
}

/** Where the steps of the period begin, in seconds. */
export function steps({ from, to } = period()) {
  const width = { hour: 3600, day: 86400 }[step()];
  const first = Math.floor(from / width) * width;
  return Array.from({ length: Math.ceil((to - first) / width) }, (_, i) => first + i * width);
}

// One round of questions at a time: those of an older address are given up, so that their answers, coming late, are not
// drawn over the newer ones.
let round = new AbortController();
export function beginRound() {
  round.abort();
  round = new AbortController();
  missing.clear();
  return round.signal;
}

/** What the figures of this round lack: a sentence for each part of the store that did not answer. */
export const missing = new Set();

/** Asks the API; throws an Error with the answer's sentence. */
export async function ask(name, further, shift) {
  const { signal } = round;
  const answer = await fetch(apiAddress(name, further, shift), { signal });
  if (answer.status === 401) location.assign("/login");
  if (!answer.ok) throw new Error((await answer.json().catch(() => ({}))).error ?? `the collector answered ${answer.status}`);
  const given = await answer.json();
  signal.throwIfAborted();
  for (const part of given.partial ?? []) missing.add(part);
  return given;
}
