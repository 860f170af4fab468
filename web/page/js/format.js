// Values as an instrument shows them: SI prefixes, grouped digits, the unit after a space.

const LARGE = [["G", 1e9], ["M", 1e6], ["k", 1e3], ["", 1]];
const SMALL = [["", 1], ["m", 1e3], ["µ", 1e6], ["n", 1e9]];
const UNITS = { deg: "°" };
const THIN_SPACE = "\u2009";

/** `[text of the number, prefix]`, with at most `digits` significant digits. */
function scaled(value, unit, digits) {
  const size = Math.abs(value);
  if (unit === "Hz" && size >= 1e3) {
    const [prefix, factor] = LARGE.find(([, factor]) => size >= factor);
    return [plain(value / factor, digits), prefix];
  }
  if (unit === "s" && size < 1 && size > 0) {
    const [prefix, factor] = SMALL.find(([, factor]) => size * factor >= 0.9999999999) ?? SMALL.at(-1);
    return [plain(value * factor, digits), prefix];
  }
  return [plain(value, digits), ""];
}

/** Digits without an exponent where that is readable, and without the noise of binary fractions. */
function plain(value, digits) {
  return String(Number(value.toPrecision(digits)));
}

function grouped(text) {
  const [whole, fraction] = text.split(".");
  if (fraction === undefined || fraction.length < 4 || fraction.includes("e")) {
    return text;
  }
  return `${whole}.${fraction.replace(/(\d{3})(?=\d)/g, `$1${THIN_SPACE}`)}`;
}

function withUnit(number, prefix, unit) {
  const shown = prefix + (UNITS[unit] ?? unit);
  return shown && shown !== "°" ? `${number} ${shown}` : number + shown;
}

/** For reading. */
export function format(value, setting) {
  if (value === null || value === undefined) {
    return "–";
  }
  if (typeof value === "boolean") {
    return value ? "On" : "Off";
  }
  if (typeof value !== "number" || setting.kind === "text") {
    return String(value);
  }
  const [number, prefix] = scaled(value, setting.unit, setting.unit === "Hz" ? 12 : 7);
  return withUnit(grouped(number), prefix, setting.unit);
}

/** For editing: every digit, in a form that the instrument accepts. */
export function formatForEdit(value, setting) {
  if (typeof value !== "number") {
    return value === null || value === undefined ? "" : String(value);
  }
  const [number, prefix] = scaled(value, setting.unit, 15);
  return setting.unit ? `${number} ${prefix}${setting.unit}` : number;
}

/** What was typed, with the unit added to a bare prefix: "2.5 G" is 2.5 GHz. */
export function withWholeUnit(text, { kind, unit }) {
  const prefixes = { Hz: /[\d.]\s*[gmk]$/i, s: /[\d.]\s*[muµn]$/i }[unit];
  return kind === "number" && prefixes?.test(text) ? text + unit : text;
}

/** "50 kHz to 20 GHz", or an empty text. */
export function formatRange(limits, setting) {
  if (!Array.isArray(limits) || limits[0] === null || limits[1] === null) {
    return "";
  }
  return `${format(limits[0], setting)} to ${format(limits[1], setting)}`;
}

export function formatDuration(seconds) {
  if (seconds < 60) {
    return `${Math.max(0, Math.floor(seconds))} s`;
  }
  if (seconds < 3600) {
    return `${Math.floor(seconds / 60)} min`;
  }
  if (seconds < 172800) {
    return `${Math.floor(seconds / 3600)} h ${Math.floor((seconds % 3600) / 60)} min`;
  }
  return `${Math.floor(seconds / 86400)} days`;
}

export function formatClock(milliseconds) {
  return new Date(milliseconds).toLocaleTimeString([], { hour: "2-digit", minute: "2-digit", second: "2-digit", hour12: false });
}
