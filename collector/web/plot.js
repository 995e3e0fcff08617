// A chart over time: uPlot with this page's colours and its UTC times.
import { find, minute, iso } from "./dom.js";

const plots = new Map(); // by the id of the place

const color = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
const height = () => (innerWidth < 600 ? 200 : 280);

/** Labels of the time axis: the hour, and the date where a new one begins. */
function times(_, splits, __, ___, increment) {
  let day = "";
  return splits.map((at) => {
    const text = iso(at);
    const isNew = text.slice(0, 10) !== day;
    day = text.slice(0, 10);
    if (increment >= 86400) return day.slice(5);
    return isNew ? `${text.slice(11, 16)}\n${day.slice(5)}` : text.slice(11, 16);
  });
}

/** Draws lines into the place with this id. @param lines [{label, values, color: "--accent", dash, fill}]
    @param onZoom called with from and to when a stretch was drawn with the pointer */
export function draw(id, at, lines, onZoom) {
  remove(id);
  const axis = { stroke: color("--quiet"), grid: { stroke: color("--line"), width: 1 }, ticks: { stroke: color("--line") } };
  const series = lines.map((line) => ({ label: line.label, stroke: color(line.color), width: line.dash ? 1.5 : 2,
    dash: line.dash, fill: line.fill ? color(line.color) + "22" : undefined, points: { show: at.length < 40 } }));
  plots.set(id, new uPlot({
    width: find(id).clientWidth, height: height(),
    series: [{ label: "From (UTC)", value: (_, when) => (when === null ? "" : minute(iso(when))) }, ...series],
    axes: [{ ...axis, values: times }, { ...axis, size: 60 }],
    tzDate: (when) => uPlot.tzDate(new Date(when * 1000), "UTC"),
    scales: { y: { range: (_, low, high) => [0, Math.max(1, high * 1.05)] } },
    cursor: { drag: { x: Boolean(onZoom), y: false } },
    hooks: { setSelect: [(plot) => {
      if (plot.select.width >= 4)
        onZoom?.(plot.posToVal(plot.select.left, "x"), plot.posToVal(plot.select.left + plot.select.width, "x"));
    }] },
  }, [at, ...lines.map((line) => line.values)], find(id)));
}

export function remove(id) {
  plots.get(id)?.destroy();
  plots.delete(id);
}

addEventListener("resize", () => plots.forEach((plot, id) =>
  find(id) && plot.setSize({ width: find(id).clientWidth, height: height() })));
