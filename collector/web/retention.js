// Who came back: installations by the week of their first event, and their share in the weeks after.
import { count, el } from "./dom.js";
import { panel } from "./panel.js";
import { ask } from "./state.js";

const retention = panel("retention", "Who came back");

function cell(row, week) {
  if (week >= row.active.length || !row.installations) return el("td", {});
  const share = row.active[week] / row.installations;
  const shown = el("td", { class: "heat", title: `${count(row.active[week])} of ${count(row.installations)}`,
    "data-value": row.active[week] }, `${Math.round(100 * share)} %`);
  shown.style.background = `color-mix(in srgb, var(--accent) ${Math.round(45 * share)}%, transparent)`;
  return shown;
}

function tableOf(rows) {
  const weeks = Array.from({ length: Math.max(...rows.map((row) => row.active.length)) }, (_, i) => i);
  const heads = ["First week", "New", ...weeks.map((week) => `+${week}`)];
  return el("table", { "data-panel": "retention" },
    el("caption", {}, "Installations by the week of their first event, and the share that logged so many weeks later"),
    el("thead", {}, el("tr", {}, heads.map((text) => el("th", { scope: "col" }, text)))),
    el("tbody", {}, rows.map((row) => el("tr", {}, el("th", { scope: "row" }, row.week),
      el("td", { class: "number", "data-field": "installations", "data-value": row.installations }, count(row.installations)),
      weeks.map((week) => cell(row, week))))));
}

export async function showRetention() {
  const { rows } = await ask("retention");
  retention.show({ view: "retention", rows, nothing: "No new installation in this period.", make: tableOf });
}
