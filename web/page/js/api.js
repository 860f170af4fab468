// The instrument's REST interface, with the password's token.

import { session } from "./storage.js";

const BASE = "api/v1/";
const TOKEN = "token";
let token = session.get(TOKEN);
let signIn = async () => false;

export class Refusal extends Error {
  constructor(status, problem) {
    super(problem.detail || problem.title || `The instrument answered with status ${status}.`);
    this.status = status;
    this.problem = problem;
  }
}

/** `ask(refusal)` resolves to true when there is a new token. */
export function onSignIn(ask) {
  signIn = ask;
}

export const hasToken = () => token !== null;

function keepToken(value) {
  token = value;
  if (value === null) {
    session.remove(TOKEN);
  } else {
    session.set(TOKEN, value);
  }
}

async function send(method, path, body) {
  const headers = {};
  if (body !== undefined) {
    headers["Content-Type"] = "application/json";
  }
  if (hasToken()) {
    headers.Authorization = `Bearer ${token}`;
  }
  let response;
  try {
    response = await fetch(BASE + path, { method, headers, body: body && JSON.stringify(body), cache: "no-store" });
  } catch {
    throw new Refusal(0, { detail: "The instrument cannot be reached." });
  }
  const text = await response.text();
  let content = {};
  try {
    content = text ? JSON.parse(text) : {};
  } catch {
    content = { detail: text.slice(0, 200) };
  }
  if (!response.ok) {
    throw new Refusal(response.status, content);
  }
  return content;
}

export const get = (path) => send("GET", path);

/** A request that changes something: asks for the password and repeats it where that is what is missing. */
export async function change(method, path, body = method === "DELETE" ? undefined : {}) {
  try {
    return await send(method, path, body);
  } catch (refusal) {
    if (refusal.status !== 401 && refusal.status !== 403) {
      throw refusal;
    }
    if (refusal.status === 401) {
      keepToken(null);
    }
    if (!(await signIn(refusal))) {
      throw refusal;
    }
    return send(method, path, body);
  }
}

export async function openSession(password) {
  keepToken(null);
  keepToken((await send("POST", "session", { password })).token);
}

export async function closeSession() {
  try {
    await send("DELETE", "session");
  } finally {
    keepToken(null);
  }
}
