// Who may change something: the password's dialog, the button that opens it, and the read-only mark.

import { closeSession, hasToken, onSignIn, openSession } from "./api.js";
import { ask } from "./dialog.js";
import { byId, el, setText } from "./dom.js";
import { getInstrument, on } from "./store.js";

/** Nothing that this page could do would permit a change. */
export function isLocked(instrument = getInstrument()) {
  const access = instrument.access;
  return Boolean(access) && !access.changes;
}

async function signIn(reason) {
  const password = el("input", { type: "password", id: "password", autocomplete: "current-password", required: true });
  const signedIn = await ask({
    title: "Sign in to change settings",
    body: [
      el("p", { textContent: reason || "This instrument asks for its password before anything is changed." }),
      el("label", { for: "password", textContent: "Password" }),
      password,
    ],
    ok: "Sign in",
    accept: () => openSession(password.value),
  });
  show();
  return signedIn;
}

async function onRefusal(refusal) {
  if (refusal.status === 401 || (getInstrument().access?.password_set && !hasToken())) {
    return signIn(refusal.message);
  }
  await ask({
    title: "Changes are off",
    body: [el("p", { textContent: refusal.message })],
    ok: "Close",
    cancel: false,
  });
  return false;
}

function show() {
  const button = byId("access");
  const access = getInstrument().access ?? {};
  const locked = isLocked();
  button.hidden = !locked && !access.password_set;
  button.classList.toggle("locked", locked || !hasToken());
  setText(button, locked ? "Read only" : hasToken() ? "Sign out" : "Sign in");
  button.title = access.reason ?? "";
}

async function click() {
  if (isLocked()) {
    await ask({
      title: "Read only",
      body: [el("p", { textContent: getInstrument().access.reason || "This instrument takes no changes from this page." })],
      ok: "Close",
      cancel: false,
    });
  } else if (hasToken()) {
    await closeSession().catch(() => {});
    show();
  } else {
    await signIn("");
  }
}

export function startAccess() {
  onSignIn(onRefusal);
  on("instrument", show);
  byId("access").addEventListener("click", click);
}
