// With one name chosen: the keys of its events, their values, their numbers, both over time.
import { count, el, empty, fill, find, iso, minute, numberColumn, seconds, short, table, valueText } from "./dom.js";
import { panel } from "./panel.js";
import { draw, remove } from "./plot.js";
import { ask, change, chosen, step, steps } from "./state.js";

const properties = panel("properties", "Properties of", { searchable: true });
const lineColors = ["--accent", "--second", "--third", "--fourth", "--fifth"];

function numbersOf(numbers) {
  const figures = { min: numbers.min, median: numbers.median, "95th percentile": numbers.percentile_95, max: numbers.max,
    mean: numbers.sum / numbers.count };
  const most = Math.max(1, ...numbers.histogram);
  const width = (numbers.max - numbers.min) / numbers.histogram.length;
  const bars = numbers.histogram.map((height, i) => {
    const edge = (place) => short(numbers.min + place * width);
    const bar = el("i", { title: `${edge(i)} to ${edge(i + 1)}: ${count(height)}` });
    bar.style.height = `${(100 * height) / most}%`;
    return bar;
  });
  const told = numbers.histogram.join(", ");
  return el("div", { "data-panel": "numbers" },
    el("div", { class: "numbers" }, Object.entries(figures).map(([name, value]) =>
      el("span", {}, `${name} `, el("b", { "data-number": name, "data-value": value }, short(value))))),
    el("div", { class: "histogram", role: "img",
      "aria-label": `Histogram: events in ${numbers.histogram.length} equal parts from min to max: ${told}` }, bars),
    el("div", { class: "histogram-ends quiet", "aria-hidden": "true" }, el("span", {}, short(numbers.min)), el("span", {}, short(numbers.max))));
}

const asText = (value) => JSON.stringify(value); // "1" and 1 are two values

/** The most frequent values, one line each; the table below has what the chart has. */
function overTime(key, { rows }) {
  const times = steps().map(iso);
  const sums = new Map();
  for (const row of rows) sums.set(asText(row.value), (sums.get(asText(row.value)) ?? 0) + row.events);
  const values = [...sums].sort((a, b) => b[1] - a[1]).slice(0, lineColors.length).map(([text]) => text);
  const known = new Map(rows.map((row) => [row.at + asText(row.value), row.events]));
  const eventsOf = (at, value) => known.get(at + value) ?? 0;
  const label = (value) => valueText(JSON.parse(value)).slice(0, 40);
  const grid = table({ panel: "property-series", caption: `Values of ${key} over time`, heading: "From (UTC)", rows: times,
    head: minute, columns: values.map((value) => ({ title: label(value), number: true, cell: (at) => eventsOf(at, value) })) });
  return {
    content: [el("div", { id: "property-plot" }), el("details", {}, el("summary", {}, "The same as a table"), grid)],
    plot: () => draw("property-plot", times.map(seconds), values.map((value, i) =>
      ({ label: label(value), values: times.map((at) => eventsOf(at, value)), color: lineColors[i] }))),
  };
}

export async function showProperties() {
  const name = chosen("name");
  find("properties").hidden = name === null;
  remove("property-plot");
  if (name === null) return;
  const { rows } = await ask("properties", { limit: 10000 });
  const keys = [...new Set(rows.map((row) => row.key))];
  const key = keys.includes(chosen("key")) ? chosen("key") : keys[0] ?? null;
  properties.about(name);
  fill(properties.tools, keys.map((one) => el("button", { type: "button", "aria-pressed": String(one === key),
    onclick: () => change({ key: one }) }, one)));
  const property = key === null ? null : await ask("property", { key, step: step(), limit: lineColors.length });
  const time = property?.series.rows.length ? overTime(key, property.series) : null;
  properties.show({ view: "properties", rows: rows.filter((row) => row.key === key), textOf: (row) => valueText(row.value),
    nothing: "These events have no members of their own.", make: (some) => el("div", { class: "columns" },
      el("div", { class: "values", tabindex: "0", role: "region", "aria-label": `Values of ${key}` }, table({ panel: "property-values", caption: `Values of ${key}`, heading: "Value", rows: some, weight: (row) => row.events,
        head: (row) => valueText(row.value), columns: [numberColumn("Events", "events")] })),
      el("div", {}, property.numbers ? numbersOf(property.numbers) : null, time?.content ?? empty("Nothing over time."))) });
  time?.plot();
}
