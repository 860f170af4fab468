// The page's one dialog: a question with a body, an answer, and an error that keeps it open.

import { byId, setText } from "./dom.js";

const dialog = byId("dialog");

/**
 * Resolves to true when `accept` (which may throw, and is then shown as an error) has passed, to false on Cancel.
 * Without `cancel` there is only one button.
 */
export function ask({ title, body = [], ok, danger = false, cancel = true, accept = async () => {} }) {
  if (dialog.open) {
    return Promise.resolve(false);
  }
  const form = byId("dialog-form");
  const submit = byId("dialog-ok");
  setText(byId("dialog-title"), title);
  byId("dialog-body").replaceChildren(...body);
  setText(byId("dialog-error"), "");
  setText(submit, ok);
  submit.classList.toggle("danger", danger);
  submit.disabled = false;
  byId("dialog-cancel").hidden = !cancel;
  dialog.showModal();
  // The harmless button first; a field where there is one.
  (dialog.querySelector("#dialog-body input") ?? (cancel && danger ? byId("dialog-cancel") : submit)).focus();
  return new Promise((resolve) => {
    let accepted = false;
    form.onsubmit = async (event) => {
      event.preventDefault();
      submit.disabled = true;
      try {
        await accept();
        accepted = true;
        dialog.close();
      } catch (error) {
        setText(byId("dialog-error"), error.message);
      }
      submit.disabled = false;
    };
    byId("dialog-cancel").onclick = () => dialog.close();
    dialog.onclose = () => resolve(accepted);
  });
}
