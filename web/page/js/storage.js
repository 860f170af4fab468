// The browser's storage, or nothing where it is switched off.

function safe(storage) {
  const attempt = (action) => {
    try {
      return action(window[storage]);
    } catch {
      return null;
    }
  };
  return {
    get: (name) => attempt((store) => store.getItem(name)),
    set: (name, value) => attempt((store) => store.setItem(name, value)),
    remove: (name) => attempt((store) => store.removeItem(name)),
  };
}

/** Until the tab is closed. */
export const session = safe("sessionStorage");
/** For good. */
export const local = safe("localStorage");
