import { Control } from "./control.js";
import { el } from "./dom.js";

const WORDS = {
  INT: "Internal", EXT: "External", BUS: "Bus", TIM: "Timer", POS: "Positive", NEG: "Negative",
  ONC: "Once", STEP: "Step", NORM: "Normal", UPD: "Up-down",
};

export const choiceWord = (choice) => WORDS[choice] ?? choice;

/** A choice among a few words. Buttons rather than a list, whose arrow keys would apply every value on the way. */
export class Choice extends Control {
  constructor(setting, number) {
    super(setting, number);
    const label = el("span", { id: `${this.id}-label`, className: "label", textContent: setting.label });
    this.buttons = new Map((setting.choices ?? []).map((choice) => [choice, this.button(choice)]));
    this.group = el("div", {
      className: "segments",
      role: "group",
      "aria-labelledby": label.id,
      "aria-describedby": this.error.id,
    }, ...this.buttons.values());
    this.element.append(label, this.group, el("div", { className: "below" }, this.error));
  }

  button(choice) {
    const button = el("button", { type: "button", textContent: choiceWord(choice), "aria-pressed": "false" });
    button.addEventListener("click", () => choice !== this.value && this.apply(choice));
    return button;
  }

  main() {
    return this.group;
  }

  show() {
    for (const [choice, button] of this.buttons) {
      button.setAttribute("aria-pressed", String(choice === this.value));
      button.setAttribute("aria-disabled", String(this.locked || this.pending));
    }
  }
}
