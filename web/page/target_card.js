// A target's card on the first view: is it held, its memory as a curve, its band, its last kill.
import {bandText} from "./bands.js";
import {memoryCurve} from "./curve.js";
import {element, replace, setText} from "./dom.js";
import {samplesOf} from "./live.js";
import {avatar, kindOf, limitBar} from "./pieces.js";
import {targetAddress} from "./router.js";
import {agoText, numberText, sizeText, t} from "./text.js";

const reasons = {
  overridden: "The system changed it since. A timer would hold it again.",
  "not-applied-yet": "The daemon has not applied it yet.",
  "stale-status": "The daemon does not run, or its entry is of an earlier process.",
  "not-running": "It is held as soon as it runs.",
};

// Why a target is not held, in words; null if it is.
export function reasonText({verdict, now}) {
  if (verdict === "stale-status" && !now)
    return t("Its process has ended. The daemon sees that at its next look.");
  return reasons[verdict] ? t(reasons[verdict]) : null;
}

function memoryText(now) {
  if (!now) return "";
  if (!now.memory) return t("hidden");
  return sizeText(now.memory.used_bytes);
}

function limitText(now) {
  if (!now || !now.memory || !now.memory.limit_mb) return "";
  return t("of %s MB", numberText(now.memory.limit_mb));
}

function killText(kill) {
  return kill ? t("Ended %s: %s", agoText(kill.time), kill.reason_text) : "";
}

// The home screen's name of the target's app, otherwise its process's, otherwise its own.
export function shownName(target) {
  return target.display_name || (target.now && target.now.name) || target.target;
}

// Returns {node, draw(target), remark(text)}.
export function targetCard(name) {
  const curve = memoryCurve();
  const parts = {
    title: element("strong", {class: "card-title"}),
    subtitle: element("span", {class: "card-subtitle"}),
    avatar: element("span", {class: "avatar-place"}),
    mark: element("span", {}),
    memory: element("strong", {}),
    limit: element("span", {class: "hint"}),
    band: element("p", {class: "card-note"}),
    bar: element("span", {class: "bar-place"}),
    reason: element("p", {class: "card-note"}),
    kill: element("p", {class: "card-note"}),
  };
  let remark = "";
  const drawNames = (target) => {
    const shown = shownName(target);
    if (parts.title.textContent !== shown) replace(parts.avatar, avatar(shown, target.display_name && name));
    setText(parts.title, shown);
    setText(parts.subtitle, [shown === name ? "" : name, remark].filter(Boolean).join(" · "));
  };
  let last = {target: name};
  const node = element(
      "li", {},
      element(
          "a", {class: "card target-card", href: targetAddress(name)},
          element(
              "span", {class: "card-head"}, parts.avatar,
              element("span", {class: "card-names"}, parts.title, parts.subtitle), parts.mark),
          element(
              "span", {class: "card-figures"}, element("span", {class: "figure"}, parts.memory, parts.limit),
              curve.node),
          parts.bar, parts.band, parts.reason, parts.kill));
  return {
    node,
    draw(target) {
      last = target;
      drawNames(target);
      setText(parts.mark, target.verdict_text);
      parts.mark.className = `mark ${kindOf(target.verdict)}`;
      setText(parts.memory, memoryText(target.now));
      setText(parts.limit, limitText(target.now));
      setText(parts.band, target.now ? t("Band %s", bandText(target.now.band)) : "");
      node.classList.toggle("without-figures", !target.now);
      replace(parts.bar, limitBar(target.now && target.now.memory));
      setText(parts.reason, reasonText(target) || "");
      setText(parts.kill, killText(target.last_kill));
      curve.draw(samplesOf(name));
    },
    remark(text) {
      remark = typeof text === "string" ? text : "";
      drawNames(last);
    },
  };
}
