// Returns what a reader would find wrong in what is in sight: text cut or out of the screen, too little
// contrast, controls too small to tap. arguments: the width of the screen, and whether it is dark.
const [width, isDark] = arguments;
const smallestTapPx = 43.5;
const faults = new Set();
const nameOf = (node) =>
    `${node.tagName.toLowerCase()}.${node.getAttribute("class")} "${node.textContent.trim().slice(0, 30)}"`;
const hasOwnText =
    (node) => [...node.childNodes].some((child) => child.nodeType === Node.TEXT_NODE && child.data.trim());
const isInSight = (node) => node.getClientRects().length > 0 && !node.closest("[hidden], option");

function numbersOf(colour) {
  const [red, green, blue, alpha = 1] = colour.match(/[\d.]+/g).map(Number);
  return [red, green, blue, alpha];
}

function over(front, back) {
  const alpha = front[3];
  return [0, 1, 2].map((index) => front[index] * alpha + back[index] * (1 - alpha)).concat(1);
}

// The colour behind a node: the backgrounds of all that it is in, one upon the other.
function backgroundOf(node) {
  const layers = [];
  for (let each = node; each; each = each.parentElement)
    layers.unshift(numbersOf(getComputedStyle(each).backgroundColor));
  return layers.reduce((back, front) => over(front, back), isDark ? [18, 18, 18, 1] : [255, 255, 255, 1]);
}

function luminance(colour) {
  const [red, green, blue] = colour.slice(0, 3).map((part) => {
    const share = part / 255;
    return share <= 0.03928 ? share / 12.92 : ((share + 0.055) / 1.055) ** 2.4;
  });
  return 0.2126 * red + 0.7152 * green + 0.0722 * blue;
}

function contrastOf(node) {
  const back = backgroundOf(node);
  const colour = numbersOf(getComputedStyle(node).color);
  for (let each = node; each; each = each.parentElement) colour[3] *= Number(getComputedStyle(each).opacity);
  const [light, dark] = [luminance(over(colour, back)), luminance(back)].sort((a, b) => b - a);
  return (light + 0.05) / (dark + 0.05);
}

function isLarge({fontSize, fontWeight}) {
  return parseFloat(fontSize) >= 24 || (parseFloat(fontSize) >= 18.66 && Number(fontWeight) >= 700);
}

if (innerWidth !== width) faults.add(`the screen is ${innerWidth} wide`);
if (matchMedia("(prefers-color-scheme: dark)").matches !== isDark) faults.add("the other colour scheme");
if (document.documentElement.scrollWidth > width)
  faults.add(`scrolls sideways: ${document.documentElement.scrollWidth}`);
for (const node of [...document.body.querySelectorAll("*")].filter(isInSight)) {
  const box = node.getBoundingClientRect();
  if (box.width > 0 && (box.right > width + 1 || box.left < -1))
    faults.add(`out of the screen: ${nameOf(node)}`);
  if (node.matches("button, a[href], input, select, textarea")) {
    const tapped = (node.closest("label") || node).getBoundingClientRect();
    if (tapped.height < smallestTapPx || tapped.width < smallestTapPx)
      faults.add(`small, ${Math.round(tapped.width)} x ${Math.round(tapped.height)}: ${nameOf(node)}`);
  }
  if (!hasOwnText(node)) continue;
  const style = getComputedStyle(node);
  const isCut = node.scrollWidth > node.clientWidth + 1 ||
      (style.overflowY === "hidden" && node.scrollHeight > node.clientHeight + 1);
  if (isCut && style.display !== "inline" && node.tagName !== "TEXTAREA") faults.add(`cut: ${nameOf(node)}`);
  const contrast = contrastOf(node);
  if (contrast < (isLarge(style) ? 3 : 4.5)) faults.add(`contrast ${contrast.toFixed(2)}: ${nameOf(node)}`);
}
return [...faults];
