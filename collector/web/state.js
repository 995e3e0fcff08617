// What the page shows: kept in its address alone, so that a link shows the same to another person.
import { iso, seconds } from "./dom.js";

const filterWords = ["application", "version", "name", "installation"];
const hour = 3600;
const week = 7 * 24 * hour;

const listeners = [];
export const onChange = (listener) => listeners.push(listener);

const words = () => new URLSearchParams(location.search);

/** Changes words of the address (null takes one out) and shows what they say. */
export function change(changes) {
  const next = words();
  for (const [word, value] of Object.entries(changes)) {
    next.delete(word);
    for (const one of [].concat(value ?? [])) next.append(word, one);
  }
  const text = next.toString();
  history.pushState(null, "", text ? `/?${text}` : "/");
  listeners.forEach((listener) => listener());
}
addEventListener("popstate", () => listeners.forEach((listener) => listener()));

export const filters = () => filterWords.filter((word) => words().has(word)).map((word) => [word, words().get(word)]);
export const clearFilters = () => change(Object.fromEntries(filterWords.map((word) => [word, null])));
export const chosen = (word) => words().get(word);
export const all = (word) => words().getAll(word);

/** The period in seconds, whole hours as the API counts them; `open` when it ends now. */
export function period() {
  const open = !words().has("to");
  const to = Math.ceil((open ? Date.now() / 1000 : seconds(words().get("to"))) / hour) * hour;
  const from = words().has("from") ? Math.floor(seconds(words().get("from")) / hour) * hour : to - week;
  return { from, to, open };
}

export function setPeriod(from, to) {
  const now = Math.ceil(Date.now() / 1000 / hour) * hour;
  change({ from: iso(from), to: to >= now ? null : iso(to) });
}

/** The query of an API address: the period and the filters, with further words. */
export function query(further = {}, shift = 0) {
  const { from, to } = period();
  const next = new URLSearchParams({ from: iso(from - shift), to: iso(to - shift) });
  for (const [word, value] of filters()) next.set(word, value);
  for (const [word, value] of Object.entries(further)) {
    next.delete(word);
    for (const one of [].concat(value ?? [])) next.append(word, one);
  }
  return next.toString();
}

export const step = () => (period().to - period().from <= 8 * 24 * hour ? "hour" : "day");

/** Asks the API; throws an Error with the answer's sentence. */
export async function ask(name, further, shift) {
  const answer = await fetch(`/api/${name}?${query(further, shift)}`);
  if (answer.status === 401) location.assign("/login");
  if (!answer.ok) throw new Error((await answer.json().catch(() => ({}))).error ?? `the collector answered ${answer.status}`);
  return answer.json();
}
