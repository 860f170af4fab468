// A line of SCPI for one channel, with history, completion and help.

import { change, get } from "./api.js";
import { announce, byId, el, setText } from "./dom.js";
import { on } from "./store.js";
import { session } from "./storage.js";
import { complete, find, unitAt, variants } from "./scpi.js";

const LINES_KEPT = 300;
const input = byId("console-line");
const list = byId("console-choices");
const log = byId("console-log");
const history = JSON.parse(session.get("history") ?? "[]");
let commands = [];
let place = history.length;
let draft = "";
let choices = [];
let active = -1;

function entry(kind, ...parts) {
  const atEnd = log.scrollHeight - log.scrollTop - log.clientHeight < 24;
  log.append(el("li", { className: kind }, ...parts));
  while (log.children.length > LINES_KEPT) {
    log.firstChild.remove();
  }
  if (atEnd || kind === "sent") {
    log.scrollTop = log.scrollHeight;
  }
}

async function send(line) {
  const channel = Number(byId("console-channel").value);
  if (history.at(-1) !== line) {
    history.push(line);
    session.set("history", JSON.stringify(history.slice(-100)));
  }
  place = history.length;
  input.value = "";
  refresh();
  entry("sent", el("span", { className: "channel", textContent: `CH${channel}` }), line);
  try {
    const answer = await change("POST", "scpi", { channel, line });
    const took = typeof answer.duration_ms === "number" ? `${answer.duration_ms.toFixed(1)} ms` : "";
    const text = answer.response ?? (answer.response_base64 ? `(bytes, base64) ${answer.response_base64}` : "");
    const errors = answer.errors ?? [];
    if (text !== "" || errors.length === 0) {
      entry(text === "" ? "done" : "answer", text === "" ? "done" : text, el("span", { className: "took", textContent: took }));
    }
    for (const { number, text: words } of errors) {
      entry("failed", `${number} ${words}`);
    }
  } catch (refusal) {
    entry("failed", refusal.message);
  }
}

function recall(step) {
  if (place === history.length) {
    draft = input.value;
  }
  place = Math.min(Math.max(place + step, 0), history.length);
  input.value = history[place] ?? draft;
  input.setSelectionRange(input.value.length, input.value.length);
  close();
  showHelp();
}

function close() {
  choices = [];
  active = -1;
  showChoices();
}

function showChoices() {
  list.hidden = choices.length === 0;
  input.setAttribute("aria-expanded", String(choices.length > 0));
  list.replaceChildren(...choices.map(({ text, command }, index) => {
    const option = el("li", { id: `choice-${index}`, role: "option", "aria-selected": String(index === active) },
      el("span", { className: "header", textContent: text + (command.set ? "" : "?") }),
      el("span", { className: "quiet", textContent: command.text }));
    option.addEventListener("pointerdown", (event) => {
      event.preventDefault();
      active = index;
      take();
    });
    return option;
  }));
  if (active >= 0) {
    input.setAttribute("aria-activedescendant", `choice-${active}`);
    list.children[active].scrollIntoView({ block: "nearest" });
  } else {
    input.removeAttribute("aria-activedescendant");
  }
}

/** Puts the chosen header in place of what was typed of it. */
function take() {
  const { start } = unitAt(input.value, input.selectionStart);
  const { text, command } = choices[active];
  const after = input.value.slice(input.selectionStart);
  const inserted = text + (command.set ? "" : "?");
  input.value = input.value.slice(0, start) + inserted + after;
  input.setSelectionRange(start + inserted.length, start + inserted.length);
  close();
  showHelp();
}

function refresh() {
  const unit = unitAt(input.value, input.selectionStart);
  active = -1;
  choices = unit.rest === null && !unit.query && unit.header ? complete(commands, unit.header) : [];
  if (choices.length === 1 && choices[0].text.toUpperCase() === unit.header.toUpperCase()) {
    choices = [];
  }
  showChoices();
  showHelp();
}

function showHelp() {
  const help = byId("console-help");
  const { header } = unitAt(input.value, input.selectionStart);
  const command = active >= 0 ? choices[active].command : header ? find(commands, header) : undefined;
  if (command === undefined) {
    setText(help, header ? "\u00a0" : "Up and Down recall earlier lines; Down enters the list of commands while it is open.");
    return;
  }
  const forms = [command.set && "set", command.query && "query"].filter(Boolean).join(" and ");
  help.replaceChildren(el("strong", { textContent: command.header }), ` ${forms}. ${command.text} `,
    el("span", { className: "quiet", textContent: command.parameters ?? "" }));
}

function key(event) {
  const open = choices.length > 0;
  if (event.key === "ArrowDown" && open) {
    active = (active + 1) % choices.length;
  } else if (event.key === "ArrowUp" && open && active >= 0) {
    active -= 1;
  } else if (event.key === "ArrowUp" || event.key === "ArrowDown") {
    event.preventDefault();
    recall(event.key === "ArrowUp" ? -1 : 1);
    return;
  } else if (event.key === "Escape" && open) {
    close();
    return;
  } else if ((event.key === "Enter" || event.key === "Tab") && active >= 0) {
    event.preventDefault();
    take();
    return;
  } else {
    return;
  }
  event.preventDefault();
  showChoices();
  showHelp();
  if (active >= 0) {
    announce(choices[active].text);
  }
}

export function startConsole() {
  on("instrument", ({ channels }) => {
    const select = byId("console-channel");
    if (select.options.length !== channels) {
      select.replaceChildren(...Array.from({ length: channels }, (_, index) => el("option", { textContent: index + 1 })));
    }
  });
  input.addEventListener("input", refresh);
  input.addEventListener("keydown", key);
  input.addEventListener("blur", close);
  byId("console-form").addEventListener("submit", (event) => {
    event.preventDefault();
    if (input.value.trim()) {
      send(input.value.trim());
    }
  });
  showHelp();
}

/** Completion and help are not needed for the first paint. */
export async function loadCommands() {
  if (commands.length === 0) {
    const answer = await get("commands");
    commands = answer.commands.map((command) => ({ ...command, variants: variants(command.header) }));
  }
}
