// Builds elements. Texts become text nodes, so that no name of a process is ever read as HTML.

const svgNamespace = "http://www.w3.org/2000/svg";

function setProperty(node, name, value) {
  if (value === null || value === undefined || value === false) return;
  if (typeof value === "function")
    node.addEventListener(name.replace(/^on/, "").toLowerCase(), value);
  else
    node.setAttribute(name, value === true ? "" : value);
}

function fill(node, children) {
  for (const child of children.flat(Infinity)) {
    if (child !== null && child !== undefined && child !== false) node.append(child);
  }
  return node;
}

// element("button", { class: "quiet", onClick: close }, "Close"): properties are attributes or
// listeners; children are nodes, texts, lists of them, or null.
export function element(tag, properties = {}, ...children) {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) setProperty(node, name, value);
  return fill(node, children);
}

export function svg(tag, properties = {}, ...children) {
  const node = document.createElementNS(svgNamespace, tag);
  for (const [name, value] of Object.entries(properties)) setProperty(node, name, value);
  return fill(node, children);
}

export function replace(node, ...children) {
  node.textContent = "";
  return fill(node, children);
}

// Shows the children in place of the present ones, of which it keeps those that look the same, so that
// a tap or the screen reader's place on them is not lost. What had the focus has it again, by data-key.
export function redraw(node, ...children) {
  const focused = document.activeElement;
  const key = node.contains(focused) ? focused.dataset.key : undefined;
  const fresh = fill(node.cloneNode(false), children);
  const count = fresh.childNodes.length;
  [...fresh.childNodes].forEach((child, index) => {
    const old = node.childNodes[index];
    if (!old)
      node.append(child);
    else if (!old.isEqualNode(child))
      node.replaceChild(child, old);
  });
  while (node.childNodes.length > count) node.lastChild.remove();
  if (key !== undefined && !focused.isConnected) focusKey(key);
}

export function focusKey(key) {
  const found = document.querySelector(`[data-key="${CSS.escape(key)}"]`);
  if (found) found.focus({preventScroll: true});
}

// Leaves an unchanged text alone, because screen readers announce what is written again.
export function setText(node, text) {
  if (node.textContent !== text) node.textContent = text;
}

export function button(text, onClick, kind = "plain") {
  return element("button", {type: "button", class: `button ${kind}`, onClick}, text);
}

const shapes = {
  now: "M3 12h4l3-7 4 14 3-7h4",
  processes: "M4 6h16M4 12h16M4 18h10",
  kills: "M12 3 2.5 20h19L12 3zm0 6.5v5m0 2.6v.4",
  log: "M6 3h9l4 4v14H6zM9 11h7M9 15h7",
  doctor:
      "M12 20s-8-4.6-8-10.4A4.6 4.6 0 0 1 12 7a4.6 4.6 0 0 1 8 2.6C20 15.4 12 20 12 20zM12 10.5v5M9.5 13h5",
  forward: "M9 5l7 7-7 7",
  back: "M15 5l-7 7 7 7",
  close: "M6 6l12 12M18 6L6 18",
  refresh: "M20 12a8 8 0 1 1-2.5-5.8M20 3v4.5h-4.5",
};

// A drawing beside a text that says the same, so screen readers pass over it.
export function icon(name) {
  const box = {class: "icon", viewBox: "0 0 24 24", "aria-hidden": "true", focusable: "false"};
  return svg("svg", box, svg("path", {d: shapes[name]}));
}
