// With one name chosen: the keys of its events, their values, their numbers, both over time.
import { count, el, empty, fill, find, iso, table, valueText } from "./dom.js";
import { ask, chosen, step } from "./state.js";

let chosenKey = null;

function numbersOf(numbers) {
  const figures = { smallest: numbers.min, median: numbers.median, "95 % are up to": numbers.percentile_95,
    largest: numbers.max, average: numbers.sum / numbers.count };
  const most = Math.max(1, ...numbers.histogram);
  const bars = numbers.histogram.map((height) => {
    const bar = el("i", { title: count(height) });
    bar.style.height = `${(100 * height) / most}%`;
    return bar;
  });
  return el("div", {},
    el("div", { class: "numbers" }, Object.entries(figures).map(([name, value]) =>
      el("span", {}, `${name} `, el("b", {}, String(Math.round(value * 1000) / 1000))))),
    el("div", { class: "histogram", role: "img", "aria-label": "How the numbers are distributed" }, bars));
}

function overTime(series) {
  const byTime = new Map();
  for (const row of series.rows) byTime.set(row.at, [...(byTime.get(row.at) ?? []), row]);
  const rows = [...byTime].map(([at, values]) => ({ at, values }));
  return table({ panel: "property-series", caption: "Values over time", heading: "From (UTC)", rows,
    head: (row) => row.at.slice(0, 16).replace("T", " "),
    columns: [{ title: "Values", cell: (row) => row.values.map((one) => `${valueText(one.value)}: ${count(one.events)}`).join(", ") }] });
}

async function showKey(place, rows) {
  const values = table({ panel: "property-values", caption: `Values of ${chosenKey}`, heading: "Value",
    rows: rows.filter((row) => row.key === chosenKey), weight: (row) => row.events, head: (row) => valueText(row.value),
    columns: [{ title: "Events", field: "events", number: true, cell: (row) => row.events }] });
  const details = el("details", {}, el("summary", {}, "Over time"));
  fill(place, el("div", { class: "scroll", tabindex: "0" }, values), details);
  const property = await ask("property", { key: chosenKey, step: step(), limit: 10 });
  details.append(el("div", { class: "scroll" }, overTime(property.series)));
  if (property.numbers) place.prepend(numbersOf(property.numbers));
}

export async function showProperties() {
  const place = find("properties");
  const name = chosen("name");
  place.hidden = name === null;
  if (name === null) return;
  const { rows } = await ask("properties", { limit: 10000 });
  const keys = [...new Set(rows.map((row) => row.key))];
  if (!keys.includes(chosenKey)) chosenKey = keys[0] ?? null;
  const body = el("div");
  const tabs = keys.map((key) => el("button", { type: "button", "aria-pressed": String(key === chosenKey),
    onclick: () => { chosenKey = key; showProperties(); } }, key));
  fill(place, el("h2", {}, "Properties of ", el("span", {}, name)), el("div", { class: "tools" }, tabs), body);
  if (chosenKey === null) fill(body, empty("These events have no members of their own."));
  else await showKey(body, rows);
}
