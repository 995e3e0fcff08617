// Installations and what one of them did; retention by week; a funnel of names.
import { count, el, empty, fill, find, table } from "./dom.js";
import { all, ask, change } from "./state.js";

const dialog = () => find("dialog");

const closeButton = () => el("button", { type: "button", onclick: () => dialog().close() }, "Close");

function eventLine(event) {
  return el("div", { class: "event" }, `${event.logged_at} `, el("b", {}, event.name ?? "null"), " ",
    el("code", {}, JSON.stringify(event.event)));
}

async function forget(id) {
  const yes = el("button", { type: "button", onclick: async () => {
    const answer = await fetch(`/api/installations?${new URLSearchParams({ installation: id })}`, { method: "DELETE" });
    const given = await answer.json();
    fill(dialog(), el("p", {}, answer.ok ? `Forgotten: ${count(given.removed)} events and rejected lines.` : given.error), closeButton());
    change({});
  } }, "Forget it for good");
  fill(dialog(), el("p", {}, "Every event of ", el("b", {}, id), " is deleted, and its id with them. This cannot be taken back."),
    el("div", { class: "tools" }, yes, closeButton()));
}

async function showTimeline(id) {
  const { rows } = await ask("timeline", { installation: id, limit: 100, from: "1970-01-01", to: "2100-01-01" });
  fill(dialog(), el("h2", {}, "The last events of ", el("span", {}, id)),
    el("div", { class: "tools" }, closeButton(),
      el("button", { type: "button", onclick: () => { dialog().close(); change({ installation: id }); } }, "Filter by it"),
      el("button", { type: "button", onclick: () => forget(id) }, "Forget it ...")),
    el("div", { class: "scroll", "data-panel": "timeline" }, rows.map(eventLine)));
  if (!dialog().open) dialog().showModal();
}

export async function showInstallations() {
  const { total, rows } = await ask("installations");
  const short = (text) => text.slice(0, 16).replace("T", " ");
  const body = rows.length === 0 ? empty("No installation logged in this period.") : table({
    panel: "installations", caption: "Installations", heading: "Installation", rows,
    head: (row) => el("button", { type: "button", onclick: () => showTimeline(row.installation) }, row.installation),
    columns: [{ title: "Version", cell: (row) => `${row.application} ${row.version}` },
      { title: "First seen", cell: (row) => short(row.first_seen) }, { title: "Last seen", cell: (row) => short(row.last_seen) },
      { title: "Events", field: "events", number: true, cell: (row) => row.events }] });
  fill(find("installations"), el("h2", {}, "Installations", el("span", { class: "total" }, count(total))),
    el("div", { class: "scroll", tabindex: "0" }, body));
}

export async function showRetention() {
  const { rows } = await ask("retention");
  const weeks = Math.max(0, ...rows.map((row) => row.active.length));
  const cell = (row, week) => {
    const share = row.installations && week < row.active.length ? row.active[week] / row.installations : null;
    const td = el("td", { class: "heat", title: share === null ? undefined : count(row.active[week]) },
      share === null ? "" : `${Math.round(100 * share)} %`);
    if (share !== null) td.style.background = `color-mix(in srgb, var(--accent) ${Math.round(60 * share)}%, transparent)`;
    return td;
  };
  const head = el("tr", {}, ["First week", "Installations", ...Array.from({ length: weeks }, (_, i) => `Week ${i}`)].map((text) =>
    el("th", { scope: "col" }, text)));
  const body = rows.map((row) => el("tr", {}, el("th", { scope: "row" }, row.week), el("td", { class: "number" }, count(row.installations)),
    Array.from({ length: weeks }, (_, i) => cell(row, i))));
  fill(find("retention"), el("h2", {}, "Who came back"), rows.length === 0 ? empty("No new installation in this period.") :
    el("div", { class: "scroll", tabindex: "0" }, el("table", { "data-panel": "retention" },
      el("caption", {}, "Installations by the week of their first event, and the share that logged in later weeks"),
      el("thead", {}, head), el("tbody", {}, body))));
}

export async function showFunnel() {
  const { rows: names } = await ask("names", { limit: 200, name: null });
  const steps = all("event").slice(0, 5);
  const choice = (i) => el("select", { "aria-label": `Step ${i + 1}`, onchange: (event) => {
    const next = [...steps];
    if (event.target.value) next[i] = event.target.value;
    else next.splice(i);
    change({ event: next });
  } }, el("option", { value: "" }, i < steps.length ? "(end here)" : "(next step)"),
    names.filter((row) => row.name !== null).map((row) => el("option", { value: row.name, selected: row.name === steps[i] }, row.name)));
  const choices = Array.from({ length: Math.min(5, steps.length + 1) }, (_, i) => choice(i));
  const { rows } = steps.length ? await ask("funnel", { event: steps, name: null }) : { rows: [] };
  fill(find("funnel"), el("h2", {}, "Funnel"), el("div", { class: "tools" }, choices),
    rows.length === 0 ? empty("Choose up to five names: how many installations logged them in this order?") : table({
      panel: "funnel", caption: "Funnel", heading: "Step", rows, weight: (row) => row.installations, head: (row) => row.name,
      columns: [{ title: "Installations", field: "installations", number: true, cell: (row) => row.installations },
        { title: "Of the first", cell: (row) => (rows[0].installations ? `${Math.round((100 * row.installations) / rows[0].installations)} %` : "") }] }));
}

export { eventLine };
