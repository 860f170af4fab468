// A channel: readout and RF switch on top, everything else in groups that show their state while closed.

import { Choice, choiceWord } from "./choice.js";
import { el, setText } from "./dom.js";
import { Field } from "./field.js";
import { format } from "./format.js";
import { at } from "./store.js";
import { session } from "./storage.js";
import { Switch } from "./switch.js";

const PROMINENT = "Output";

function makeControl(setting, number) {
  if (setting.path === "rf_output") {
    const control = new Switch(setting, number, ["RF off", "RF on"]);
    control.element.classList.add("rf");
    return control;
  }
  switch (setting.kind) {
    case "switch":
      return new Switch(setting, number);
    case "choice":
      return new Choice(setting, number);
    default:
      return new Field(setting, number);
  }
}

/** Group name to settings, in the order of the table. */
function groupsOf(settings) {
  const groups = new Map();
  for (const setting of settings) {
    groups.set(setting.group, [...(groups.get(setting.group) ?? []), setting]);
  }
  return groups;
}

export class Card {
  constructor(number, settings) {
    this.number = number;
    this.seen = false;
    this.locked = false;
    this.controls = settings.map((setting) => makeControl(setting, number));
    this.summaries = [];
    this.element = this.build(settings);
  }

  build(settings) {
    this.title = el("h2", { id: `channel-${this.number}` },
      el("span", { className: "badge", textContent: this.number, "aria-hidden": "true" }),
      el("span", { className: "unseen", textContent: `Channel ${this.number}` }));
    this.kind = el("p", { className: "kind quiet" });
    this.temperature = el("p", { className: "temperature", title: "Temperature of the module" });
    this.trouble = el("p", { className: "trouble", role: "status" });
    const groups = groupsOf(settings);
    this.body = el("div", { className: "body" },
      el("div", { className: "readout" }, ...this.elementsOf(groups.get(PROMINENT) ?? [])),
      el("div", { className: "groups" }, ...[...groups].filter(([name]) => name !== PROMINENT).map(([name, members]) => this.group(name, members))));
    return el("article", {
      className: "card",
      "aria-labelledby": this.title.id,
      data: { channel: this.number, state: "waiting" },
    }, el("header", {}, this.title, this.kind, this.temperature), this.trouble, this.body);
  }

  elementsOf(settings) {
    return this.controls.filter(({ setting }) => settings.includes(setting)).map(({ element }) => element);
  }

  group(name, settings) {
    const state = el("span", { className: "state" });
    const key = `open ${this.number} ${name}`;
    const details = el("details", { open: session.get(key) !== null },
      el("summary", {}, el("span", { className: "name", textContent: name }), state),
      el("div", { className: "settings" }, ...this.elementsOf(settings)));
    details.addEventListener("toggle", () => {
      if (details.open) {
        session.set(key, "1");
      } else {
        session.remove(key);
      }
    });
    this.summaries.push({ settings, state, details });
    return details;
  }

  update(channel) {
    this.seen = this.seen || channel.present === true;
    setText(this.kind, [channel.model, channel.serial].filter(Boolean).join(" · "));
    const celsius = channel.temperature_celsius;
    setText(this.temperature, typeof celsius === "number" ? `${celsius.toFixed(1)} °C` : "– °C");
    for (const control of this.controls) {
      control.update(channel);
    }
    for (const { settings, state, details } of this.summaries) {
      const [text, active] = summarise(channel, settings);
      setText(state, text);
      details.classList.toggle("active", active);
    }
    this.element.classList.toggle("on-air", channel.rf_output === true);
    this.showState(channel);
  }

  showState(channel) {
    const state = channel.present === false ? "absent" : channel.failed ? "failed" : "well";
    this.element.dataset.state = state;
    // A module that was seen keeps its place on the page, one that never was takes little of it.
    this.element.classList.toggle("short", state === "absent" && !this.seen);
    setText(this.trouble, {
      absent: this.seen ? "Module has gone: last values" : "No module",
      failed: "Module does not answer: last values",
      well: "",
    }[state]);
    this.relock();
  }

  lock(locked) {
    this.locked = locked;
    this.relock();
  }

  relock() {
    const locked = this.locked || this.element.dataset.state !== "well";
    for (const control of this.controls) {
      control.lock(locked);
    }
  }
}

/** `["on · 30 %", true]`: the switches of the group that are on, or the values of one without a main switch. */
function summarise(channel, settings) {
  const main = settings.filter(({ path }) => path.endsWith("/enabled"));
  if (main.length > 1) {
    const on = main.filter(({ path }) => at(channel, path)).map(({ path }) => path.split("/")[0].toUpperCase());
    return [on.join(", ") || "off", on.length > 0];
  }
  if (main.length === 1) {
    const on = at(channel, main[0].path) === true;
    // The rate of a modulation says less than its depth.
    const values = settings.filter(({ kind, path }) => (kind === "number" && !path.endsWith("/frequency_hz")) || kind === "text").slice(0, 2)
      .map((setting) => format(at(channel, setting.path), setting));
    return [on ? ["on", ...values].filter(Boolean).join(" · ") : "off", on];
  }
  const words = settings.filter(({ kind }) => kind === "choice").slice(0, 2)
    .map(({ path }) => at(channel, path)).filter(Boolean).map(choiceWord);
  return [words.join(" · "), false];
}
