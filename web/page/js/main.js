// Builds the page from the table of settings, then follows the instrument.

import { isLocked, startAccess } from "./access.js";
import { get } from "./api.js";
import { Card } from "./card.js";
import { loadCommands, startConsole } from "./console.js";
import { byId, setText } from "./dom.js";
import { refreshCharts, startCharts } from "./charts.js";
import { startInstrument } from "./instrument.js";
import { follow } from "./live.js";
import { showSetups } from "./setups.js";
import { getChannel, getInstrument, on } from "./store.js";
import { startThemeButton } from "./theme_button.js";

const LINK_WORDS = { connecting: "Connecting", live: "Live", lost: "Offline", service: "No service" };
const BANNERS = {
  lost: "No connection to the instrument. The values are the last known; this page reconnects by itself.",
  service: "The instrument's service does not answer. The values are the last known; this page continues when it is back.",
};

// The page is shown without what takes longer, such as the setups while a command runs.
const PATIENCE_MS = 400;

let settings = null;
let cards = [];
let link = "connecting";
let extras = false;

/** Resolves after the first frame with the cards is on the screen. */
const painted = () => new Promise((resolve) => requestAnimationFrame(() => setTimeout(resolve)));

function showLink() {
  const state = link === "live" && getInstrument().service?.reachable === false ? "service" : link;
  const banner = byId("banner");
  byId("link").dataset.state = state;
  document.documentElement.dataset.link = state;
  setText(byId("link"), LINK_WORDS[state]);
  setText(banner, BANNERS[state] ?? "");
  banner.hidden = !BANNERS[state];
  for (const card of cards) {
    card.lock(state !== "live" || isLocked());
  }
}

function buildCards(count) {
  if (settings === null || cards.length === count) {
    return;
  }
  cards = Array.from({ length: count }, (_, index) => new Card(index + 1, settings));
  byId("channels").replaceChildren(...cards.map(({ element }) => element));
  for (const card of cards) {
    card.update(getChannel(card.number));
  }
}

function onInstrument(instrument) {
  buildCards(instrument.channels ?? 0);
  showLink();
}

async function onLink(state) {
  link = state;
  showLink();
  if (state !== "live") {
    return;
  }
  // What the stream does not carry.
  await Promise.race([showSetups().catch(() => {}), new Promise((resolve) => setTimeout(resolve, PATIENCE_MS))]);
  byId("main").hidden = false;
  await painted();
  loadCommands().catch(() => {});
  if (extras) {
    refreshCharts();
  } else {
    extras = true;
    startCharts();
  }
}

async function start() {
  startThemeButton();
  startAccess();
  startConsole();
  startInstrument();
  on("instrument", onInstrument);
  on("channel", (number, channel) => cards[number - 1]?.update(channel));
  for (let wait = 300; settings === null; wait = Math.min(wait * 2, 2000)) {
    try {
      ({ settings } = await get("settings"));
    } catch {
      link = "lost";
      showLink();
      await new Promise((resolve) => setTimeout(resolve, wait));
    }
  }
  follow(onLink);
}

start();
