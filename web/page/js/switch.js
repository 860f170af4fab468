import { Control } from "./control.js";
import { el, setText } from "./dom.js";

/** On or off. Shows what the module says, not what was clicked. */
export class Switch extends Control {
  constructor(setting, number, words = ["Off", "On"]) {
    super(setting, number);
    this.words = words;
    this.text = el("span", { className: "word" });
    this.label = el("span", { id: `${this.id}-label`, className: "label", textContent: setting.label });
    this.button = el("button", {
      type: "button",
      id: this.id,
      role: "switch",
      "aria-checked": "false",
      "aria-labelledby": this.label.id,
      "aria-describedby": this.error.id,
    }, el("span", { className: "knob" }), this.text);
    this.element.append(this.label, this.button, el("div", { className: "below" }, this.error));
    this.button.addEventListener("click", () => this.apply(!this.value));
  }

  main() {
    return this.button;
  }

  show() {
    this.button.setAttribute("aria-checked", String(this.value === true));
    this.button.setAttribute("aria-disabled", String(this.locked || this.pending));
    setText(this.text, this.value === undefined || this.value === null ? "–" : this.words[this.value ? 1 : 0]);
  }
}
