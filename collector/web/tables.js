// The three tables beside each other: names, versions, facts of the machines. A click filters.
import { el, fill, numberColumn, table, valueText } from "./dom.js";
import { panel } from "./panel.js";
import { ask, change } from "./state.js";

const columns = [numberColumn("Events", "events"), numberColumn("Installations", "installations")];
const weight = (row) => row.events;
const filterButton = (text, changes) => el("button", { type: "button", title: text, onclick: () => change(changes) }, text);

const names = panel("names", "Event names", { searchable: true });
const versions = panel("versions", "Versions", { searchable: true });
const facts = panel("facts", "Machine facts", { searchable: true });

export async function showNames() {
  const { total, rows } = await ask("names");
  names.show({ view: "names", rows, totalRows: total, textOf: (row) => row.name ?? "null", make: (some) => table({
    panel: "names", caption: "Event names", heading: "Name", rows: some, columns, weight,
    head: (row) => (row.name === null ? "null" : filterButton(row.name, { name: row.name })) }) });
}

export async function showVersions() {
  const { total, rows } = await ask("versions");
  const textOf = (row) => `${row.application} ${row.version}`;
  versions.show({ view: "versions", rows, totalRows: total, textOf, make: (some) => table({
    panel: "versions", caption: "Versions", heading: "Application and version", rows: some, columns, weight,
    head: (row) => filterButton(textOf(row), { application: row.application, version: row.version }) }) });
}

let chosenFact = null;

function factButton({ fact, value }) {
  const text = valueText(value);
  return text === "(other)" ? text : filterButton(text, { fact: `${fact}:${text}` }); // stands for many values
}

export async function showFacts() {
  const { rows } = await ask("facts", { limit: 10000 });
  const known = [...new Set(rows.map((row) => row.fact))].sort();
  const draw = () => {
    if (!known.includes(chosenFact)) chosenFact = known.includes("os_name") ? "os_name" : known[0] ?? null;
    fill(facts.tools, known.map((fact) => el("button", { type: "button", "aria-pressed": String(fact === chosenFact),
      onclick: () => { chosenFact = fact; draw(); } }, fact)));
    const some = rows.filter((row) => row.fact === chosenFact);
    facts.show({ view: "facts", rows: some, totalRows: some.length, textOf: (row) => valueText(row.value),
      nothing: "No facts of the machines in this period.", make: (shown) => table({
        panel: "facts", caption: `Values of ${chosenFact}`, heading: chosenFact, rows: shown, columns, weight,
        head: factButton }) });
  };
  draw();
}
