// Lines that were no events, and why.
import { el, moment, table } from "./dom.js";
import { panel } from "./panel.js";
import { ask } from "./state.js";

const rejects = panel("rejects", "Rejected lines");

export async function showRejects() {
  const { total, rows } = await ask("rejects");
  rejects.show({ view: "rejects", rows, totalRows: total, nothing: "Every line was an event.", make: (some) => table({
    panel: "rejects", caption: "Rejected lines", heading: "Received (UTC)", rows: some,
    head: (row) => moment(row.received_at),
    columns: [{ title: "Reason", cell: (row) => row.reason }, { title: "Line", cell: (row) => el("code", {}, row.line) },
      { title: "Installation", cell: (row) => row.installation }] }) });
}
