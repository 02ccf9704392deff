// The default host: the fields of a set's record, read as the scheduler reads them, and
// days.
(function (host) {
  "use strict";

  const MINUTE = 60 * 1000, HOUR = 60 * MINUTE, DAY = 24 * HOUR;

  const isDictionary = (value) => value !== null && typeof value === "object" &&
    Object.getPrototypeOf(value) === Object.prototype;

  const options = (record) => (isDictionary(record.schopts) ? record.schopts : {});

  function whole(value) {
    const isNumber = typeof value === "number" || typeof value === "boolean";
    const number = typeof value === "string" ? parseInt(value, 10) : NaN;
    return (isNumber ? Math.trunc(Number(value)) : number) || 0;
  }

  function isTrue(value) {
    return typeof value === "string" ? /^\s*[+-]?0*[1-9YyTt]/.test(value) : Boolean(value);
  }

  // From one run to the next, in milliseconds.
  function periodOf(record) {
    const schedule = options(record);
    switch (whole(schedule.dayWeekOrHour)) {
      case 0: return DAY;
      case 1: return 7 * DAY;
      case 2: return Math.max(whole(schedule.sethours), 1) * HOUR;
      case 3: return Math.max(whole(schedule.setmins), 1) * MINUTE;
      default: return Infinity;
    }
  }

  // The name by which the set can be started; null where there is none.
  function nameOf(record) {
    const name = record.backupset;
    if (typeof name === "number") return String(name);
    return typeof name === "string" && name !== "" ? name : null;
  }

  // What the application changes in the record of a set when a run has ended, as a text; null when
  // there is no such set.
  function progress(records, set) {
    const found = records.find((record) => isDictionary(record) && nameOf(record) === set);
    if (found === undefined) return null;
    return JSON.stringify([options(found).dayOfMonth, options(found).minhourdate]);
  }

  // When an interval set is due next, in milliseconds; null for other sets.
  function intervalDue(record) {
    const schedule = options(record);
    const isInterval = [2, 3].indexOf(whole(schedule.dayWeekOrHour)) >= 0;
    const due = schedule.minhourdate;
    return isInterval && due instanceof Date ? due.getTime() : null;
  }

  host.records = {
    isDictionary: isDictionary,
    options: options,
    whole: whole,
    periodOf: periodOf,
    intervalDue: intervalDue,
    nameOf: nameOf,
    progress: progress,

    // A set that is held by hand, in contrast to one that was never given a schedule.
    isHeld(record) {
      const runState = options(record).runState;
      return runState !== undefined && !isTrue(runState);
    },

    // Null where there is none.
    destination(record) {
      const path = record.destinationPath;
      return typeof path === "string" && path !== "" ? path : null;
    },

    // The number of the local day.
    dayNumber(milliseconds) {
      const date = new Date(milliseconds);
      return Date.UTC(date.getFullYear(), date.getMonth(), date.getDate()) / DAY;
    },
  };
})((this.host = this.host || {}));
