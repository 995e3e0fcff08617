// Making elements. Texts are set as text alone: names and values come from strangers and may hold any markup.

/** An element with attributes (`onclick` and the like are listeners) and children (elements or texts). */
export function el(tag, attributes = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (value === undefined || value === null || value === false) continue;
    if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
    else element.setAttribute(name, value === true ? "" : value);
  }
  fill(element, children);
  return element;
}

export const find = (id) => document.getElementById(id);

export function fill(element, ...children) {
  element.replaceChildren(...children.flat(2).filter((child) => child !== null && child !== undefined));
}

const grouped = new Intl.NumberFormat("en");
export const count = (number) => grouped.format(number);
/** A measured number, short enough for a cell. */
export const short = (number) => grouped.format(Number(number.toPrecision(4)));

/** "2026-11-21T05:00:00Z" for seconds since 1970. */
export const iso = (seconds) => new Date(seconds * 1000).toISOString().slice(0, 19) + "Z";
/** The reverse; a date alone is its first second. NaN for what is no time. */
export const seconds = (text) => Date.parse(text.includes("T") ? text : text + "T00:00:00Z") / 1000;
/** A moment for a person, to the minute: UTC, as all times of this page. */
export const minute = (isoText) => isoText.slice(0, 16).replace("T", " ");
/** The same to the second, from milliseconds since 1970. */
export const moment = (milliseconds) => new Date(milliseconds).toISOString().slice(0, 19).replace("T", " ");

/** A counted value as text: a text as it is, everything else as JSON has it. */
export const valueText = (value) => (typeof value === "string" ? value : JSON.stringify(value));

export function size(bytes) {
  for (const unit of ["B", "KB", "MB", "GB"]) {
    if (bytes < 1000 || unit === "GB") return `${bytes < 10 && unit !== "B" ? bytes.toFixed(1) : Math.round(bytes)} ${unit}`;
    bytes /= 1000;
  }
}

/** What stands where there is nothing to show. */
export const empty = (text) => el("p", { class: "empty" }, text);

const headed = (title, number) => el("th", { scope: "col", class: number ? "number" : undefined }, title);

function bar(share) {
  const full = el("i");
  full.style.width = `${100 * share}%`;
  return el("div", { class: "bar", "aria-hidden": "true" }, full);
}

/** The figures of a table. `columns`: {title, cell(row), number, field}; `head(row)`: the row's name, as an element or a
    text; `weight(row)`: draws a bar below the name. */
export function table({ panel, caption, heading, columns, rows, head, weight }) {
  const most = Math.max(1, ...rows.map(weight ?? (() => 0)));
  const cell = ({ cell, number, field }, row) => el("td",
    { class: number ? "number" : undefined, "data-field": field, "data-value": number ? cell(row) : undefined },
    number ? count(cell(row)) : cell(row));
  return el("table", { "data-panel": panel },
    el("caption", {}, caption),
    el("thead", {}, el("tr", {}, headed(heading), columns.map(({ title, number }) => headed(title, number)))),
    el("tbody", {}, rows.map((row) => el("tr", {},
      el("th", { scope: "row" }, head(row), weight ? bar(weight(row) / most) : null),
      columns.map((column) => cell(column, row))))));
}

/** Columns that most tables have. */
export const numberColumn = (title, field) => ({ title, field, number: true, cell: (row) => row[field] });
