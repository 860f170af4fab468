// Runs before the first paint, so that a chosen theme does not flash in the other one.
(() => {
  let chosen = null;
  try {
    chosen = localStorage.getItem("theme");
  } catch {
    // Storage is switched off: the system's theme is used.
  }
  if (chosen === "light" || chosen === "dark") {
    document.documentElement.dataset.theme = chosen;
  }
})();
