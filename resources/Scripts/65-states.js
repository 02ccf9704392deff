// The default host: what state each set is in, as plain objects without a word in them.
//
// A state that has not changed is the same object as at the tick before, so that whoever shows it
// need not look into it.
(function (host) {
  "use strict";

  const PERIODS_LATE = 2; // after which a set that is due and does not run counts as late
  const DUE_NOW = 1000; // ms; the program's clock is finer than the script's

  const options = host.records.options;
  let states = [];
  let present = new Map(); // destination -> whether it is there, for one tick
  let around = { key: null, zone: null }; // at the update before

  // ---- What it takes to tell whether anything has changed ------------------------------------

  // Each tick brings new objects.
  function isSameDate(one, other) {
    return one === other ||
      (one instanceof Date && other instanceof Date && one.getTime() === other.getTime());
  }

  // Done for every set at every tick, and twice as fast as a loop over a list of keys.
  function areSameOptions(one, other) {
    return one.dayWeekOrHour === other.dayWeekOrHour && one.dayOfMonth === other.dayOfMonth &&
      one.scheduleIt === other.scheduleIt && one.runState === other.runState &&
      one.afterSleep === other.afterSleep &&
      one.setmins === other.setmins && one.sethours === other.sethours &&
      one.day1 === other.day1 && one.day2 === other.day2 && one.day3 === other.day3 &&
      one.day4 === other.day4 && one.day5 === other.day5 && one.day6 === other.day6 &&
      one.day7 === other.day7 &&
      isSameDate(one.minhourdate, other.minhourdate) && isSameDate(one.datePick, other.datePick);
  }

  function isSameRecord(state, record, index) {
    const before = state.record;
    return state.index === index && before.backupset === record.backupset &&
      before.destinationPath === record.destinationPath &&
      areSameOptions(state.options, options(record));
  }

  // Being due ends with the day at the latest, and a date to come stays until it is reached.
  function isNextKnown(state, now) {
    if (state.isDue || state.next === null) return state.day === now.day;
    return now.at < state.next && now.at >= state.judgedAt;
  }

  // What all states depend on.
  function lookAround() {
    const at = Date.now();
    const run = host.running.present(), pause = host.pause.present();
    const day = host.records.dayNumber(at), zone = new Date(at).getTimezoneOffset();
    const versions = [host.history.version(), host.recording.version()];
    const key = JSON.stringify([day, zone, versions, run, pause]);
    return { at, day, zone, run, pause, key };
  }

  // True when nothing but the record can have changed the state.
  function isQuiet(state, now) {
    return now.key === around.key && !state.isDue && !state.isDone &&
      state.restEnd === null && isNextKnown(state, now);
  }

  // ---- States --------------------------------------------------------------------------------

  function isPresent(path) {
    if (typeof path !== "string" || path === "") return false;
    if (!present.has(path)) present.set(path, system.destinationPresent(path));
    return present.get(path);
  }

  // The part that changes with the record and with time: {takesPart, next, isDue, judgedAt}.
  function judge(record) {
    const due = host.timer.nextDue(record);
    const next = due instanceof Date && due.getTime() === due.getTime() ? due.getTime() : null;
    const judgedAt = Date.now();
    return {
      takesPart: next !== null || host.timer.isTakingPart(record), // what is ever due does
      next: next,
      isDue: next !== null && next <= judgedAt + DUE_NOW,
      judgedAt: judgedAt,
    };
  }

  // The part that changes with what happens.
  function observe(state, now) {
    const run = now.run !== null && state.set !== null && now.run.set === state.set;
    const failure = host.history.failure(state.set);
    const pause = now.pause;
    state.day = now.day;
    state.isRunning = run;
    state.runningSince = run ? now.run.since : null;
    state.failedAt = failure ? failure.end : null;
    state.restEnd = failure ? host.history.restEnd(state.set) : null;
    state.lastGood = host.history.lastGood(state.set) || null;
    state.futileStarts = host.recording.futileStarts(state.set);
    // What it is due for has been done, but nobody has read the documents since.
    state.isDone = state.lastGood !== null && host.running.isAfterDocuments(state.lastGood);
    state.isMissing = state.takesPart && state.isDue && !state.isDone &&
      !isPresent(state.record.destinationPath);
    state.isPaused = pause !== null && state.next !== null &&
      (pause.until === null || state.next < pause.until);
    return state;
  }

  // From when on the set counts as late; Infinity when that cannot be told.
  function lateFrom(state) {
    const period = host.records.periodOf(state.record);
    const due = state.lastGood === null ? host.records.intervalDue(state.record)
      : state.lastGood + period;
    return state.takesPart && due !== null ? due + PERIODS_LATE * period : Infinity;
  }

  const OBSERVED = ["day", "isDue", "next", "takesPart", "isRunning", "runningSince", "failedAt",
    "restEnd", "lastGood", "isDone", "isMissing", "isPaused", "futileStarts"];

  function stateOf(record, index, before, now) {
    const isSame = before !== undefined && isSameRecord(before, record, index);
    if (isSame && isQuiet(before, now)) return before;
    const judged = isSame && isNextKnown(before, now) ? before : judge(record);
    const state = observe({
      record: record,
      index: index, // in the joined list
      options: options(record),
      set: host.records.nameOf(record),
      takesPart: judged.takesPart,
      next: judged.next,
      isDue: judged.isDue,
      judgedAt: judged.judgedAt,
    }, now);
    if (isSame && OBSERVED.every((key) => before[key] === state[key])) return before;
    state.lateFrom = lateFrom(state);
    return state;
  }

  host.states = {
    isPresent: isPresent,

    // Whether destinations are there is looked up once for each tick.
    beginTick() {
      present = new Map();
    },

    list: () => states,

    // The states of the records.
    update(records) {
      const now = lookAround();
      if (now.zone !== around.zone) states = [];
      const before = states;
      states = [];
      records.forEach((record, index) => {
        if (!host.records.isDictionary(record)) return;
        states.push(stateOf(record, index, before[states.length], now));
      });
      around = now;
      return states;
    },
  };
})((this.host = this.host || {}));
