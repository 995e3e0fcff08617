// The frame of a panel: heading, export, tools, search, body. It is made once, and new figures replace the body alone, so
// that what a person has typed, scrolled to or focused outlives them.
import { count, el, empty, fill, find } from "./dom.js";
import { apiAddress } from "./state.js";

// Deliberate: a text that a spreadsheet would run as a formula gets an apostrophe before it, as this file is made to be
// opened by a person and its texts come from strangers. The export of events, made for programs, changes no text.
const field = (text) => `"${(/^[=+\-@\t\r]/.test(text) && isNaN(text) ? "'" + text : text).replaceAll('"', '""')}"`;

function csvOf(table) {
  const cells = (row) => [...row.cells].map((cell) => field(cell.dataset.value ?? cell.textContent));
  return [...table.rows].map((row) => cells(row).join(",") + "\r\n").join("");
}

function download(name, text) {
  const link = el("a", { href: URL.createObjectURL(new Blob([text], { type: "text/csv" })), download: name });
  link.click();
  URL.revokeObjectURL(link.href);
}

/** Replaces the body, and gives the focus back to the button that had it: it is made anew with the same text. */
function replace(body, content) {
  const focused = body.contains(document.activeElement) ? document.activeElement.textContent : null;
  const scrolled = body.scrollTop;
  fill(body, content);
  body.scrollTop = scrolled;
  if (focused !== null) [...body.querySelectorAll("button")].find((button) => button.textContent === focused)?.focus();
}

export function panel(id, title, { searchable = false } = {}) {
  const total = el("span", { class: "total" }), subject = el("span");
  const json = el("a", { target: "_blank", title: `${title} as JSON` }, "JSON");
  const exporter = el("button", { type: "button", title: `${title} as CSV`, onclick: () => {
    const table = body.querySelector("table");
    if (table) download(`${id}.csv`, csvOf(table));
  } }, "Export");
  const search = el("input", { type: "search", placeholder: "Search", "aria-label": `Search ${title}`, oninput: () => draw() });
  const tools = el("div", { class: "tools" });
  const body = el("div", { class: "scroll", tabindex: "0", role: "region", "aria-label": title });
  fill(find(id), el("h2", {}, el("span", {}, title), subject, total, el("span", { class: "spread" }), exporter, json),
    searchable ? el("div", { class: "tools" }, search) : null, tools, body);
  let draw = () => {};

  return {
    tools, body,
    /** What stands behind the title, such as the chosen name. */
    about: (text) => fill(subject, text),
    /** New figures. @param view the API address and words that give the same as JSON. @param make rows to content */
    show({ view, further, rows, totalRows, make, textOf = () => "", nothing = "Nothing in this period." }) {
      json.href = apiAddress(view, { limit: 10000, ...further });
      fill(total, totalRows === undefined ? null : count(totalRows));
      draw = () => {
        const wanted = search.value.toLowerCase();
        const some = rows.filter((row) => textOf(row).toLowerCase().includes(wanted));
        exporter.hidden = some.length === 0;
        replace(body, some.length ? make(some) : empty(rows.length ? "No row has this text." : nothing));
      };
      draw();
    },
  };
}
