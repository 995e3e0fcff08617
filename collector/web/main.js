// Puts the panels together: each asks for its own figures whenever the address changes, and once a minute.
import { find } from "./dom.js";
import { beginRound, missing, onChange, redraw } from "./state.js";
import { showFigures } from "./chart.js";
import { showFunnel } from "./funnel.js";
import { showHealth } from "./health.js";
import { showInstallations } from "./installations.js";
import { steer, showSteering } from "./keys.js";
import { showLive } from "./live.js";
import { showProperties } from "./properties.js";
import { showRejects } from "./rejects.js";
import { showRetention } from "./retention.js";
import { showFacts, showNames, showVersions } from "./tables.js";

const panels = [showSteering, showFigures, showNames, showVersions, showFacts, showProperties, showInstallations,
  showRetention, showFunnel, showRejects, showHealth];

function say(text) {
  find("message").textContent = text;
  find("message").hidden = text === "";
}

let rounds = 0;

async function refresh() {
  const signal = beginRound();
  const results = await Promise.allSettled(panels.map((panel) => panel()));
  if (signal.aborted) return;
  const failed = results.find((result) => result.status === "rejected");
  say(failed ? failed.reason.message : missing.size ? `These figures are not whole: ${[...missing].join(" ")}` : "");
  document.body.dataset.ready = String(++rounds); // for whoever waits for the figures from outside
}

onChange(() => {
  showLive();
  refresh();
});
steer();
redraw();
setInterval(() => document.hidden || refresh(), 60000);
document.addEventListener("visibilitychange", () => document.hidden || refresh());
