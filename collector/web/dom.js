// Making elements. Texts are set as text alone: names and values come from strangers and may hold any markup.

/** An element with properties (`class`, `data-...`, `on...` among them) and children (elements or texts). */
export function el(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (value === undefined || value === null || value === false) continue;
    if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
    else element.setAttribute(name, value === true ? "" : value);
  }
  for (const child of children.flat()) if (child !== null && child !== undefined) element.append(child);
  return element;
}

export const find = (id) => document.getElementById(id);

export function fill(element, ...children) {
  element.replaceChildren(...children.flat().filter((child) => child !== null && child !== undefined));
}

const grouped = new Intl.NumberFormat("en");
export const count = (number) => grouped.format(number);

/** "2026-11-21T05:00:00Z" for seconds since 1970. */
export const iso = (seconds) => new Date(seconds * 1000).toISOString().slice(0, 19) + "Z";
export const seconds = (text) => Date.parse(text.includes("T") ? text : text + "T00:00:00Z") / 1000;
/** The same moment for a person: UTC, as all times of this page. */
export const moment = (milliseconds) => new Date(milliseconds).toISOString().slice(0, 19).replace("T", " ");

/** A counted value as text: a text as it is, everything else as JSON has it. */
export const valueText = (value) => (typeof value === "string" ? value : JSON.stringify(value));

export function size(bytes) {
  for (const unit of ["B", "KB", "MB", "GB"]) {
    if (bytes < 1000 || unit === "GB") return `${bytes < 10 && unit !== "B" ? bytes.toFixed(1) : Math.round(bytes)} ${unit}`;
    bytes /= 1000;
  }
}

/** A table with a bar under each row's first cell. `columns`: {title, cell(row), number, field}; `head(row)`: the row's name. */
export function table({ panel, caption, heading, columns, rows, head, weight }) {
  const most = Math.max(1, ...rows.map(weight ?? (() => 0)));
  const body = rows.map((row) => {
    const first = el("th", { scope: "row" }, head(row));
    if (weight) {
      const fillBar = el("i");
      fillBar.style.width = `${(100 * weight(row)) / most}%`;
      first.append(el("div", { class: "bar", "aria-hidden": "true" }, fillBar));
    }
    return el("tr", {}, first, columns.map((column) => {
      const value = column.cell(row);
      return el("td", { class: column.number ? "number" : undefined, "data-field": column.field,
        "data-value": column.number ? value : undefined }, column.number ? count(value) : value);
    }));
  });
  return el("table", { "data-panel": panel },
    el("caption", {}, caption),
    el("thead", {}, el("tr", {}, el("th", { scope: "col" }, heading), columns.map((column) =>
      el("th", { scope: "col", class: column.number ? "number" : undefined }, column.title)))),
    el("tbody", {}, body));
}

/** What stands where there is nothing to show. */
export const empty = (text) => el("p", { class: "empty" }, text);
