// A small curve of a target's memory, drawn as one line. Cards use it; large charts use Chart.js.
import {svg} from "./dom.js";

const width = 120;
const height = 32;
const margin = 3;

function pointsOf(samples) {
  const bytes = samples.map((sample) => sample.bytes);
  const [first, last] = [samples[0].timeMs, samples[samples.length - 1].timeMs];
  const lowest = Math.min(...bytes);
  const highest = Math.max(...bytes);
  // A curve of a process that hardly changes stays flat: at least 2 % of its memory is the full height.
  const range = Math.max(highest - lowest, highest * 0.02, 1);
  const middle = (highest + lowest) / 2;
  return samples.map(({timeMs, bytes: used}) => {
    const x = last > first ? ((timeMs - first) / (last - first)) * width : width;
    const y = height / 2 - ((used - middle) / range) * (height - 2 * margin);
    return `${x.toFixed(1)},${y.toFixed(1)}`;
  });
}

// Returns {node, draw(samples)}.
export function memoryCurve() {
  const line = svg("polyline", {class: "curve-line", points: ""});
  const area = svg("polygon", {class: "curve-area", points: ""});
  const box =
      {class: "curve", viewBox: `0 0 ${width} ${height}`, preserveAspectRatio: "none", "aria-hidden": "true"};
  return {
    node: svg("svg", box, area, line),
    draw(samples) {
      const points = samples.length > 1 ? pointsOf(samples) : [`0,${height / 2}`, `${width},${height / 2}`];
      const shown = samples.length > 0 ? points.join(" ") : "";
      line.setAttribute("points", shown);
      area.setAttribute("points", shown && `0,${height} ${shown} ${width},${height}`);
    },
  };
}
