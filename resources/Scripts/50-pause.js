// The default host: the pause, during which nothing is started by schedule. It is kept in
// <state folder>/paused.json, so that it survives a restart.
(function (host) {
  "use strict";

  const HOUR = 3600 * 1000;
  const LONGEST = 26 * HOUR; // until tomorrow, on a day of 25 hours, and a little
  const TOLERANCE = 5 * 60 * 1000; // by how much a clock may be put right

  const path = system.stateFolder + "/paused.json";
  let pause = null; // {since, until} in milliseconds; until is null for a pause without an end

  function isOver(candidate) {
    if (candidate.until === null) return false;
    const remaining = candidate.until - Date.now();
    // With the clock set back it would last longer than it was meant to, up to years.
    return remaining <= 0 || remaining > candidate.until - candidate.since + TOLERANCE;
  }

  function present() {
    if (pause !== null && isOver(pause)) {
      pause = null;
      DDLog.info("the pause is over");
    }
    return pause;
  }

  function isoDate(milliseconds) {
    return milliseconds === null ? null : new Date(milliseconds).toISOString();
  }

  function write(until) {
    const state = { until: isoDate(until), since: isoDate(Date.now()) };
    if (!system.writeText(path, JSON.stringify(state) + "\n")) {
      DDLog.warn(path + " cannot be written: a restart will not know whether scheduling is paused");
    }
  }

  // An instant of the file; undefined when it is none.
  function instant(value) {
    const milliseconds = typeof value === "string" ? Date.parse(value) : NaN;
    return milliseconds === milliseconds ? milliseconds : undefined;
  }

  // What the file says; undefined when that makes no sense.
  function parse(text) {
    try {
      const found = JSON.parse(text);
      if (found.until === null) return { since: 0, until: null };
      const until = instant(found.until);
      if (until === undefined) return undefined;
      const since = instant(found.since);
      const begin = since === undefined ? until - LONGEST : since;
      return { since: Math.max(begin, until - LONGEST), until: until };
    } catch (error) {
      return undefined;
    }
  }

  host.pause = {
    // {until} while scheduling is paused, else null.
    present: present,

    // Takes up the pause of an agent that ran before.
    restore() {
      const text = system.readText(path);
      if (typeof text !== "string" && !system.exists(path)) return;
      const found = parse(text);
      if (found === undefined) {
        DDLog.warn(path + " cannot be understood: scheduling is not paused");
      } else if (!isOver(found)) {
        pause = found;
        DDLog.info(host.texts.pause(found, Date.now()) + ", as before the restart");
      } else if (found.until > Date.now()) {
        DDLog.warn(path + " names a pause longer than any: scheduling is not paused");
      }
    },

    // `until` in milliseconds, or null for a pause that lasts until resume().
    begin(until) {
      pause = { since: Date.now(), until: until };
      DDLog.info(host.texts.pause(pause, Date.now()));
      write(until);
    },

    resume() {
      pause = null;
      DDLog.info("scheduling is resumed");
      write(0); // a pause that is over at any time
    },

    inAnHour: () => Date.now() + HOUR,

    tomorrow() {
      const today = new Date(Date.now());
      return new Date(today.getFullYear(), today.getMonth(), today.getDate() + 1).getTime();
    },
  };
})((this.host = this.host || {}));
