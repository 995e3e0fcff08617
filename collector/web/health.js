// How the collector itself is: the foot of the page.
import { count, el, fill, find, moment, size } from "./dom.js";
import { ask } from "./state.js";

export async function showHealth() {
  const health = await ask("health", { from: null, to: null, application: null, version: null, name: null, installation: null });
  find("logout").hidden = !health.login;
  const facts = [`${count(health.events)} events of ${count(health.installations)} installations stored`,
    health.oldest_event && `since ${health.oldest_event.slice(0, 10)}`, `${size(health.bytes)} on disk`,
    `last upload ${health.last_received_at ? moment(health.last_received_at) + " UTC" : "none yet"}`,
    health.writer && `${count(health.writer.queued)} uploads wait, last commit ${(health.writer.last_commit_us / 1000).toFixed(1)} ms`,
    health.refused_since_start ? `${count(health.refused_since_start)} uploads refused since the start` : null,
    health.cluster && `${count(health.cluster.replicas.filter((one) => one.up).length)} of ${count(health.cluster.replicas.length)} nodes up`,
    health.cluster && `spool ${size(health.cluster.spool.bytes)} of ${size(health.cluster.spool.limit)}, ${count(health.cluster.spool.blocks_waiting)} blocks wait`,
    health.count_differs ? `${count(health.count_differs)} uploads counted their lines wrongly` : null,
    `analytics-collector ${health.version}`, "all times and days UTC"];
  const refused = health.cluster?.door ?? health.cluster?.shut.join(" ");
  fill(find("health"), facts.filter(Boolean).map((fact) => el("span", {}, fact)), el("a", { href: "/api/health" }, "JSON"),
    health.writer?.fault ? el("span", { class: "bad", role: "alert" }, `not storing: ${health.writer.fault}`) : null,
    refused ? el("span", { class: "bad", role: "alert" }, `uploads are refused: ${refused}`) : null);
}
