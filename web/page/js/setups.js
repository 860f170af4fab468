// Stored setups: store, recall with what it would change shown first, delete.

import { change, get } from "./api.js";
import { ask } from "./dialog.js";
import { announce, byId, el } from "./dom.js";
import { format } from "./format.js";

const nameOf = ({ setup, factory }) => (factory ? "Factory" : `Setup ${setup}`);

function storedText({ factory, stored, stored_at: at }) {
  if (!stored) {
    return "empty";
  }
  return at ? new Date(at).toLocaleString([], { dateStyle: "medium", timeStyle: "short" }) : factory ? "built in" : "stored";
}

function row(setup, powerUp) {
  const name = nameOf(setup);
  const button = (text, action, enabled) => {
    const element = el("button", { type: "button", textContent: text, disabled: !enabled, "aria-label": `${text} ${name}` });
    element.addEventListener("click", () => action(setup, name));
    return element;
  };
  return el("tr", { data: { setup: setup.setup } },
    el("th", { scope: "row" }, el("div", { className: "setup-name" }, el("span", { textContent: name }),
      el("span", { className: "quiet", textContent: storedText(setup) }),
      ...(setup.setup === powerUp ? [el("span", { className: "tag", textContent: "power-up" })] : []))),
    el("td", {}, el("div", { className: "row-buttons" },
      button("Store", store, !setup.factory),
      button("Recall", recall, setup.stored),
      button("Delete", remove, setup.stored && !setup.factory))));
}

/** A table of what differs, one row a setting. */
function differenceTable(differences) {
  const cells = ({ channel, label, unit, now, setup }) => el("tr", {},
    el("td", { textContent: channel }), el("th", { scope: "row", textContent: label }),
    el("td", { textContent: format(now, { unit }) }), el("td", { textContent: format(setup, { unit }) }));
  return el("div", { className: "differences", tabIndex: 0, role: "region", "aria-label": "Differences" }, el("table", {},
    el("thead", {}, el("tr", {}, ...["Ch", "Setting", "Now", "In the setup"].map((textContent) => el("th", { scope: "col", textContent })))),
    el("tbody", {}, ...differences.map(cells))));
}

async function done(text) {
  announce(text);
  await showSetups();
}

async function tell(name, refusal) {
  await ask({ title: name, body: [el("p", { textContent: refusal.message })], ok: "Close", cancel: false });
}

async function store({ setup, stored }, name) {
  try {
    if (stored) {
      await ask({
        title: `Replace ${name}?`,
        body: [el("p", { textContent: "What is stored in it now is lost." })],
        ok: "Replace",
        danger: true,
        accept: () => change("PUT", `setups/${setup}`),
      });
    } else {
      await change("PUT", `setups/${setup}`);
    }
    await done(`${name} stored`);
  } catch (refusal) {
    await tell(name, refusal);
  }
}

async function recall({ setup }, name) {
  try {
    const { differences } = await get(`setups/${setup}`);
    const count = differences.length;
    const recalled = await ask({
      title: `Recall ${name}?`,
      body: count ? [el("p", { textContent: `${count === 1 ? "One setting changes" : `${count} settings change`}:` }), differenceTable(differences)]
        : [el("p", { textContent: "Every setting already is as in this setup." })],
      ok: "Recall",
      accept: () => change("POST", `setups/${setup}/recall`),
    });
    if (recalled) {
      await done(`${name} recalled`);
    }
  } catch (refusal) {
    await tell(name, refusal);
  }
}

async function remove({ setup }, name) {
  const removed = await ask({
    title: `Delete ${name}?`,
    body: [el("p", { textContent: "This cannot be undone." })],
    ok: "Delete",
    danger: true,
    accept: () => change("DELETE", `setups/${setup}`),
  });
  if (removed) {
    await done(`${name} deleted`);
  }
}

export async function showSetups() {
  const { power_up: powerUp, setups } = await get("setups");
  const table = byId("setups");
  const focused = document.activeElement?.getAttribute("aria-label");
  table.replaceChildren(...setups.map((setup) => row(setup, powerUp)));
  if (focused) {
    table.querySelector(`[aria-label="${CSS.escape(focused)}"]:not(:disabled)`)?.focus();
  }
}
