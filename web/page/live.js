// The live status: kept up to date while the page is visible, and silent while it is not.
import {Failure, look, openEvents} from "./api.js";

const samplesMax = 60;
const retryMs = [2000, 4000, 8000, 15000, 30000];

// state: connecting, live, lost or paused.
export const live = {
  state: "connecting",
  status: null,
  failure: null,
  since: null
};

const listeners = new Set();
const samples = new Map();
let source = null;
let retryTimer = 0;
let retries = 0;

// Calls the listener at once and after each change. Returns a function that ends this.
export function onChange(listener) {
  listeners.add(listener);
  listener(live);
  return () => listeners.delete(listener);
}

function publish(change) {
  Object.assign(live, change);
  for (const listener of [...listeners]) listener(live);
}

// The last samples of a target's memory, oldest first: [{timeMs, bytes}].
export function samplesOf(target) {
  return samples.get(target) || [];
}

// A new process begins a new curve.
function keepSample({target, now}) {
  if (!now || !now.memory) return samples.delete(target);
  const kept = samples.get(target) || [];
  const same = kept.length > 0 && kept[kept.length - 1].pid === now.pid ? kept : [];
  same.push({timeMs: Date.now(), bytes: now.memory.used_bytes, pid: now.pid});
  return samples.set(target, same.slice(-samplesMax));
}

function takeStatus(status) {
  retries = 0;
  status.targets.forEach(keepSample);
  publish({state: "live", status, failure: null, since: new Date()});
}

function close() {
  clearTimeout(retryTimer);
  if (source) source.close();
  source = null;
}

function retryLater() {
  const wait = retryMs[Math.min(retries, retryMs.length - 1)];
  retries += 1;
  retryTimer = setTimeout(connect, wait);
}

// Events tell no reason when they end, so a command finds out.
async function findOutWhy() {
  close();
  try {
    const status = await look(["status"]);
    if (document.hidden) return;
    takeStatus(status);
    retryLater();
  } catch (failure) {
    if (document.hidden) return;
    publish({state: "lost", failure: failure instanceof Failure ? failure : new Failure("unreachable", "")});
    if (failure.kind !== "no-key") retryLater();
  }
}

// The server may be there without a status, if the preferences are damaged: it then says why.
function takeEvent(event) {
  const {error, ...status} = JSON.parse(event.data);
  if (error)
    publish({state: "lost", failure: new Failure("refused", error.message)});
  else
    takeStatus(status);
}

export function connect() {
  close();
  if (document.hidden) return;
  if (live.state !== "live") publish({state: live.status ? live.state : "connecting"});
  source = openEvents();
  source.addEventListener("status", takeEvent);
  source.addEventListener("error", findOutWhy);
}

// Connects now, whatever the wait until the next try would have been.
export function tryAgain() {
  retries = 0;
  connect();
}

export function startLive() {
  document.addEventListener("visibilitychange", () => {
    if (!document.hidden) return tryAgain();
    close();
    return publish({state: live.state === "lost" ? "lost" : "paused"});
  });
  connect();
}
