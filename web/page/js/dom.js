/** An element with properties, attributes (names with a hyphen, `role`, `for`), data and children. */
export function el(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (name === "data") {
      Object.assign(element.dataset, value);
    } else if (name.includes("-") || name === "role" || name === "for" || name === "scope") {
      element.setAttribute(name, value);
    } else {
      element[name] = value;
    }
  }
  element.append(...children);
  return element;
}

export const byId = (id) => document.getElementById(id);

/** Writes only a text that differs, so that an unchanged value causes no layout. */
export function setText(element, text) {
  if (element.textContent !== text) {
    element.textContent = text;
  }
}

/** Speaks to screen readers without moving the focus. */
export function announce(text) {
  byId("status").textContent = text;
}
