// Temperatures and levels over the last ten minutes, by the chart library, which is loaded after the first paint.

import { get } from "./api.js";
import { byId, el, setText } from "./dom.js";
import { getChannel, getInstrument } from "./store.js";

const SECONDS = 600;
const STEP_MS = 2000;
const CHARTS = [
  { id: "chart-temperature", member: "temperature_celsius", unit: "°C", name: "Temperature", stepped: false },
  { id: "chart-level", member: "level_dbm", unit: "dBm", name: "Level", stepped: "before" },
];
let charts = [];
let timer = 0;

function loadLibrary() {
  return new Promise((resolve, reject) => {
    const script = el("script", { src: "charts/chart.js" });
    script.onload = resolve;
    script.onerror = () => reject(new Error("The chart library is not installed."));
    document.head.append(script);
  });
}

const token = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

function options(unit) {
  const scale = () => ({
    grid: { color: token("--line"), tickColor: token("--line"), borderColor: token("--line") },
    ticks: { color: token("--quiet"), maxRotation: 0, font: { family: token("--font"), size: fontSize() } },
  });
  const [x, y] = [scale(), scale()];
  return {
    animation: false,
    responsive: true,
    maintainAspectRatio: false,
    parsing: false,
    normalized: true,
    interaction: { mode: "index", intersect: false },
    elements: { point: { radius: 0 }, line: { borderWidth: 2, tension: 0 } },
    plugins: {
      legend: { display: false },
      tooltip: {
        callbacks: {
          title: ([item]) => `${formatAgo(item.parsed.x)}`,
          label: ({ dataset, parsed }) => `${dataset.label}: ${parsed.y} ${unit}`,
        },
      },
    },
    scales: {
      x: { ...x, type: "linear", min: -SECONDS, max: 0, ticks: { ...x.ticks, stepSize: 120, callback: (value) => (value ? `${value / 60} min` : "now") } },
      y: { ...y, afterFit: (axis) => { axis.width = 4 * fontSize(); }, grace: "15%", ticks: { ...y.ticks, maxTicksLimit: 5, precision: 1 } },
    },
  };
}

const fontSize = () => parseFloat(getComputedStyle(document.documentElement).fontSize) * 0.75;

function formatAgo(seconds) {
  const ago = Math.round(-seconds);
  return ago < 1 ? "now" : `${Math.floor(ago / 60)} min ${ago % 60} s ago`;
}

const numbers = () => Array.from({ length: getInstrument().channels ?? 0 }, (_, index) => index + 1);
const colour = (number) => token(`--channel-${number}`);

function make({ id, unit, stepped }) {
  const datasets = numbers().map((number) => ({
    label: `Channel ${number}`, data: [], borderColor: colour(number), backgroundColor: colour(number), stepped,
  }));
  return new window.Chart(byId(id), { type: "line", data: { datasets }, options: options(unit) });
}

function restyle() {
  charts.forEach((chart, index) => {
    chart.options = options(CHARTS[index].unit);
    chart.data.datasets.forEach((dataset, at) => {
      dataset.borderColor = dataset.backgroundColor = colour(at + 1);
    });
    chart.update("none");
  });
}

async function loadHistory() {
  const { seconds, channels } = await get("history");
  const now = Date.now() / 1000;
  const last = seconds.at(-1);
  charts.forEach((chart, index) => {
    chart.data.datasets.forEach((dataset, at) => {
      const values = channels.find(({ channel }) => channel === at + 1)?.[CHARTS[index].member] ?? [];
      dataset.points = seconds.map((second, point) => ({ at: now - (last - second), y: values[point] ?? NaN }));
    });
  });
}

/** Adds the present values and drops those that are too old. */
function sample() {
  const now = Date.now() / 1000;
  charts.forEach((chart, index) => {
    const { member, name, unit, id } = CHARTS[index];
    const latest = [];
    chart.data.datasets.forEach((dataset, at) => {
      const { [member]: value, failed, present } = getChannel(at + 1);
      const known = typeof value === "number" && !failed && present !== false;
      dataset.points = [...(dataset.points ?? []), { at: now, y: known ? value : NaN }].filter((point) => now - point.at <= SECONDS + 5);
      dataset.data = dataset.points.map((point) => ({ x: point.at - now, y: point.y }));
      latest.push(`channel ${at + 1} ${known ? `${value} ${unit}` : "unknown"}`);
    });
    chart.update("none");
    byId(id).setAttribute("aria-label", `${name} of the channels over ten minutes; now ${latest.join(", ")}`);
  });
}

async function resume() {
  clearInterval(timer);
  if (document.hidden || charts.length === 0) {
    return;
  }
  await loadHistory().catch(() => {});
  sample();
  timer = setInterval(sample, STEP_MS);
}

export const refreshCharts = resume;

export async function startCharts() {
  byId("chart-legend").replaceChildren(...numbers().map((number) =>
    el("li", { data: { channel: number }, textContent: `CH${number}` })));
  try {
    await loadLibrary();
  } catch (error) {
    setText(byId("chart-note"), error.message);
    byId("chart-note").hidden = false;
    return;
  }
  charts = CHARTS.map(make);
  await resume();
  document.addEventListener("visibilitychange", resume);
  document.addEventListener("themechange", restyle);
  window.matchMedia("(prefers-color-scheme: dark)").addEventListener("change", restyle);
}
