// The tiles, the large chart and the days beside it: how much happened, and when.
import { count, el, empty, fill, find, iso, minute, numberColumn, seconds, table } from "./dom.js";
import { panel } from "./panel.js";
import { draw, remove } from "./plot.js";
import { ask, change, chosen, period, setPeriod, step, steps } from "./state.js";

const metrics = { events: "Events", installations: "Installations", rejects: "Rejected lines", dropped: "Dropped by hosts" };
const perInstallation = (of) => (of.installations ? Math.round((10 * of.events) / of.installations) / 10 : 0);
const tiles = [
  { key: "events", label: "Events", line: (point) => point.events },
  { key: "installations", label: "Installations", line: (point) => point.installations },
  { key: "new_installations", label: "New installations", line: (point) => point.new_installations },
  { key: "events_per_installation", label: "Events per installation", of: perInstallation, line: perInstallation },
  { key: "versions", label: "Versions" },
  { key: "rejects", label: "Rejected lines", line: (point) => point.rejects, isLoss: true },
  { key: "dropped", label: "Dropped by hosts", line: (point) => point.dropped, isLoss: true },
];

const chart = panel("chart", "Over time");
const days = panel("days", "Days");

function changeSince(now, before, isLoss) {
  if (!before) return el("span", {}, now ? "none before" : " ");
  const percent = Math.round((100 * (now - before)) / before);
  const isGood = isLoss ? percent < 0 : percent > 0;
  return [el("span", { class: percent === 0 ? undefined : isGood ? "good" : "bad" }, `${percent > 0 ? "+" : ""}${percent} %`),
    ` from ${count(before)}`];
}

const svg = (tag, attributes) => {
  const element = document.createElementNS("http://www.w3.org/2000/svg", tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  return element;
};

function sparkline(values) {
  const most = Math.max(1e-9, ...values);
  const picture = svg("svg", { viewBox: `0 0 ${Math.max(1, values.length - 1)} 26`, preserveAspectRatio: "none", "aria-hidden": "true" });
  picture.append(svg("polyline", { points: values.map((value, i) => `${i},${25 - (23 * value) / most}`).join(" ") }));
  return picture;
}

/** All steps of the period, those without anything included. */
function whole(rows, from, to) {
  const known = new Map(rows.map((row) => [row.at, row]));
  return steps({ from, to }).map(iso).map((at) =>
    known.get(at) ?? { at, events: 0, installations: 0, new_installations: 0, rejects: 0, dropped: 0 });
}

function drawTiles(summary, points) {
  fill(find("tiles"), tiles.map(({ key, label, of = (figures) => figures[key], line, isLoss }) => {
    const [now, before] = [of(summary), of(summary.previous)];
    // What is known of whole periods alone gets the line from the period before to this one.
    return el("div", { class: "tile", "data-tile": key, "data-value": String(now) },
      el("div", { class: "label" }, label), el("div", { class: "value" }, count(now)),
      el("div", { class: "change", title: "since the period before" }, changeSince(now, before, isLoss)),
      sparkline(line ? points.map(line) : [before, now]));
  }));
}

function drawChoice(metric) {
  const choice = (words, title, pressed, hint) => el("button", { type: "button", "aria-pressed": String(pressed), title: hint,
    onclick: () => change(words) }, title);
  const compared = chosen("compare") === "1";
  fill(chart.tools, Object.entries(metrics).map(([key, title]) => choice({ show: key }, title, key === metric)),
    el("span", { class: "spread" }), choice({ step: "hour" }, "Hours", step() === "hour"),
    choice({ step: "day" }, "Days", step() === "day"),
    choice({ compare: compared ? null : "1" }, "Compare", compared, "With the period before (X)"));
}

function drawChart(points, before, metric) {
  const lines = [{ label: metrics[metric], values: points.map((point) => point[metric]), color: "--accent", fill: true }];
  if (before)
    lines.push({ label: "Period before", values: points.map((_, i) => before[i]?.[metric] ?? 0), color: "--before", dash: [6, 4] });
  remove("plot");
  const isEmpty = [...points, ...(before ?? [])].every((point) => point.events + point.rejects + point.dropped === 0);
  chart.show({ view: "series", further: { step: step() }, rows: isEmpty ? [] : points, nothing: "Nothing was logged in this period.",
    make: (rows) => [el("div", { id: "plot" }),
      el("details", {}, el("summary", {}, "The same as a table"), figuresOf("series", rows, (row) => minute(row.at)))] });
  if (!isEmpty)
    draw("plot", points.map((point) => seconds(point.at)), lines,
      (from, to) => setPeriod(Math.floor(from / 3600) * 3600, Math.ceil(to / 3600) * 3600));
}

const figuresOf = (name, rows, head) => table({ panel: name, caption: "Figures over time", heading: "From (UTC)", rows, head,
  weight: name === "days" ? (row) => row.events : undefined,
  columns: Object.entries(metrics).map(([field, title]) => numberColumn(title.split(" ")[0], field)) });

function drawDays(rows) {
  const button = (row) => el("button", { type: "button", title: "This day alone",
    onclick: () => setPeriod(seconds(row.at), seconds(row.at) + 86400) }, row.at.slice(0, 10));
  days.show({ view: "series", further: { step: "day" }, rows: [...rows].reverse(), totalRows: rows.length,
    nothing: "Nothing was logged in this period.", make: (some) => figuresOf("days", some, button) });
}

export async function showFigures() {
  const { from, to } = period();
  const metric = chosen("show") in metrics ? chosen("show") : "events";
  const [summary, now, before, daily] = await Promise.all([ask("summary"), ask("series", { step: step() }),
    chosen("compare") === "1" ? ask("series", { step: step() }, to - from) : null, ask("series", { step: "day" })]);
  const points = whole(now.rows, from, to);
  drawChoice(metric);
  drawTiles(summary, points);
  drawChart(points, before && whole(before.rows, from - (to - from), from), metric);
  drawDays(daily.rows);
}
