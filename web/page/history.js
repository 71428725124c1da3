// The edits that can be taken back, the last one first.
import {changeList, onEdit, proposeUndo} from "./actions.js";
import {look} from "./api.js";
import {button, element, replace} from "./dom.js";
import {card, failureCard, section} from "./pieces.js";
import {agoText, t, timeText} from "./text.js";

function editNode({number, time, changes, count}) {
  const more = (count || 0) - changes.length;
  return element(
      "li", {class: "edit"},
      element(
          "div", {class: "edit-head"},
          element(
              "span", {class: "row-words"}, element("strong", {}, agoText(time)),
              element("span", {class: "hint"}, timeText(time))),
          button(number === 1 ? t("Undo…") : t("Undo to here…"), () => proposeUndo(number), "small")),
      changeList(changes), more > 0 ? element("p", {class: "hint"}, t("and %s more", more)) : null);
}

// Shows the edits in `place`, and again after each edit.
export function historySection(page, place) {
  const draw = async () => {
    try {
      const {edits} = await look(["undo", "--list"]);
      if (!page.isShown) return;
      replace(
          place,
          section(
              t("Last edits"),
              card(
                  edits.length > 0 ?
                      element("ul", {class: "rows"}, edits.map(editNode)) :
                      element("p", {class: "hint"}, t("There is no edit to take back yet.")))));
    } catch (failure) {
      if (page.isShown) replace(place, section(t("Last edits"), failureCard(failure, draw)));
    }
  };
  page.onLeave(onEdit(draw));
  draw();
}
