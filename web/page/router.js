// Shows the view that the address names: #/now, #/target/NAME.
import {element, redraw, replace} from "./dom.js";
import {failureCard} from "./pieces.js";

let views = {};
let main = null;
let page = null;
let onShown = () => {};

function parseHash() {
  const [name, ...rest] = location.hash.replace(/^#\/?/, "").split("/");
  let argument = rest.join("/");
  try {
    argument = decodeURIComponent(argument);
  } catch {
    // Somebody typed a lone %: the name is taken as it stands.
  }
  return views[name] ? {name, argument} : {name: "now", argument: ""};
}

// What a view gets: where to put its elements, and what ends when the reader leaves it.
function openPage(body) {
  const endings = [];
  const opened = {
    body,
    isShown: true,
    onLeave: (ending) => endings.push(ending),
    // Repeats the work while the view is shown and the page is visible, but not while the last one runs, nor
    // while the reader is asked for the key.
    every(intervalMs, work) {
      let isBusy = false;
      const repeat = async () => {
        if (document.hidden || isBusy || body.querySelector("#key")) return;
        isBusy = true;
        try {
          await work();
        } finally {
          isBusy = false;
        }
      };
      const timer = setInterval(repeat, intervalMs);
      endings.push(() => clearInterval(timer));
    },
    // Shows what `load` returns; on a failure its reason, with a button that tries again.
    async load(place, load) {
      try {
        const nodes = await load();
        if (opened.isShown) redraw(place, nodes);
      } catch (failure) {
        if (opened.isShown) replace(place, failureCard(failure, () => opened.load(place, load)));
      }
    },
    leave() {
      opened.isShown = false;
      endings.forEach((ending) => ending());
    },
  };
  return opened;
}

function show() {
  const {name, argument} = parseHash();
  if (page) page.leave();
  const body = element("div", {class: `view ${name}`});
  page = openPage(body);
  replace(main, body);
  views[name].show(page, argument);
  onShown(name, argument);
  window.scrollTo(0, 0);
}

// Draws the present view anew, for another language or colour scheme.
export function showAgain() {
  show();
}

export function goTo(name, argument) {
  location.hash = argument === undefined ? `#/${name}` : `#/${name}/${encodeURIComponent(argument)}`;
}

export function targetAddress(target) {
  return `#/target/${encodeURIComponent(target)}`;
}

export function startRouter(place, table, shown) {
  main = place;
  views = table;
  onShown = shown;
  window.addEventListener("hashchange", show);
  show();
}
