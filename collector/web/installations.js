// Installations; a click shows what one of them did last, and can have it forgotten.
import { count, el, fill, find, minute, numberColumn, table } from "./dom.js";
import { panel } from "./panel.js";
import { ask, change, redraw } from "./state.js";

const installations = panel("installations", "Installations", { searchable: true });
const dialog = () => find("dialog");
const button = (text, onclick) => el("button", { type: "button", onclick }, text);
const closeButton = () => button("Close", () => dialog().close());

async function forget(id) {
  const answer = await fetch(`/api/installations?${new URLSearchParams({ installation: id })}`, { method: "DELETE" });
  const given = await answer.json();
  fill(dialog(), el("p", { role: "status" }, answer.ok ? `Forgotten: ${count(given.removed)} events and rejected lines.` : given.error),
    closeButton());
  redraw();
}

function askToForget(id) {
  fill(dialog(), el("p", {}, "Every event of ", el("b", {}, id), " is deleted, and its id with them. This cannot be taken back."),
    el("div", { class: "tools" }, button("Forget it for good", () => forget(id)), closeButton()));
  dialog().querySelector("div button:last-child").focus(); // not the one that deletes
}

async function showTimeline(id) {
  // All it did, whatever the page is filtered by.
  const { rows } = await ask("timeline", { installation: id, application: null, version: null, name: null,
    from: "1970-01-01", to: "9999-12-31", limit: 100 });
  const events = table({ panel: "timeline", caption: `The last events of ${id}`, heading: "Logged (UTC)", rows,
    head: (row) => row.logged_at, columns: [{ title: "Name", cell: (row) => row.name ?? "null" },
      { title: "Version", cell: (row) => `${row.application} ${row.version}` },
      { title: "Event", cell: (row) => el("code", {}, JSON.stringify(row.event)) }] });
  fill(dialog(), el("h2", {}, "The last events of ", el("span", {}, id)),
    el("div", { class: "tools" }, closeButton(), button("Filter by it", () => { dialog().close(); change({ installation: id }); }),
      button("Forget it ...", () => askToForget(id))),
    el("div", { class: "scroll", tabindex: "0", role: "region", "aria-label": "Events" }, events));
  if (!dialog().open) dialog().showModal();
}

export async function showInstallations() {
  const { total, rows } = await ask("installations");
  const textOf = (row) => `${row.installation} ${row.application} ${row.version}`;
  installations.show({ view: "installations", rows, totalRows: total, textOf, nothing: "No installation logged in this period.",
    make: (some) => table({ panel: "installations", caption: "Installations", heading: "Installation", rows: some,
      head: (row) => button(row.installation, () => showTimeline(row.installation)),
      columns: [{ title: "Version", cell: (row) => `${row.application} ${row.version}` },
        { title: "First seen (UTC)", cell: (row) => el("span", { class: "moment" }, minute(row.first_seen)) },
        { title: "Last seen (UTC)", cell: (row) => el("span", { class: "moment" }, minute(row.last_seen)) },
        numberColumn("Events", "events")] }) });
}
