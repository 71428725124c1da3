// Profiles: sets of targets under a name, saved, used and removed.
import {onEdit, proposeEdit} from "./actions.js";
import {look} from "./api.js";
import {button, element, replace} from "./dom.js";
import {card, failureCard, mark, section} from "./pieces.js";
import {openSheet} from "./sheet.js";
import {numberText, t} from "./text.js";

function proposeUse(name) {
  proposeEdit({
    title: t("Use “%s”", name),
    words: ["profile", "use", "--", name],
    confirm: t("Use it"),
    explain: t("This replaces all targets by those of the profile."),
  });
}

function proposeRemove(name) {
  proposeEdit({
    title: t("Remove “%s”", name),
    words: ["profile", "remove", "--", name],
    confirm: t("Remove"),
    danger: true,
    hasNoUndo: true,
    explain: [
      t("This removes the profile. The targets that are configured now stay as they are."),
      t("It cannot be undone.")
    ],
    said: t("The profile is removed."),
  });
}

function askName() {
  const sheet = openSheet(t("Save as a profile"));
  const input = element("input", {type: "text", id: "profile-name", class: "input", maxlength: "60"});
  const form = (event) => {
    event.preventDefault();
    if (!input.value.trim()) return;
    proposeEdit(
        {
          title: t("Save as a profile"),
          words: ["profile", "save", "--", input.value.trim()],
          confirm: t("Save"),
          hasNoUndo: true,
          explain: t("This keeps the present targets under the name “%s”.", input.value.trim()),
          said: t("The profile is saved."),
          back: () => sheet.show(fields),
        },
        sheet);
  };
  const fields = element(
      "form", {class: "stack", onSubmit: form},
      element(
          "p", {}, t("A profile keeps all targets and their settings, so that you can change between sets.")),
      element("label", {"for": "profile-name"}, t("Name")), input,
      element(
          "div", {class: "buttons"},
          element("button", {type: "submit", class: "button primary"}, t("Continue"))));
  sheet.show(fields);
  input.focus();
}

function profileRow({name, targets, in_use: inUse}) {
  const count = targets === null ? t("cannot be read") : t("targets: %s", numberText(targets));
  return element(
      "li", {class: "row"},
      element(
          "span", {class: "row-words"}, element("strong", {}, name), element("span", {class: "hint"}, count)),
      inUse ? mark("good", t("in use")) : button(t("Use"), () => proposeUse(name), "small"),
      button(t("Remove"), () => proposeRemove(name), "small"));
}

async function profileNodes() {
  const {profiles} = await look(["profile", "list"]);
  return section(
      t("Profiles"),
      card(
          profiles.length > 0 ? element("ul", {class: "rows"}, profiles.map(profileRow)) :
                                element("p", {class: "hint"}, t("No profile is saved yet.")),
          element("div", {class: "buttons"}, button(t("Save the present targets…"), askName))));
}

// Shows the profiles in `place`, and again after each edit.
export function profileSection(page, place) {
  const draw = async () => {
    try {
      const nodes = await profileNodes();
      if (page.isShown) replace(place, nodes);
    } catch (failure) {
      if (page.isShown) replace(place, section(t("Profiles"), failureCard(failure, draw)));
    }
  };
  page.onLeave(onEdit(draw));
  draw();
}
