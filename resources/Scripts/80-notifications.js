// The default host: what the user is told without having asked. Each matter is told once
// for a set and day; <state folder>/notified.json remembers that over a restart, and since when
// volumes have been missed.
(function (host) {
  "use strict";

  const DAY = 24 * 3600 * 1000;
  const IDLE_TICKS = 5; // without a backup, while the set is overdue: then nothing will start it
  const MOST_ENTRIES = 1000; // of each kind in the file
  const MOST_NAMES = 5; // in one notification

  const path = system.stateFolder + "/notified.json";
  let told = null; // Map of [reason, set, day] as JSON -> the day's number; null until it is read
  let missing = null; // Map of a set's key -> since when its volume has been missed while due
  let isWritten = true;
  let prunedOn = null; // the number of the day
  const idleTicks = new Map(); // key of an overdue set -> ticks at which it could have been started
  let wasBusy = false; // a backup ran, or was started, since the tick before

  // ---- The memory ----------------------------------------------------------------------------

  function parse() {
    try {
      return JSON.parse(system.readText(path)) || {};
    } catch (error) {
      return {}; // what was told is told again; nothing worse
    }
  }

  // The entries of a list of [text, number].
  function mapOf(list) {
    return new Map(Array.isArray(list) ? list.filter((entry) => Array.isArray(entry) &&
      typeof entry[0] === "string" && typeof entry[1] === "number") : []);
  }

  function remember() {
    if (told !== null) return;
    const found = parse();
    told = mapOf(found.told);
    missing = mapOf(found.missing);
  }

  // Sets of one name are told apart by where they go.
  const keyOf = (state) => state.set + "\n" + state.record.destinationPath;

  function save() {
    if (isWritten) return;
    isWritten = true;
    const text = JSON.stringify({ told: Array.from(told), missing: Array.from(missing) }) + "\n";
    if (!system.writeText(path, text)) DDLog.warn(path + " cannot be written");
  }

  function change(map, key, value) {
    if (map.get(key) === value) return;
    if (value === undefined) map.delete(key);
    else if (map.has(key) || map.size < MOST_ENTRIES) map.set(key, value);
    else return;
    isWritten = false;
  }

  // What failed yesterday may be told of yesterday and today.
  function prune(today) {
    if (today === prunedOn) return;
    prunedOn = today;
    for (const entry of Array.from(told)) {
      if (entry[1] < today - 1 || entry[1] > today) change(told, entry[0], undefined);
    }
  }

  // True at the first time for this matter; when no more can be remembered, never.
  function isNews(reason, set, day) {
    const key = JSON.stringify([reason, set.slice(0, 200), day]);
    if (told.has(key)) return false;
    change(told, key, day);
    return told.has(key);
  }

  // ---- What is told --------------------------------------------------------------------------

  // What a program said, as a sentence beside others.
  function sentence(text) {
    const harmless = host.texts.harmless(text);
    if (harmless === "") return "";
    return harmless[0].toUpperCase() + harmless.slice(1) + (/[.!?…]$/.test(harmless) ? "" : ".");
  }

  function failed(state, now) {
    if (state.failedAt === null) return null;
    const failure = host.history.failure(state.set);
    const isRecent = now - state.failedAt < DAY && state.failedAt <= now;
    if (failure.result === "interrupted" || !isRecent) return null;
    const next = state.restEnd === null ? "" :
      " It is tried again at " + host.texts.shortMoment(state.restEnd, now) + ".";
    return { day: host.records.dayNumber(state.failedAt),
             body: (sentence(failure.message) + next).trim() };
  }

  function lateness(state, now) {
    if (state.lastGood !== null) {
      return "Its last good run was " + host.texts.moment(state.lastGood, now) + ".";
    }
    const due = host.records.intervalDue(state.record);
    return "It has been due since " + host.texts.moment(due, now) + ".";
  }

  // A machine that was off for days is no reason to alarm anybody: what is late then is started
  // one after the other.
  function overdue(state, now) {
    if (now < state.lateFrom || state.isMissing) {
      idleTicks.delete(keyOf(state));
      return null;
    }
    const ticks = (idleTicks.get(keyOf(state)) || 0) + (wasBusy ? 0 : 1);
    idleTicks.set(keyOf(state), ticks);
    if (ticks < IDLE_TICKS) return null;
    return { day: host.records.dayNumber(now), body: lateness(state, now) };
  }

  function isBack(state, since) {
    return !state.takesPart || state.lastGood > since ||
      host.states.isPresent(state.record.destinationPath);
  }

  // When the set is not due, nobody asks for its volume.
  function missed(state, now) {
    const key = keyOf(state);
    const since = missing.get(key);
    if (!state.isMissing) {
      if (since !== undefined && isBack(state, since)) change(missing, key, undefined);
      return null;
    }
    if (since === undefined || since > now) {
      change(missing, key, now);
      return null;
    }
    if (now - since < DAY) return null;
    const destination = host.records.destination(state.record);
    const volume = destination === null ? "Its volume" : host.texts.harmless(destination);
    return { day: host.records.dayNumber(now),
             body: volume + " has been missing since " + host.texts.moment(since, now) + "." };
  }

  // What fails is told of as that.
  function unrecorded(state, now) {
    if (state.futileStarts === 0 || state.failedAt !== null) return null;
    return { day: host.records.dayNumber(now),
             body: "It was started " + state.futileStarts + " times. As long as no run is recorded, " +
               "it is due, and may keep other backups from being started." };
  }

  const REASONS = [
    { name: "failed", find: failed, many: " backups failed",
      one: (set) => "The backup of " + set + " failed" },
    { name: "overdue", find: overdue, many: " backups are overdue",
      one: (set) => "The backup of " + set + " is overdue" },
    { name: "missing", find: missed, many: " backups wait for their volumes",
      one: (set) => "The backup of " + set + " waits for its volume" },
    { name: "unrecorded", find: unrecorded, many: " backups are started but never recorded",
      one: (set) => "The backup of " + set + " is started but never recorded" },
  ];

  // Many at once make one notification.
  function notify(reason, news) {
    const names = news.map((entry) => host.texts.name(entry.set));
    if (news.length === 1) {
      system.notify(reason.one(names[0]), news[0].body, 1);
    } else if (news.length > 1) {
      const rest = names.length - MOST_NAMES;
      system.notify(names.length + reason.many,
        names.slice(0, MOST_NAMES).join(", ") + (rest > 0 ? " and " + rest + " more" : ""), 1);
    }
  }

  // What there may be something to tell about, or to forget.
  function relevant(states, now) {
    if (missing.size + idleTicks.size > 0) return states;
    return states.filter(
      (state) => state.failedAt !== null || state.isMissing || now >= state.lateFrom ||
        state.futileStarts > 0);
  }

  function tell(reason, states, now) {
    const news = [];
    for (const state of states) {
      if (state.set === null || state.isRunning) continue;
      const found = reason.find(state, now);
      if (found !== null && isNews(reason.name, state.set, found.day)) {
        news.push({ set: state.set, body: found.body });
      }
    }
    notify(reason, news);
  }

  function forgetRemoved(states) {
    if (missing.size + idleTicks.size === 0) return;
    const keys = new Set(states.map(keyOf));
    for (const key of Array.from(missing.keys())) {
      if (!keys.has(key)) change(missing, key, undefined);
    }
    for (const key of Array.from(idleTicks.keys())) {
      if (!keys.has(key)) idleTicks.delete(key);
    }
  }

  host.notifications = {
    // Once for each tick.
    tell(states, isBusy) {
      remember();
      const now = Date.now();
      wasBusy = wasBusy || isBusy || host.pause.present() !== null;
      if (host.settings.values.notifications) {
        prune(host.records.dayNumber(now));
        forgetRemoved(states);
        const some = relevant(states, now);
        for (const reason of REASONS) tell(reason, some, now);
      }
      wasBusy = isBusy;
      save();
    },

    // A backup was started: what is late may just be waiting for its turn.
    noteStart() {
      wasBusy = true;
    },
  };
})((this.host = this.host || {}));
