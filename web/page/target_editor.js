// The sheet that changes one setting: choose a value, see what it does, set it, or put it back to nothing.
import {proposeEdit} from "./actions.js";
import {bandChoices, bandText} from "./bands.js";
import {button, element, setText} from "./dom.js";
import {failureCard, loading, memoryWords} from "./pieces.js";
import {suggestedLimitMb} from "./process_choices.js";
import {openSheet} from "./sheet.js";
import {numberText, t} from "./text.js";

let radioGroups = 0;

// Radio buttons. Returns {nodes, value()}.
function radios(choices, chosen) {
  radioGroups += 1;
  const name = `radio${radioGroups}`;
  let value = chosen;
  const row = (choice) => element(
      "label", {class: choice.isNow ? "option now-here" : "option"}, element("input", {
        type: "radio",
        name,
        checked: choice.value === chosen,
        onChange: () => {
          value = choice.value;
        }
      }),
      element(
          "span", {class: "row-words"}, element("span", {}, choice.label),
          choice.hint ? element("span", {class: "hint"}, choice.hint) : null));
  return {
    nodes: element(
        "div", {class: "options", role: "radiogroup", "aria-labelledby": "sheet-title"}, choices.map(row)),
    value: () => value
  };
}

async function bandEditor({stored, now}) {
  const band = now ? now.band : null;
  const choices = (await bandChoices()).map(({number, label}) => ({
                                              value: number,
                                              label: `${number} ${label}`,
                                              isNow: number === band,
                                              hint: number === band ? t("here it stands now") : null
                                            }));
  const isListed = choices.some((choice) => choice.value === stored);
  const odd =
      typeof stored === "number" && stored > 0 && !isListed ? [{value: stored, label: bandText(stored)}] : [];
  return radios(
      [
        {value: -1, label: t("Leave alone"), hint: t("The daemon does not change its band")},
        {value: 0, label: t("The system's default"), hint: t("The system moves it as it sees fit")}, ...odd,
        ...choices
      ],
      typeof stored === "number" ? stored : -1);
}

// A number with ready-made values beside it.
function numberEditor({stored, unit, label, ready, words}) {
  const input = element("input", {
    type: "number",
    inputmode: "numeric",
    class: "input number",
    id: "number",
    min: "0",
    step: "1",
    value: typeof stored === "number" && stored > 0 ? String(stored) : "0"
  });
  const choose = (value) => () => {
    input.value = String(value);
  };
  return {
    nodes: [
      words ? element("p", {class: "hint"}, words) : null, element("label", {"for": "number"}, label),
      element("div", {class: "with-unit"}, input, element("span", {}, unit)),
      element("div", {class: "chips"}, ready.map(([value, text]) => button(text, choose(value), "small")))
    ],
    value: () => input.value.trim() || "0",
  };
}

function limitEditor({stored, now}) {
  const memory = now ? now.memory : null;
  const suggested = suggestedLimitMb(memory);
  return numberEditor({
    stored,
    unit: "MB",
    label: t("At most"),
    words: memoryWords(memory),
    ready: [
      [0, t("The system's default")], [suggested, `${numberText(suggested)} MB`],
      [suggested * 2, `${numberText(suggested * 2)} MB`]
    ]
  });
}

function timerEditor({stored}) {
  return numberEditor({
    stored,
    unit: t("seconds"),
    label: t("Every"),
    ready: [[0, t("No timer")], [30, t("30 seconds")], [60, t("1 minute")], [600, t("10 minutes")]]
  });
}

function niceWords(value) {
  if (value < 0) return t("%s: more processor time than others", value);
  return value > 0 ? t("%s: less processor time than others", value) : t("0: like others");
}

function niceEditor({stored}) {
  const start = typeof stored === "number" ? stored : 0;
  const words = element("output", {"for": "nice", class: "range-words"}, niceWords(start));
  const input = element("input", {
    type: "range",
    id: "nice",
    min: "-20",
    max: "20",
    step: "1",
    value: String(start),
    "aria-label": t("Nice value"),
    onInput: () => setText(words, niceWords(Number(input.value)))
  });
  input.value = String(start);
  return {
    nodes: [
      words, input,
      element(
          "div", {class: "range-ends hint"}, element("span", {}, t("−20 most")),
          element("span", {}, t("20 least")))
    ],
    value: () => input.value
  };
}

function truthEditor({stored}) {
  return radios(
      [
        {value: "true", label: t("yes")}, {value: "false", label: t("no")},
        {value: null, label: t("Not set"), hint: t("The band decides: a band above 0 takes it out")}
      ],
      typeof stored === "boolean" ? String(stored) : null);
}

function textEditor({stored}) {
  const input = element("input", {
    type: "text",
    class: "input",
    id: "text",
    maxlength: "200",
    value: typeof stored === "string" ? stored : ""
  });
  return {
    nodes: [element("label", {"for": "text"}, t("Text")), input],
    value: () => input.value.trim() || null
  };
}

const editors = {
  band: bandEditor,
  limit: limitEditor,
  timer: timerEditor,
  nice: niceEditor,
  truth: truthEditor,
  text: textEditor
};

// The command for a chosen value; null takes the key out.
function wordsFor({target, row}, value) {
  return value === null ? ["unset", "--", target, row.key] : ["set", "--", target, `${row.key}=${value}`];
}

function editOf(context, value, back) {
  const {target, row} = context;
  return {
    title: t(row.label),
    words: wordsFor(context, value),
    explain: `${target}: ${t(row.meaning)}`,
    confirm: value === null ? t("Take it out") : t("Set it"),
    back
  };
}

// Opens the sheet. `context`: {target, row, stored, now}.
export async function editSetting(context) {
  const sheet = openSheet(t(context.row.label));
  sheet.show(loading());
  try {
    const editor = await editors[context.row.editor](context);
    const back = () => sheet.show(form);
    const propose = (value) => proposeEdit(editOf(context, value, back), sheet);
    const submit = (event) => {
      event.preventDefault();
      propose(editor.value());
    };
    const form = element(
        "form", {class: "stack", novalidate: true, onSubmit: submit},
        element("p", {class: "hint"}, t(context.row.meaning)), editor.nodes,
        element(
            "div", {class: "buttons"},
            element("button", {type: "submit", class: "button primary"}, t("Continue")),
            context.stored === undefined ? null : button(t("Take it out"), () => propose(null))));
    if (sheet.isShown) back();
  } catch (failure) {
    sheet.show(failureCard(failure, () => editSetting(context)));
  }
}
