// The three tables beside each other: names, versions, facts of the machines. A click on a row filters the page.
import { count, el, empty, fill, find, table, valueText } from "./dom.js";
import { ask, change } from "./state.js";

/** A panel with a search field over its rows. `draw(rows)` makes the table. */
function searched(place, title, total, rows, textOf, draw) {
  const body = el("div", { class: "scroll", tabindex: "0" });
  const search = el("input", { type: "search", placeholder: "Search", "aria-label": `Search ${title}` });
  const show = () => {
    const wanted = search.value.toLowerCase();
    const some = rows.filter((row) => textOf(row).toLowerCase().includes(wanted));
    fill(body, some.length ? draw(some) : empty(rows.length ? "No row has this text." : "Nothing in this period."));
  };
  search.addEventListener("input", show);
  show();
  fill(place, el("h2", {}, title, el("span", { class: "total" }, count(total))), el("div", { class: "tools" }, search), body);
}

const events = { title: "Events", field: "events", number: true, cell: (row) => row.events };
const installations = { title: "Installations", field: "installations", number: true, cell: (row) => row.installations };

const filterButton = (text, changes) => el("button", { type: "button", onclick: () => change(changes) }, text);

export async function showNames() {
  const { total, rows } = await ask("names");
  const nameOf = (row) => row.name ?? "null";
  searched(find("names"), "Event names", total, rows, nameOf, (some) => table({
    panel: "names", caption: "Event names", heading: "Name", rows: some, weight: (row) => row.events,
    columns: [events, installations],
    head: (row) => (row.name === null ? "null" : filterButton(row.name, { name: row.name })) }));
}

export async function showVersions() {
  const { total, rows } = await ask("versions");
  searched(find("versions"), "Versions", total, rows, (row) => `${row.application} ${row.version}`, (some) => table({
    panel: "versions", caption: "Versions", heading: "Application and version", rows: some, weight: (row) => row.events,
    columns: [events, installations],
    head: (row) => filterButton(`${row.application} ${row.version}`, { application: row.application, version: row.version }) }));
}

let chosenFact = null;

export async function showFacts() {
  const { rows } = await ask("facts", { limit: 10000 });
  const facts = [...new Set(rows.map((row) => row.fact))].sort();
  if (!facts.includes(chosenFact)) chosenFact = facts[0] ?? null;
  const place = find("facts");
  const body = el("div", { class: "scroll", tabindex: "0" });
  const draw = () => fill(body, chosenFact === null ? empty("No facts of the machines in this period.") : table({
    panel: "facts", caption: `Values of ${chosenFact}`, heading: chosenFact,
    rows: rows.filter((row) => row.fact === chosenFact), weight: (row) => row.events,
    columns: [events, installations], head: (row) => valueText(row.value) }));
  const tabs = facts.map((fact) => el("button", { type: "button", "aria-pressed": String(fact === chosenFact),
    onclick: () => { chosenFact = fact; showFacts(); } }, fact));
  draw();
  fill(place, el("h2", {}, "Machine facts"), el("div", { class: "tools" }, tabs), body);
}
