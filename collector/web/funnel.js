// How many installations logged up to five names in this order.
import { el, fill, numberColumn, table } from "./dom.js";
import { panel } from "./panel.js";
import { all, ask, change } from "./state.js";

const funnel = panel("funnel", "Funnel");
const most = 5;

/** The choice of one step; taking one out takes the later ones with it. */
function choice(names, steps, i) {
  const option = (name) => el("option", { value: name, selected: name === steps[i] }, name.slice(0, 60));
  return el("select", { "aria-label": `Step ${i + 1}`, onchange: (event) => {
    const next = event.target.selectedIndex === 0 ? steps.slice(0, i) : [...steps];
    if (event.target.selectedIndex !== 0) next[i] = event.target.value;
    change({ event: next });
  } }, el("option", { value: "" }, i < steps.length ? "(end here)" : "(next step)"), names.map(option));
}

export async function showFunnel() {
  const steps = all("event").slice(0, most);
  const { rows: known } = await ask("names", { limit: 1000, name: null });
  const names = [...new Set([...known.map((row) => row.name).filter((name) => name !== null), ...steps])];
  fill(funnel.tools, Array.from({ length: Math.min(most, steps.length + 1) }, (_, i) => choice(names, steps, i)));
  const { rows } = steps.length ? await ask("funnel", { event: steps, name: null }) : { rows: [] };
  const share = (row) => (rows[0].installations ? `${Math.round((100 * row.installations) / rows[0].installations)} %` : "");
  funnel.show({ view: "funnel", further: { event: steps, name: null, limit: null }, rows,
    nothing: "Choose up to five names: how many installations logged them in this order?", make: () => table({
      panel: "funnel", caption: "Funnel", heading: "Step", rows, weight: (row) => row.installations, head: (row) => row.name,
      columns: [numberColumn("Installations", "installations"), { title: "Of the first", cell: share }] }) });
}
