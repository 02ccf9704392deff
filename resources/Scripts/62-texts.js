// The default host: the words, for a reader who has never seen the program. Functions of
// their arguments only.
(function (host) {
  "use strict";

  const records = host.records;
  const LONGEST_NAME = 40; // characters
  const LONGEST_TEXT = 4000; // UTF-16 units
  const DAYS = ["Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"];
  const MONTHS = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov",
    "Dec"];

  // Line ends and control characters, and those that reorder, hide or mark text.
  const HARMFUL = new RegExp("[\\u0000-\\u001f\\u007f-\\u009f\\u00ad\\u061c\\u200b\\u200e\\u200f" +
    "\\u2028-\\u202e\\u2060-\\u206f\\ufeff\\ufff9-\\ufffb]+", "g");

  // ---- Names ---------------------------------------------------------------------------------

  // The engine's own way to walk over a text takes pairs of surrogates apart.
  const charactersOf = (text) => text.match(/[\ud800-\udbff][\udc00-\udfff]|[^]/g) || [];

  function cutInTheMiddle(text, longest) {
    if (text.length <= longest) return text;
    const characters = charactersOf(text);
    if (characters.length <= longest) return text;
    const head = Math.ceil((longest - 1) / 2);
    return characters.slice(0, head).join("") + "…" +
      characters.slice(characters.length - (longest - 1 - head)).join("");
  }

  // A half of a pair of surrogates stands alone where a text was cut.
  const isHalf = (character) => /^[\ud800-\udfff]$/.test(character);

  // Far more than anybody reads; to look at every character of a text takes its time.
  function shortened(text) {
    if (text.length <= LONGEST_TEXT) return text;
    return text.slice(0, LONGEST_TEXT / 2) + "…" + text.slice(-LONGEST_TEXT / 2);
  }

  // Words of ASCII with single blanks between them, like most names.
  const PLAIN = /^[!-~]+( [!-~]+)*$/;

  function harmless(text) {
    if (text.length <= LONGEST_NAME && PLAIN.test(text)) return text;
    return charactersOf(shortened(text)).map((one) => (isHalf(one) ? "\ufffd" : one)).join("")
      .replace(HARMFUL, " ").replace(/\s+/g, " ").trim();
  }

  function name(value) {
    const isText = typeof value === "string" || typeof value === "number";
    return cutInTheMiddle(harmless(isText ? String(value) : ""), LONGEST_NAME) || "(no name)";
  }

  // ---- Times ---------------------------------------------------------------------------------

  const twoDigits = (number) => (number < 10 ? "0" : "") + number;

  function timeOfDay(milliseconds) {
    const date = new Date(milliseconds);
    return twoDigits(date.getHours()) + ":" + twoDigits(date.getMinutes());
  }

  function dayOf(milliseconds, now) {
    const date = new Date(milliseconds);
    const distance = records.dayNumber(milliseconds) - records.dayNumber(now);
    if (distance === 0) return "today";
    if (distance === 1) return "tomorrow";
    if (distance === -1) return "yesterday";
    if (Math.abs(distance) < 7) return DAYS[date.getDay()];
    const year = date.getFullYear();
    return date.getDate() + " " + MONTHS[date.getMonth()] +
      (year === new Date(now).getFullYear() ? "" : " " + year);
  }

  // "today 09:30"
  function moment(milliseconds, now) {
    return dayOf(milliseconds, now) + " " + timeOfDay(milliseconds);
  }

  // "09:30" where it is today.
  function shortMoment(milliseconds, now) {
    return moment(milliseconds, now).replace(/^today /, "");
  }

  // ---- Schedules -----------------------------------------------------------------------------

  function every(count, unit) {
    return "every " + (count > 1 ? count + " " + unit + "s" : unit);
  }

  function pickedTime(options) {
    return options.datePick instanceof Date ? timeOfDay(options.datePick.getTime()) : "00:00";
  }

  function weekly(options, isOnceADay) {
    const days = DAYS.filter((day, index) => records.whole(options["day" + (index + 1)]) === 1)
      .map((day) => day.slice(0, 3));
    if (days.length === 0) return "weekly on no day";
    return "weekly " + days.join(", ") + (isOnceADay ? ", once a day" : " " + pickedTime(options));
  }

  function schedule(record) {
    const options = records.options(record);
    const isOnceADay = records.whole(options.afterSleep) === 1;
    switch (records.whole(options.dayWeekOrHour)) {
      case 0: return isOnceADay ? "once a day" : "daily " + pickedTime(options);
      case 1: return weekly(options, isOnceADay);
      case 2: return every(records.whole(options.sethours), "hour");
      case 3: return every(records.whole(options.setmins), "minute");
      default: return "unknown schedule";
    }
  }

  // ---- States --------------------------------------------------------------------------------

  function since(begin, now) {
    return begin === null ? "" : " since " + shortMoment(begin, now);
  }

  function past(state, now) {
    const isNew = records.whole(records.options(state.record).dayOfMonth) === 0;
    if (state.failedAt !== null) return "failed " + moment(state.failedAt, now);
    if (state.lastGood !== null) return "last run " + moment(state.lastGood, now);
    return isNew ? "never run" : "";
  }

  function future(state, now) {
    if (state.isDone) return "";
    if (state.next === null) return "never due";
    if (state.isPaused) return "next after the pause";
    return state.isDue ? "due now" : "next " + moment(state.next, now);
  }

  function condition(state, now) {
    if (state.isRunning) return "running" + since(state.runningSince, now);
    if (state.isMissing) return "waiting for its volume";
    if (state.restEnd !== null) return "failed, next try " + shortMoment(state.restEnd, now);
    return [past(state, now), future(state, now)].filter((part) => part !== "").join(", ");
  }

  function futility(state) {
    if (state.futileStarts === 0) return "";
    return "; started " + state.futileStarts + " times, never recorded";
  }

  // "daily 09:30, last run yesterday 09:31, next today 09:30"
  function description(state, now) {
    if (state.takesPart || state.isRunning) {
      return schedule(state.record) + ", " + condition(state, now) + futility(state);
    }
    return records.isHeld(state.record) ? schedule(state.record) + ", held" : "not scheduled";
  }

  function pauseText(pause, now) {
    return "Paused until " + (pause.until === null ? "resumed" : shortMoment(pause.until, now));
  }

  // ---- The line above all sets ---------------------------------------------------------------

  function nextStart(state) {
    return state.restEnd === null ? state.next : Math.max(state.next, state.restEnd);
  }

  // Of sets that are due now the scheduler takes daily and weekly ones first, then minutes, then
  // hours.
  const passOf = (state) => [0, 0, 2, 1][
    host.records.whole(host.records.options(state.record).dayWeekOrHour)];

  function isBefore(one, other, now) {
    const start = nextStart(one), otherStart = nextStart(other);
    const areDue = start <= now && otherStart <= now;
    const passes = areDue ? passOf(one) - passOf(other) : 0;
    return passes < 0 || (passes === 0 && start < otherStart);
  }

  function nothingUpcoming(awaited, now) {
    if (awaited.length === 0) return "Nothing is scheduled";
    const done = awaited.find((state) => state.isDone);
    if (done === undefined) return "Waiting for a volume";
    return "Done: " + name(done.record.backupset) + " " + shortMoment(done.lastGood, now);
  }

  function upcoming(states, now) {
    const awaited = states.filter((state) => state.takesPart && state.next !== null);
    const startable = awaited.filter((state) => !state.isMissing && !state.isDone);
    if (startable.length === 0) return nothingUpcoming(awaited, now);
    const first = startable.reduce((one, other) => (isBefore(other, one, now) ? other : one));
    const isNow = first.isDue && first.restEnd === null;
    return "Next: " + name(first.record.backupset) + " " +
      (isNow ? "now" : moment(nextStart(first), now));
  }

  // `situation` is {run, pause, hasApplication}.
  function status(states, situation, now) {
    const run = situation.run;
    if (run !== null && run.set === null) return "A backup is running";
    if (run !== null) return "Backing up " + name(run.set) + since(run.since, now);
    if (!situation.hasApplication) return "No backup program is installed";
    if (situation.pause !== null) return pauseText(situation.pause, now);
    return states.length === 0 ? "No backup sets yet" : upcoming(states, now);
  }

  host.texts = {
    harmless: harmless,
    name: name,
    timeOfDay: timeOfDay,
    moment: moment,
    shortMoment: shortMoment,
    schedule: schedule,
    pause: pauseText,
    status: status,
    description: description,
    set: (state, now) => name(state.record.backupset) + ": " + description(state, now),
  };
})((this.host = this.host || {}));
