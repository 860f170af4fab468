// The stream of events: connects, connects again, and notices a link that went silent.

import { applyChannel, applyInstrument, applyService } from "./store.js";

const RETRY_MS = [300, 600, 1000, 2000];
const SILENCE_MS = 25000;
const ANSWER_MS = 5000;

/** `state` is called with "live" after each connection's first event, and with "lost". */
export function follow(state) {
  let source = null;
  let failures = 0;
  let retry = 0;
  let live = false;
  let heard = performance.now();

  function handle(name, apply) {
    source.addEventListener(name, (event) => {
      heard = performance.now();
      failures = 0;
      apply(JSON.parse(event.data));
      if (!live) {
        live = true;
        state("live");
      }
    });
  }

  function pause() {
    clearTimeout(retry);
    source?.close();
    live = false;
  }

  function connect() {
    pause();
    source = new EventSource("api/v1/events");
    handle("instrument", applyInstrument);
    handle("channel", applyChannel);
    handle("service", applyService);
    source.onerror = lose;
  }

  function lose() {
    pause();
    state("lost");
    retry = setTimeout(connect, RETRY_MS[Math.min(failures++, RETRY_MS.length - 1)]);
  }

  // Keep-alives do not show here, and a pulled cable closes nothing.
  async function check() {
    if (!live || performance.now() - heard < SILENCE_MS) {
      return;
    }
    try {
      await fetch("api/v1/instrument", { cache: "no-store", signal: AbortSignal.timeout(ANSWER_MS) });
      heard = performance.now();
    } catch {
      lose();
    }
  }

  setInterval(check, ANSWER_MS);
  window.addEventListener("online", connect);
  // A page that nobody sees, or that is kept for going back, costs the instrument nothing; and a browser has few
  // connections to one server.
  document.addEventListener("visibilitychange", () => (document.hidden ? pause() : connect()));
  if (!document.hidden) {
    connect();
  }
}
