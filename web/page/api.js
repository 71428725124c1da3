// Asks the server: log in, run a command, open the live events.
import {keep, kept} from "./storage.js";
import {language, t} from "./text.js";

// Why the server gave no answer. `kind`: unreachable, no-key, too-many or refused.
export class Failure extends Error {
  constructor(kind, message) {
    super(message);
    this.kind = kind;
  }
}

const kindOfStatus = {
  401: "no-key",
  403: "refused",
  429: "too-many"
};
const patienceMs = 20000;
// The first exit status with which a command has failed; 1 is a finding.
export const firstFailure = 2;

async function post(path, value) {
  const aborter = new AbortController();
  const timer = setTimeout(() => aborter.abort(), patienceMs);
  try {
    return await fetch(path, {
      method: "POST",
      credentials: "same-origin",
      headers: {"Content-Type": "application/json", "Accept-Language": language()},
      body: JSON.stringify(value),
      signal: aborter.signal,
    });
  } catch {
    throw new Failure("unreachable", t("Vorlatch does not answer."));
  } finally {
    clearTimeout(timer);
  }
}

async function failureOf(answer) {
  let message = t("Vorlatch answered with the error %s.", answer.status);
  try {
    message = (await answer.json()).error.message;
  } catch {
    // The answer is not from Vorlatch, or was cut short: the status has to do.
  }
  return new Failure(kindOfStatus[answer.status] || "refused", message);
}

// Exchanges the key for a cookie that scripts cannot read, and goes to the folder for which it is good.
export async function logIn(key) {
  const answer = await post("api/login", {key});
  if (!answer.ok) throw await failureOf(answer);
  const {folder} = await answer.json();
  keep("folder", folder);
  location.replace(`${folder}#/now`);
}

// For an address that somebody typed, the icon on the home screen, or a bookmark of an earlier folder: goes
// to the folder of the last login, if there was one. Returns true if the page is left.
export function goToFolder() {
  const folder = kept("folder");
  if (!folder || location.pathname === folder) return false;
  location.replace(folder + location.hash);
  return true;
}

// Runs a command of vorlatchctl. Returns {status, output, error}; throws a Failure.
export async function run(words) {
  const answer = await post("api/command", {words, lang: language()});
  if (!answer.ok) throw await failureOf(answer);
  try {
    return await answer.json();
  } catch {
    throw new Failure("unreachable", t("The answer was cut short."));
  }
}

// The output of a command that only looks; throws a Failure if it gives none.
export async function look(words) {
  const {status, output, error} = await run(words);
  if (status >= firstFailure || output === null) {
    throw new Failure("refused", error ? error.message : t("There is no answer."));
  }
  return output;
}

export function iconAddress(app) {
  return `api/icon?app=${encodeURIComponent(app)}`;
}

export function openEvents() {
  return new EventSource(`api/events?lang=${language()}`);
}
