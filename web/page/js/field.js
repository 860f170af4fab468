// A number or a text: Enter applies, Escape reverts, and nobody else's change overwrites what is being typed.

import { Control } from "./control.js";
import { el, setText } from "./dom.js";
import { format, formatForEdit, withWholeUnit } from "./format.js";

const MOST_LARGE = 13; // characters that fit into a readout in its usual size

export class Field extends Control {
  constructor(setting, number) {
    super(setting, number);
    this.draft = null; // what was typed and not applied yet
    this.input = el("input", {
      id: this.id,
      type: "text",
      autocomplete: "off",
      spellcheck: false,
      enterKeyHint: "done",
      "aria-describedby": `${this.hint.id} ${this.error.id}`,
    });
    this.note = el("p", { className: "note" });
    this.element.append(el("label", { for: this.id, textContent: setting.label }), this.input,
      el("div", { className: "below" }, this.error, this.note, this.hint));
    this.input.addEventListener("focus", () => this.enter());
    this.input.addEventListener("blur", () => this.show());
    this.input.addEventListener("input", () => this.edit());
    this.input.addEventListener("keydown", (event) => this.key(event));
  }

  main() {
    return this.input;
  }

  enter() {
    this.show();
    if (this.draft === null) {
      this.input.select();
    }
  }

  edit() {
    const original = formatForEdit(this.value, this.setting);
    this.draft = this.input.value === original ? null : this.input.value;
    this.clearError();
    this.show();
  }

  key(event) {
    if (event.key === "Enter") {
      event.preventDefault();
      if (this.draft !== null) {
        this.apply(withWholeUnit(this.draft.trim(), this.setting));
      }
    } else if (event.key === "Escape" && !this.pending) {
      this.draft = null;
      this.clearError();
      this.show();
      this.input.select();
    }
  }

  accept(channel) {
    this.draft = null;
    super.accept(channel);
    this.show();
    if (document.activeElement === this.input) {
      this.input.select();
    }
  }

  show() {
    const focused = document.activeElement === this.input;
    const text = focused ? formatForEdit(this.value, this.setting) : format(this.value, this.setting);
    if (this.draft === null && this.input.value !== text) {
      this.input.value = text;
    }
    this.element.classList.toggle("long", this.input.value.length > MOST_LARGE);
    this.input.readOnly = this.locked || this.pending;
    this.element.classList.toggle("draft", this.draft !== null);
    this.element.classList.toggle("locked", this.locked);
    setText(this.note, this.draft === null ? "" : `Enter applies, Escape keeps ${format(this.value, this.setting)}.`);
  }
}
