// The default host: the backup that runs. The rule that must never be broken: a set that
// is being backed up is not started again, and neither is one whose run has ended but is not in
// the documents that the present tick has read.
(function (host) {
  "use strict";

  const POLL = 5; // seconds; how often a running backup is looked at
  const START_GRACE = 45; // seconds; how long a started process may take to appear
  const LONGEST_RUN = 12 * 3600; // seconds; then an unrecorded run of Kelvara+ counts as ended
  const FRESH = 5; // seconds; a run that ended this short before a tick may be missing in its
  //                  documents

  const application = host.application;
  let started = null; // the run that this agent began: {set, at, seen, gone, record}
  let foreign = null; // a run that somebody else began: {set, since}, the latter unknown
  let isPolling = false;
  let records = []; // of the present tick
  let tickBegan = 0;

  // A name as it may stand in a line of the log.
  const shown = (set) => host.texts.harmless(set);

  const recordState = (set) => host.records.progress(records, set);

  function finish(outcome) {
    DDLog.info(shown(started.set) + ": " + outcome);
    started = null;
  }

  function finishFailed(outcome) {
    DDLog.error(shown(started.set) + ": " + outcome);
    started = null;
  }

  function giveUpStart() {
    const outcome = application.found.name + " did not start";
    host.history.noteFailedStart(started.set, outcome);
    finishFailed(outcome);
  }

  function hasEndedInHistory() {
    const second = Math.floor(started.at / 1000) * 1000; // the history knows whole seconds only
    return application.isRunner && host.history.hasRunSince(started.set, second);
  }

  // Kelvara+ stays open after a backup: there the moved record tells the end.
  function followRecord() {
    if (application.isRunner) return;
    if (recordState(started.set) !== started.record) {
      finish("backup recorded");
    } else if (Date.now() - started.at > LONGEST_RUN * 1000) {
      finishFailed("no backup was recorded in " + LONGEST_RUN / 3600 + " h");
    }
  }

  function followProcess() {
    const alive = application.isRunner ? application.copying() : application.processes();
    if (alive.length > 0) {
      started.seen = true;
      started.gone = 0;
      return;
    }
    host.history.read();
    if (hasEndedInHistory()) {
      if (host.history.failure(started.set)) finishFailed("backup failed");
      else finish("backup done");
    } else if (started.seen) {
      // Gone without a word. The documents that are read from now on tell what it achieved.
      if (started.gone === 0) started.gone = Date.now();
      if (tickBegan > started.gone + FRESH * 1000) finish("the backup has ended");
    } else if (Date.now() - started.at > START_GRACE * 1000) {
      giveUpStart();
    }
  }

  function noteForeign() {
    const process = started === null ? application.copying()[0] : undefined;
    if (process === undefined) {
      foreign = null;
      return;
    }
    const set = application.setOf(process);
    if (foreign === null || foreign.set !== set) foreign = { set: set, since: null };
  }

  // {set, since} of the backup that runs as far as is known, else null.
  function present() {
    return started === null ? foreign : { set: started.set, since: started.at };
  }

  // What follows from there being a run or none.
  function attend() {
    host.icon.animate(present() !== null);
    if (present() === null || isPolling) return;
    isPolling = true;
    system.after(POLL, poll);
  }

  // Follows the run from its start to its end, and forgets it then.
  function follow() {
    if (started !== null) followRecord();
    if (started !== null) followProcess();
    noteForeign();
    attend();
  }

  function poll() {
    isPolling = false;
    follow();
    host.refresh();
  }

  function begin(set, token) {
    if (application.found === null) {
      DDLog.error(shown(set) + ": neither Kelvara+ nor kvbackup is installed");
      host.history.noteFailedStart(set, "neither Kelvara+ nor kvbackup is installed");
      return;
    }
    DDLog.info(shown(set) + ": starting the backup with " + application.found.name);
    started = { set: set, at: Date.now(), seen: false, gone: 0, record: recordState(set) };
    host.notifications.noteStart();
    UtilsSch.runScript([application.found.executable, token, set]);
    attend();
  }

  // True for the end of a run that the documents of the present tick may not know of.
  const isAfterDocuments = (end) => end > tickBegan - FRESH * 1000 && end <= Date.now();

  function isBusy() {
    follow();
    return present() !== null;
  }

  host.running = {
    present: present,

    // A new tick, with the records that it has read.
    beginTick(list) {
      records = list;
      tickBegan = Date.now();
      follow();
      host.history.read();
    },

    // Starts the application, or asks the open one.
    launch: (set) => begin(set, application.found && application.found.launchToken),
    request: (set) => begin(set, application.found && application.found.requestToken),

    isBusy: isBusy,
    isAfterDocuments: isAfterDocuments,

    // For the scheduler, whose documents may be older than the end of a run.
    blocksSchedule() {
      if (isBusy()) return true;
      host.history.read();
      return host.history.hasEnded(isAfterDocuments);
    },
  };
})((this.host = this.host || {}));
