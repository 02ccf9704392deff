// The default host: sets that are started again and again although no run of them is ever
// recorded. The scheduler goes by the record alone, so such a set is due for ever, and may keep
// others from being started.
//
// Starts by schedule are counted while the set's record stays as it is, not only those at ticks
// that follow each other: a tick at which the backup runs, or rests after a failure, launches
// nothing and is no sign that anything was recorded.
(function (host) {
  "use strict";

  const MANY = 5; // starts without a recorded run

  const counts = new Map(); // set -> {record, starts}: its record at the first of the starts
  let records = []; // of the present tick
  let version = 0; // grows with every change

  const isMany = (set) => counts.has(set) && counts.get(set).starts >= MANY;

  host.recording = {
    // A new tick, with the records that it has read. Ends what a moved record, or none, has ended.
    beginTick(list) {
      records = list;
      for (const set of Array.from(counts.keys())) {
        const record = host.records.progress(records, set);
        if (record === counts.get(set).record) continue;
        counts.delete(set);
        ++version;
      }
    },

    // The scheduler starts the set.
    noteStart(set) {
      const record = host.records.progress(records, set);
      if (record === null) return;
      const count = counts.get(set) || { record: record, starts: 0 };
      ++count.starts;
      counts.set(set, count);
      ++version;
      if (count.starts !== MANY) return;
      DDLog.warn(host.texts.harmless(set) + ": started " + MANY + " times, and no run has been " +
        "recorded: it stays due, and is started again and again");
    },

    version: () => version,

    // How often the set was started for nothing; 0 while that is no reason to worry.
    futileStarts: (set) => (isMany(set) ? counts.get(set).starts : 0),
  };
})((this.host = this.host || {}));
