// Identity and network on top, and the panels about the instrument as a whole.

import { byId, el, setText } from "./dom.js";
import { formatClock, formatDuration } from "./format.js";
import { on } from "./store.js";

/** Rebuilds `list` only if the texts of its rows differ. */
function fill(list, rows, make) {
  const key = JSON.stringify(rows);
  if (list.dataset.rows !== key) {
    list.dataset.rows = key;
    list.replaceChildren(...rows.flatMap(make));
  }
}

const fact = ([name, value, extra]) => el("div", {}, el("dt", { textContent: name }),
  el("dd", { textContent: value }, ...(extra ? [extra] : [])));

function showIdentity(instrument) {
  const name = instrument.model ?? "Signal generator";
  setText(byId("model"), name);
  setText(byId("maker"), [instrument.serial && `No. ${instrument.serial}`, instrument.manufacturer]
    .filter(Boolean).join(" · ") || "\u00a0");
  document.title = [name, instrument.hostname].filter(Boolean).join(" · ");
  const network = instrument.network ?? {};
  const address = instrument.addresses?.join(", ") || network.address;
  fill(byId("network"), [
    ["Host", instrument.hostname],
    ["Address", address && `${address} ${network.dhcp ? "(DHCP)" : "(static)"}`],
    ["Mask", network.mask],
    ["Gateway", network.gateway],
    ["DNS", network.dns?.join(", ")],
    ["MAC", instrument.mac],
    ["Firmware", instrument.firmware],
  ].map(([name, value]) => [name, value || "–"]), fact);
}

function meter(percent) {
  return el("meter", { min: 0, max: 100, low: 20, high: 40, optimum: 100, value: percent, "aria-label": "Battery charge" });
}

function showHealth(instrument) {
  const { service = {}, fan, battery, self_test: selfTest } = instrument;
  const running = service.running;
  const charge = battery?.charge_percent;
  const rows = [
    ["Service", service.reachable === false ? "does not answer" : ["running", typeof service.uptime_s === "number" &&
      `since ${formatClockOrDay(startOf(instrument))}`].filter(Boolean).join(" ")],
    ["Running", running ? `${running.message} (${running.client}, ${formatDuration(running.for_s)})` : "nothing"],
    ["Fan", fan?.mode ?? "–"],
    ["Battery", typeof charge === "number" ? `${Math.round(charge)} %` : "none"],
    ...(selfTest?.results ?? []).map((result, index) => [index ? "" : "Self-test", String(result)]),
  ];
  fill(byId("health"), rows, (row) => fact([...row, row[0] === "Battery" && typeof charge === "number" && meter(charge)]));
}

const PROTOCOLS = { raw: "Socket", hislip: "HiSLIP", vxi11: "VXI-11", local: "Web" };

// The same start is computed from each document a little differently.
let start = 0;
function startOf({ service }) {
  const computed = Date.now() - service.uptime_s * 1000;
  if (Math.abs(computed - start) > 3000) {
    start = computed;
  }
  return start;
}

function formatClockOrDay(milliseconds) {
  const time = formatClock(milliseconds);
  return Date.now() - milliseconds < 43200000 ? time : `${new Date(milliseconds).toLocaleDateString()} ${time}`;
}

let clients;
function showClients(instrument) {
  if (instrument.clients === clients) {
    return;
  }
  clients = instrument.clients;
  fill(byId("reach"), (instrument.interfaces ?? []).map(({ protocol, address }) => [PROTOCOLS[protocol] ?? protocol, address]), fact);
  const rows = (clients ?? []).map(({ protocol, address, since_s: since }) =>
    [address, PROTOCOLS[protocol] ?? protocol, `since ${formatClockOrDay(Date.now() - since * 1000)}`]);
  fill(byId("clients"), rows.length ? rows : [["Nobody else is connected.", "", ""]], ([address, protocol, since]) =>
    el("li", {}, el("span", { className: "lead", textContent: address }), el("span", { className: "quiet", textContent: protocol }),
      el("span", { className: "quiet end", textContent: since })));
}

let errors;
function showErrors(instrument) {
  if (instrument.last_errors === errors) {
    return;
  }
  errors = instrument.last_errors;
  const rows = (errors ?? []).map((error) => ({ ...error, at: Date.now() - error.age_s * 1000 }))
    .sort((left, right) => right.at - left.at)
    .map(({ at, protocol, client, number, text, message }) =>
      [formatClockOrDay(at), number, text, message, `${PROTOCOLS[protocol] ?? protocol} ${client}`]);
  fill(byId("errors"), rows.length ? rows : [["", "", "No errors since the start.", "", ""]], ([at, number, text, message, client]) =>
    el("li", {}, el("span", { className: "quiet", textContent: at }), el("span", { className: "lead", textContent: `${number} ${text}`.trim() }),
      ...(message ? [el("code", { textContent: message })] : []), el("span", { className: "quiet end", textContent: client })));
}

export function startInstrument() {
  for (const show of [showIdentity, showHealth, showClients, showErrors]) {
    on("instrument", show);
  }
}
