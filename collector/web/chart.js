// The tiles and the large chart: how much happened, and when.
import { count, el, empty, fill, find, iso, seconds, table } from "./dom.js";
import { ask, change, chosen, period, setPeriod, step } from "./state.js";

const metrics = { events: "Events", installations: "Installations", dropped: "Dropped by hosts", rejects: "Rejected lines" };
const tiles = [
  { key: "events", label: "Events", of: (s) => s.events, line: (p) => p.events },
  { key: "installations", label: "Installations", of: (s) => s.installations, line: (p) => p.installations },
  { key: "new_installations", label: "New installations", of: (s) => s.new_installations },
  { key: "events_per_installation", label: "Events per installation",
    of: (s) => (s.installations ? Math.round((10 * s.events) / s.installations) / 10 : 0),
    line: (p) => (p.installations ? p.events / p.installations : 0) },
  { key: "versions", label: "Versions", of: (s) => s.versions },
  { key: "rejects", label: "Rejected lines", of: (s) => s.rejects, line: (p) => p.rejects },
  { key: "dropped", label: "Dropped by hosts", of: (s) => s.dropped, line: (p) => p.dropped },
];
let plot = null;

function change_since(now, before) {
  if (!before) return now ? "none before" : "";
  const percent = Math.round((100 * (now - before)) / before);
  return `${percent > 0 ? "+" : ""}${percent} % since the period before`;
}

function sparkline(values) {
  const most = Math.max(1e-9, ...values);
  const svg = document.createElementNS("http://www.w3.org/2000/svg", "svg");
  svg.setAttribute("viewBox", `0 0 ${Math.max(1, values.length - 1)} 26`);
  svg.setAttribute("preserveAspectRatio", "none");
  svg.setAttribute("aria-hidden", "true");
  const line = document.createElementNS("http://www.w3.org/2000/svg", "polyline");
  line.setAttribute("points", values.map((value, i) => `${i},${25 - (23 * value) / most}`).join(" "));
  svg.append(line);
  return svg;
}

/** All steps of the period, those without anything included. */
function whole(rows, from, to) {
  const width = step() === "day" ? 86400 : 3600;
  const known = new Map(rows.map((row) => [seconds(row.at), row]));
  const points = [];
  for (let at = Math.floor(from / width) * width; at < to; at += width)
    points.push(known.get(at) ?? { at: iso(at), events: 0, installations: 0, rejects: 0, dropped: 0 });
  return points;
}

function drawTiles(summary, points) {
  fill(find("tiles"), tiles.map((tile) => {
    const value = tile.of(summary);
    return el("div", { class: "tile", "data-tile": tile.key, "data-value": String(value) },
      el("div", { class: "label" }, tile.label),
      el("div", { class: "value" }, count(value)),
      el("div", { class: "change" }, change_since(value, tile.of(summary.previous))),
      tile.line ? sparkline(points.map(tile.line)) : null);
  }));
}

const color = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

function drawChart(points, before, metric) {
  plot?.destroy();
  plot = null;
  const place = find("chart");
  if (points.every((point) => point.events + point.rejects + point.dropped === 0)) {
    fill(place, empty("Nothing was logged in this period."));
    return;
  }
  fill(place);
  const data = [points.map((point) => seconds(point.at)), points.map((point) => point[metric])];
  const series = [{}, { label: metrics[metric], stroke: color("--accent"), width: 2, fill: color("--accent") + "22" }];
  if (before) {
    data.push(points.map((_, i) => before[i]?.[metric] ?? 0));
    series.push({ label: "Period before", stroke: color("--before"), width: 1.5, dash: [6, 4] });
  }
  const axis = { stroke: color("--quiet"), grid: { stroke: color("--line") }, ticks: { stroke: color("--line") } };
  plot = new uPlot({
    width: place.clientWidth, height: 260, series, axes: [axis, { ...axis, size: 60 }],
    tzDate: (at) => uPlot.tzDate(new Date(at * 1000), "UTC"),
    scales: { y: { range: (_, low, high) => [0, Math.max(1, high * 1.05)] } },
    hooks: { setSelect: [zoom] },
  }, data, place);
}

/** A stretch that was drawn with the pointer becomes the period. */
function zoom(chart) {
  if (chart.select.width < 4) return;
  const from = chart.posToVal(chart.select.left, "x");
  const to = chart.posToVal(chart.select.left + chart.select.width, "x");
  setPeriod(Math.floor(from / 3600) * 3600, Math.ceil(to / 3600) * 3600);
}

function drawTable(points) {
  const column = (title, field) => ({ title, field, number: true, cell: (row) => row[field] });
  fill(find("chart-table"), table({ panel: "series", caption: "Figures over time", heading: "From (UTC)", rows: points,
    head: (row) => row.at.slice(0, 16).replace("T", " "),
    columns: Object.entries(metrics).map(([field, title]) => column(title, field)) }));
}

function drawChoice(metric) {
  fill(find("chart-choice"), Object.entries(metrics).map(([key, title]) =>
    el("button", { type: "button", "aria-pressed": String(key === metric), onclick: () => change({ show: key }) }, title)),
    el("button", { type: "button", "aria-pressed": String(chosen("compare") === "1"), title: "X",
      onclick: () => change({ compare: chosen("compare") === "1" ? null : "1" }) }, "Compare"));
}

export async function showFigures() {
  const { from, to } = period();
  const metric = chosen("show") in metrics ? chosen("show") : "events";
  const compared = chosen("compare") === "1";
  const [summary, now, before] = await Promise.all([ask("summary"), ask("series", { step: step() }),
    compared ? ask("series", { step: step() }, to - from) : null]);
  const points = whole(now.rows, from, to);
  drawChoice(metric);
  drawTiles(summary, points);
  drawChart(points, before && whole(before.rows, from - (to - from), from), metric);
  drawTable(points);
}

addEventListener("resize", () => plot?.setSize({ width: find("chart").clientWidth, height: 260 }));
