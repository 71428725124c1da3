// A sheet that slides up from below: a dialogue that keeps the keyboard and the screen reader inside.
import {button, element, focusKey, icon, replace} from "./dom.js";
import {t} from "./text.js";

let open = null;

function focusable(node) {
  return [...node.querySelectorAll("button, input, select, textarea, a[href]")].filter(
      (found) => !found.disabled);
}

// The Tab key goes round inside the sheet, and Escape closes it.
function onKey(event, box, close) {
  if (event.key === "Escape") return close();
  if (event.key !== "Tab") return undefined;
  const stops = focusable(box);
  const edge = event.shiftKey ? stops[0] : stops[stops.length - 1];
  if (document.activeElement !== edge && box.contains(document.activeElement)) return undefined;
  event.preventDefault();
  return (event.shiftKey ? stops[stops.length - 1] : stops[0]).focus();
}

function closeButton(close) {
  const node = button("", close, "round");
  node.setAttribute("aria-label", t("Close"));
  node.append(icon("close"));
  return node;
}

function behind() {
  return document.querySelectorAll("#main, #tabs, #top, #lost");
}

export function closeSheet() {
  if (open) open.close();
}

// What was said before would lie on the sheet's buttons.
function endToast() {
  replace(document.getElementById("toast"));
  document.documentElement.classList.remove("has-toast");
}

// Opens a sheet. Returns {show(...nodes), close(), isShown, onLeave(ending)}; `show` replaces what it holds,
// and what was given to `onLeave` is called when the sheet closes.
export function openSheet(title) {
  closeSheet();
  endToast();
  const opener = document.activeElement;
  const endings = [];
  const body = element("div", {class: "sheet-body"});
  const heading = element("h2", {id: "sheet-title", tabindex: "-1"}, title);
  const box = element(
      "div", {class: "sheet", role: "dialog", "aria-modal": "true", "aria-labelledby": "sheet-title"});
  const shade = element("div", {class: "shade"}, box);
  const close = () => {
    shade.remove();
    open = null;
    endings.forEach((ending) => ending());
    behind().forEach((node) => node.removeAttribute("aria-hidden"));
    document.documentElement.classList.remove("has-sheet");
    if (opener && opener.isConnected)
      opener.focus({preventScroll: true});
    else if (opener && opener.dataset.key !== undefined)
      focusKey(opener.dataset.key);
  };
  replace(box, element("header", {class: "sheet-head"}, heading, closeButton(close)), body);
  shade.addEventListener("click", (event) => event.target === shade && close());
  shade.addEventListener("keydown", (event) => onKey(event, box, close));
  behind().forEach((node) => node.setAttribute("aria-hidden", "true"));
  document.documentElement.classList.add("has-sheet");
  document.body.append(shade);
  heading.focus();
  open = {close};
  return {
    show(...nodes) {
      const hadFocus = body.contains(document.activeElement);
      replace(body, nodes);
      if (hadFocus) heading.focus();
    },
    close,
    get isShown() {
      return shade.isConnected;
    },
    onLeave: (ending) => endings.push(ending),
  };
}
