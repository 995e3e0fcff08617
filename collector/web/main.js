// Puts the panels together: each asks for its own figures whenever the address changes.
import { find } from "./dom.js";
import { onChange } from "./state.js";
import { showFigures } from "./chart.js";
import { showChips, showPeriods, steer } from "./keys.js";
import { showHealth, showLive, showRejects } from "./live.js";
import { showFunnel, showInstallations, showRetention } from "./people.js";
import { showProperties } from "./properties.js";
import { showFacts, showNames, showVersions } from "./tables.js";

const panels = [showFigures, showNames, showVersions, showFacts, showProperties, showInstallations, showRetention,
  showFunnel, showRejects, showHealth];

function say(text) {
  find("message").textContent = text;
  find("message").hidden = text === "";
}

async function refresh() {
  const results = await Promise.allSettled(panels.map((panel) => panel()));
  const failed = results.find((result) => result.status === "rejected");
  say(failed ? failed.reason.message : "");
  document.body.dataset.ready = String(Number(document.body.dataset.ready ?? 0) + 1);
}

function show() {
  showPeriods();
  showChips();
  showLive();
  return refresh();
}

onChange(show);
steer();
show();
setInterval(refresh, 60000);
