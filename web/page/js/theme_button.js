import { byId, setText } from "./dom.js";
import { local } from "./storage.js";

const NEXT = { auto: "light", light: "dark", dark: "auto" };
const WORDS = { auto: "Auto", light: "Light", dark: "Dark" };

function show(theme) {
  const button = byId("theme");
  setText(button, WORDS[theme]);
  button.dataset.theme = theme;
  button.setAttribute("aria-label", `Colours: ${WORDS[theme]}. Change to ${WORDS[NEXT[theme]]}`);
}

export function startThemeButton() {
  let theme = document.documentElement.dataset.theme ?? "auto";
  show(theme);
  byId("theme").addEventListener("click", () => {
    theme = NEXT[theme];
    if (theme === "auto") {
      delete document.documentElement.dataset.theme;
    } else {
      document.documentElement.dataset.theme = theme;
    }
    local.set("theme", theme);
    show(theme);
    document.dispatchEvent(new Event("themechange"));
  });
}
