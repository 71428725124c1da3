// A target's memory over the last samples, with its limit as a line.
import {axis, colour, drawChart} from "./charts.js";
import {element, setText} from "./dom.js";
import {samplesOf} from "./live.js";
import {bytesPerMegabyte, megabytesOf, numberText, sizeText, t} from "./text.js";

function points(samples) {
  return samples.map(({timeMs, bytes}) => ({x: (timeMs - Date.now()) / 1000, y: megabytesOf(bytes)}));
}

// Seconds before now, without the minus sign.
function agoTick(value) {
  return value === 0 ? t("now") : t("%s s ago", numberText(Math.abs(Math.round(value))));
}

// A little room above and below the curve, but nothing below zero.
function rangeOf(samples) {
  const used = samples.map((sample) => megabytesOf(sample.bytes));
  const lowest = Math.min(...used);
  const highest = Math.max(...used);
  const room = Math.max((highest - lowest) * 0.2, highest * 0.05, 0.1);
  return {min: Math.max(0, lowest - room), max: highest + room};
}

function configOf(samples) {
  return {
    type: "line",
    data: {
      datasets: [{
        data: points(samples),
        borderColor: colour("accent"),
        backgroundColor: colour("accent-soft"),
        borderWidth: 2,
        pointRadius: 0,
        fill: true,
        tension: 0.25
      }]
    },
    options: {
      events: [],
      scales: {
        x: axis(
            {type: "linear", max: 0, grid: {display: false}, ticks: {callback: agoTick, maxTicksLimit: 4}}),
        y: axis({
          ...rangeOf(samples),
          ticks: {
            maxTicksLimit: 5,
            includeBounds: false,
            callback: (value) => sizeText(value * bytesPerMegabyte)
          }
        }),
      }
    },
  };
}

// Returns {node, draw(target)}. The box shows only while there are two samples or more.
export function targetChart(page, name) {
  const box = element("div", {class: "chart"});
  const words = element("p", {class: "hint"});
  const node = element("div", {class: "card", hidden: true}, box, words);
  let drawing = null;
  let chart = null;
  return {
    node,
    draw(target) {
      const samples = samplesOf(name);
      node.hidden = !target || !target.now || samples.length < 2;
      if (node.hidden) return;
      const last = samples[samples.length - 1];
      const limit = target.now.memory && target.now.memory.limit_mb;
      setText(
          words,
          limit ? t("Memory since this page was opened. The limit is %s MB.", numberText(limit)) :
                  t("Memory since this page was opened."));
      if (chart) {
        chart.data.datasets[0].data = points(samples);
        Object.assign(chart.options.scales.y, rangeOf(samples));
        chart.update("none");
      } else if (!drawing) {
        drawing = drawChart(page, box, t("Memory: %s now", sizeText(last.bytes)), configOf(samples));
        drawing.then((drawn) => {
          chart = drawn;
        });
      }
    },
  };
}
