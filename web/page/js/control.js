// What all controls of a setting share: its place, the change and its outcome at the control.

import { change } from "./api.js";
import { announce, el, setText } from "./dom.js";
import { format, formatRange } from "./format.js";
import { applyChannel, at, limitsOf, nest } from "./store.js";

let created = 0;

export class Control {
  constructor(setting, number) {
    this.setting = setting;
    this.number = number;
    this.id = `setting-${++created}`;
    this.value = undefined;
    this.pending = false;
    this.locked = Boolean(setting.read_only);
    this.hint = el("p", { className: "hint", id: `${this.id}-hint` });
    this.error = el("p", { className: "error", id: `${this.id}-error`, role: "alert" });
    this.element = el("div", { className: `setting ${setting.kind}`, data: { path: setting.path } });
  }

  /** Called with the channel's object whenever it has changed. */
  update(channel) {
    setText(this.hint, this.hintText(channel));
    const value = at(channel, this.setting.path);
    if (value !== this.value) {
      this.value = value;
      this.show();
    }
  }

  hintText(channel) {
    const range = formatRange(limitsOf(channel, this.setting.path), this.setting);
    const unit = this.setting.unit && this.setting.kind === "number" ? `Without a unit: ${this.setting.unit}.` : "";
    return [range && `${range}.`, unit].filter(Boolean).join(" ");
  }

  lock(locked) {
    const now = locked || Boolean(this.setting.read_only);
    if (now !== this.locked) {
      this.locked = now;
      this.show();
    }
  }

  /** Asks the module for `value`; true if it took it. */
  async apply(value) {
    if (this.pending || this.locked) {
      return false;
    }
    this.setPending(true);
    this.clearError();
    try {
      const { channel } = await change("PATCH", `channels/${this.number}`, nest(this.setting.path, value));
      this.setPending(false);
      this.accept(channel);
      return true;
    } catch (refusal) {
      this.setPending(false);
      this.reject(refusal);
      return false;
    }
  }

  accept(channel) {
    if (channel) {
      applyChannel(channel);
    }
    this.element.classList.add("applied");
    this.element.addEventListener("animationend", () => this.element.classList.remove("applied"), { once: true });
    announce(`Channel ${this.number}, ${this.setting.label}: ${format(this.value, this.setting)}`);
  }

  reject(refusal) {
    const { errors = [], channel } = refusal.problem ?? {};
    if (channel) {
      applyChannel(channel);
    }
    const own = errors.find((error) => error.field === this.setting.path) ?? errors[0];
    setText(this.error, own ? `${own.text} (${own.number})` : refusal.message);
    this.element.classList.add("invalid");
    this.main().setAttribute("aria-invalid", "true");
    this.show();
  }

  clearError() {
    setText(this.error, "");
    this.element.classList.remove("invalid");
    this.main().removeAttribute("aria-invalid");
  }

  setPending(pending) {
    this.pending = pending;
    this.element.classList.toggle("pending", pending);
    this.main().setAttribute("aria-busy", String(pending));
    this.show();
  }
}
