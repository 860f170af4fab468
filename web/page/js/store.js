// What the instrument last said. Only live.js writes here.

const channels = new Map();
const listeners = new Map(); // "instrument", "service", "channel" => Set of functions
let instrument = {};

/** Merges `change` into `target`; objects member by member, everything else whole. */
export function merge(target, change) {
  for (const [name, value] of Object.entries(change)) {
    const nested = value !== null && typeof value === "object" && !Array.isArray(value);
    if (nested && target[name] !== null && typeof target[name] === "object") {
      merge(target[name], value);
    } else {
      target[name] = value;
    }
  }
  return target;
}

export function at(tree, path) {
  return path.split("/").reduce((branch, name) => branch?.[name], tree);
}

/** `{"am": {"depth_percent": value}}` for the path "am/depth_percent". */
export function nest(path, value) {
  return path.split("/").reduceRight((inner, name) => ({ [name]: inner }), value);
}

/** The limits of a setting, by its path or nested as the values are. */
export function limitsOf(channel, path) {
  return channel?.limits?.[path] ?? at(channel?.limits, path);
}

export function on(event, listener) {
  if (!listeners.has(event)) {
    listeners.set(event, new Set());
  }
  listeners.get(event).add(listener);
}

function emit(event, ...values) {
  for (const listener of listeners.get(event) ?? []) {
    listener(...values);
  }
}

export function applyInstrument(change) {
  // Members are sent whole, and a running command that has ended is null.
  Object.assign(instrument, change);
  emit("instrument", instrument);
}

export function applyService(change) {
  instrument.service = { ...instrument.service, ...change };
  emit("instrument", instrument);
}

export function applyChannel(change) {
  const number = change.channel;
  if (!channels.has(number)) {
    channels.set(number, {});
  }
  emit("channel", number, merge(channels.get(number), change));
}

export const getInstrument = () => instrument;
export const getChannel = (number) => channels.get(number) ?? {};
