// The default host: the history of runs that kvbackup keeps, and what rests because of it.
(function (host) {
  "use strict";

  const HOLD_FIRST = 5 * 60; // seconds; how long a set rests after its first failed run
  const HOLD_LONGEST = 240 * 60; // it is doubled after each further one, up to this
  const TAIL = 128 * 1024; // bytes; some 800 runs

  let text = null;
  let version = 0; // grows with every change
  let runs = []; // oldest first: {set, ok, result, end, message} with the end in milliseconds
  const failedStarts = []; // of this process, in the same form
  let failures = new Map(); // set -> {count, end, result, message}: since its last good run
  const good = new Map(); // set -> the end of its last good run, also from before the tail
  const announcedRests = new Map(); // set -> the end of the rest that the log has told of

  function parseRun(line) {
    try {
      const run = JSON.parse(line);
      const end = Date.parse(run.end);
      if (typeof run.set !== "string" || end !== end) return null;
      const message = typeof run.message === "string" ? run.message : "";
      return { set: run.set, ok: run.result === "ok", result: run.result, end, message };
    } catch (error) {
      return null; // a line that was cut short or edited by hand tells nothing
    }
  }

  function countFailures() {
    ++version;
    failures = new Map();
    const all = runs.concat(failedStarts).sort((one, other) => one.end - other.end);
    for (const run of all) {
      const before = failures.get(run.set);
      if (run.ok) {
        failures.delete(run.set);
        good.set(run.set, run.end);
      } else {
        failures.set(run.set, {
          count: before ? before.count + 1 : 1,
          end: run.end,
          result: run.result,
          message: run.message,
        });
      }
    }
  }

  // When the set may be started again; null when it does not rest.
  function restEnd(set) {
    const failed = failures.get(set);
    if (!failed) return null;
    const rest = Math.min(HOLD_FIRST * Math.pow(2, failed.count - 1), HOLD_LONGEST);
    const until = failed.end + rest * 1000;
    const remaining = until - Date.now();
    // A clock that was set back must not make a set rest longer than the longest rest.
    return remaining > 0 && remaining <= HOLD_LONGEST * 1000 ? until : null;
  }

  host.history = {
    read() {
      const read = (host.application.isRunner && system.readTail(system.historyFile, TAIL)) || "";
      if (read === text) return;
      text = read;
      runs = text.split("\n").map(parseRun).filter((run) => run !== null);
      countFailures();
    },

    noteFailedStart(set, message) {
      failedStarts.push({ set, ok: false, result: "failed", end: Date.now(), message });
      countFailures();
    },

    version: () => version,
    hasFailures: () => failures.size > 0,
    failure: (set) => failures.get(set),
    lastGood: (set) => good.get(set),
    restEnd: restEnd,

    // True while the set rests after failed runs, so that what fails is not started at every tick.
    isResting(set) {
      const until = restEnd(set);
      if (until !== null && announcedRests.get(set) !== until) {
        announcedRests.set(set, until);
        DDLog.warn(host.texts.harmless(set) + ": failed, next try at " + host.texts.timeOfDay(until));
      }
      return until !== null;
    },

    hasRunSince: (set, begin) => runs.some((run) => run.set === set && run.end >= begin),
    hasEnded: (fits) => runs.some((run) => fits(run.end)),
  };
})((this.host = this.host || {}));
