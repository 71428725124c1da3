// Charts by Chart.js, which is loaded when the first view draws one.
import {element} from "./dom.js";
import {megabytesOf, numberText} from "./text.js";

let loaded = null;

function loadChart() {
  loaded = loaded || new Promise((resolve, reject) => {
             const fail = () => {
               loaded = null;
               reject(new Error("chart.js"));
             };
             document.head.append(
                 element("script", {src: "chart.js", onLoad: () => resolve(window.Chart), onError: fail}));
           });
  return loaded;
}

// A colour of style.css by its name, so that light and dark are decided there alone.
export function colour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
}

function sharedOptions() {
  const rem = parseFloat(getComputedStyle(document.documentElement).fontSize);
  return {
    animation: false,
    responsive: true,
    maintainAspectRatio: false,
    font: {family: "-apple-system, system-ui, sans-serif", size: rem * 0.75},
    plugins: {legend: {display: false}},
  };
}

// An axis with thin lines and the colour of secondary text.
export function axis(options) {
  return {
    grid: {color: colour("line"), drawBorder: false},
    ...options,
    ticks: {color: colour("secondary"), maxRotation: 0, autoSkipPadding: 12, ...options.ticks},
  };
}

function shortened(name) {
  return name.length > 16 ? `${name.slice(0, 15)}…` : name;
}

// An axis of megabytes.
export function memoryAxis(options) {
  const ticks = {...options.ticks, callback: (value) => `${numberText(value)} MB`};
  return axis({beginAtZero: true, ...options, ticks});
}

// Bars from left to right, each with a name, its bytes and the name of a colour.
export function barConfig(bars) {
  return {
    type: "bar",
    data: {
      labels: bars.map((bar) => shortened(bar.name)),
      datasets: [{
        data: bars.map((bar) => megabytesOf(bar.bytes)),
        borderRadius: 4,
        maxBarThickness: 18,
        backgroundColor: bars.map((bar) => colour(bar.colour))
      }]
    },
    options: {
      indexAxis: "y",
      events: [],
      scales: {
        x: memoryAxis({ticks: {maxTicksLimit: 3}}),
        y: axis({grid: {display: false}, ticks: {color: colour("text"), autoSkip: false}})
      },
    },
  };
}

// Draws into a box of fixed height on a page or a sheet. Without Chart.js the box disappears: the numbers
// stand beside it. Returns a promise of the chart, or of null.
export async function drawChart(page, box, label, config) {
  const canvas = element("canvas", {role: "img", "aria-label": label});
  box.append(canvas);
  try {
    const Chart = await loadChart();
    if (!page.isShown || !canvas.isConnected) return null;
    const options = {...sharedOptions(), ...config.options};
    options.plugins = {...sharedOptions().plugins, ...(config.options || {}).plugins};
    const chart = new Chart(canvas, {...config, options});
    page.onLeave(() => chart.destroy());
    return chart;
  } catch {
    box.remove();
    return null;
  }
}
