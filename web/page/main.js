// Begins: takes the key out of the address, draws the frame, and shows the view that the address names.
import {onEdit} from "./actions.js";
import {goToFolder, logIn} from "./api.js";
import * as doctor from "./doctor.js";
import {button, element, icon, replace, setText} from "./dom.js";
import * as kills from "./kills.js";
import {connect, live, onChange, startLive, tryAgain} from "./live.js";
import * as log from "./log.js";
import * as now from "./now.js";
import * as processes from "./processes.js";
import {showAgain, startRouter} from "./router.js";
import {closeSheet} from "./sheet.js";
import * as target from "./target.js";
import {clockText, language, setLanguage, t} from "./text.js";

// The daemon waits for 150 ms after an edit.
const afterEditMs = 500;
const views = {
  now,
  processes,
  target,
  kills,
  log,
  doctor
};
const tabs = ["now", "processes", "kills", "log", "doctor"];

// Returns true if the page is left. The key must not stay in the address, where the history and a shared link
// would show it.
async function takeKey() {
  const found = /[#&]key=([0-9a-f]{32})/i.exec(location.hash);
  if (!found) return goToFolder();
  history.replaceState(null, "", `${location.pathname}#/now`);
  try {
    await logIn(found[1].toLowerCase());
    return true;
  } catch {
    // The first answer says the same, with the next step.
    return false;
  }
}

// An address that somebody pastes into this very page changes only its fragment.
function takePastedKey() {
  if (location.hash.includes("key=")) takeKey();
}

function drawTabs(shown) {
  const chosen = shown === "target" ? "now" : shown;
  replace(
      document.getElementById("tabs"),
      tabs.map(
          (name) => element(
              "a", {href: `#/${name}`, class: "tab", "aria-current": name === chosen ? "page" : null},
              icon(name), element("span", {}, views[name].title()))));
}

function drawTop(shown) {
  const other = language() === "zh" ? "English" : "中文";
  const change = () => {
    setLanguage(language() === "zh" ? "en" : "zh");
    drawLanguage();
    connect();
    showAgain();
  };
  const switchButton = button(other, change, "small language");
  switchButton.setAttribute("lang", language() === "zh" ? "en" : "zh-CN");
  replace(
      document.getElementById("top"), element("h1", {id: "title", tabindex: "-1"}, views[shown].title()),
      switchButton);
}

function drawLanguage() {
  document.documentElement.lang = language() === "zh" ? "zh-CN" : "en";
  document.getElementById("tabs").setAttribute("aria-label", t("Views"));
}

function lostText() {
  if (live.state !== "lost" || !live.status) return "";
  if (live.failure && live.failure.kind !== "unreachable") return live.failure.message;
  return t("No connection. This is how it stood at %s.", clockText(live.since));
}

// The strip that says that what is shown is old.
function drawLost() {
  const place = document.getElementById("lost");
  const text = lostText();
  place.hidden = text === "";
  if (text === "") return replace(place);
  if (!place.firstChild) replace(place, element("span", {}), button(t("Try again"), tryAgain, "small"));
  return setText(place.firstChild, text);
}

let wasLost = false;

// A view that failed while the server was away is loaded again when it is back.
function showWhenBack() {
  const isBack = wasLost && live.state === "live";
  wasLost = live.state === "lost" || (wasLost && !isBack);
  if (isBack && document.querySelector("#main .failure")) showAgain();
}

let isFirst = true;

function onShown(name, argument) {
  closeSheet();
  drawTop(name);
  drawTabs(name);
  document.title = `${argument || views[name].title()} – Vorlatch`;
  // The first view leaves the focus where the browser puts it; later ones tell screen readers their name.
  if (!isFirst) document.getElementById("title").focus({preventScroll: true});
  isFirst = false;
}

async function begin() {
  drawLanguage();
  if (await takeKey()) return;
  startLive();
  onChange(drawLost);
  onChange(showWhenBack);
  window.addEventListener("hashchange", takePastedKey);
  startRouter(document.getElementById("main"), views, onShown);
  onEdit(() => setTimeout(connect, afterEditMs));
  // Charts take their colours when they are drawn. The system also changes the scheme of pages that nobody
  // sees, for its pictures of them.
  const scheme = window.matchMedia("(prefers-color-scheme: dark)");
  scheme.addEventListener("change", () => document.hidden || showAgain());
}

begin();
