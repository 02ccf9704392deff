"use strict";

// The default host of KVScheduler: it answers for the backup application. Where Kelvara+ is
// installed that is Kelvara+, else it is the backup runner kvbackup that comes with this program.
//
// The scheduler judges and this script answers and starts. The rule that it must never break: a
// set that is being backed up is not started again, and neither is one whose run has ended but is
// not in the documents that the present tick has read.

(function () {
  // ---- What is installed where ---------------------------------------------------------------

  const KELVARA = {
    name: "Kelvara+",
    executables: ["/opt/Kelvara+/Kelvara+", "/usr/local/bin/Kelvara+", "/usr/bin/Kelvara+"],
    launchToken: "Qm3x7P", // starts the application with a set
    requestToken: "4R82T6", // asks the open application for a set
  };

  const RUNNER = {
    name: "kvbackup",
    executables: [system.programFolder + "/kvbackup"],
    launchToken: "Qm3x7P",
    requestToken: "4R82T6",
    // The commands of the runner that copy; its others only edit or show.
    copyingCommands: ["run", "Qm3x7P", "4R82T6"],
  };

  // ---- Times, in seconds ---------------------------------------------------------------------

  const POLL = 5; // how often a running backup is looked at
  const START_GRACE = 45; // how long a started process may take to appear
  const LONGEST_RUN = 12 * 3600; // after which an unrecorded run of Kelvara+ counts as ended
  const FRESH = 5; // a run that ended this short before a tick may be missing in its documents
  const HOLD_FIRST = 5 * 60; // how long a set rests after its first failed run; then doubled
  const HOLD_LONGEST = 240 * 60;
  const HISTORY_TAIL = 128 * 1024; // bytes; some 800 runs

  // ---- The agent's log -----------------------------------------------------------------------

  // What the agent does goes to ~/Library/Logs/KVScheduler/KVScheduler.txt and, where there is one,
  // to the terminal. Faults of this script go to the system log.
  function openLog() {
    const file = new DDFileLogger();
    file.setLogFormatter(new FormatterSch());
    // The agent's file keeps its name: to roll it would be to close it and open it again.
    file.setMaximumFileSize(0);
    file.setRollingFrequency(0);
    DDLog.addLogger(file);
    if (system.isTerminal) {
      const terminal = DDTTYLogger.sharedInstance();
      terminal.setColorsEnabled(true);
      DDLog.addLogger(terminal);
    }
    return file;
  }

  function warnIfUnwritten(file) {
    DDLog.flushLog();
    if (file.lostLines() > 0) {
      console.warn("no log can be written in " + file.logFileManager().logsDirectory());
    }
  }

  // ---- The backup application ----------------------------------------------------------------

  function installed(candidate) {
    const executable = candidate.executables.find((path) => system.exists(path));
    return executable ? Object.assign({ executable: executable }, candidate) : null;
  }

  const backupApplication = installed(KELVARA) || installed(RUNNER);
  const isRunner = backupApplication !== null && backupApplication.name === RUNNER.name;

  function applicationProcesses() {
    return backupApplication === null ? [] : system.processesRunning(backupApplication.executable);
  }

  // Processes that certainly make a backup. Kelvara+ is also open without making one.
  function copyingProcesses() {
    if (!isRunner) return [];
    return applicationProcesses().filter(
      (process) => RUNNER.copyingCommands.indexOf(process.arguments[1]) >= 0
    );
  }

  // ---- The runner's history, and what rests because of it ------------------------------------

  let historyText = null;
  let history = []; // runs, oldest first: {set, ok, end} with the end in milliseconds
  const failedStarts = []; // of this process, in the same form
  let failures = new Map(); // set -> {count, end}: the failed runs since its last good one

  function parseRun(line) {
    try {
      const run = JSON.parse(line);
      const end = Date.parse(run.end);
      return typeof run.set === "string" && end === end
        ? { set: run.set, ok: run.result === "ok", end: end }
        : null;
    } catch (error) {
      return null; // a line that was cut short or edited by hand tells nothing
    }
  }

  function countFailures() {
    failures = new Map();
    const runs = history.concat(failedStarts).sort((one, other) => one.end - other.end);
    for (const run of runs) {
      const before = failures.get(run.set);
      if (run.ok) failures.delete(run.set);
      else failures.set(run.set, { count: before ? before.count + 1 : 1, end: run.end });
    }
  }

  function readHistory() {
    const text = (isRunner && system.readTail(system.historyFile, HISTORY_TAIL)) || "";
    if (text === historyText) return;
    historyText = text;
    history = text.split("\n").map(parseRun).filter((run) => run !== null);
    countFailures();
  }

  function noteFailedStart(set) {
    failedStarts.push({ set: set, ok: false, end: Date.now() });
    countFailures();
  }

  const announcedRests = new Map(); // set -> the end of the rest that the log has told of

  // True while the set rests after failed runs, so that what fails is not started at every tick.
  function isResting(set) {
    const failed = failures.get(set);
    if (!failed) return false;
    const rest = Math.min(HOLD_FIRST * Math.pow(2, failed.count - 1), HOLD_LONGEST);
    const until = failed.end + rest * 1000;
    const remaining = until - Date.now();
    // A clock that was set back must not make a set rest longer than the longest rest.
    if (remaining <= 0 || remaining > HOLD_LONGEST * 1000) return false;
    if (announcedRests.get(set) !== until) {
      announcedRests.set(set, until);
      DDLog.warn(set + ": failed, next try at " + new Date(until).toTimeString().slice(0, 5));
    }
    return true;
  }

  // ---- The run that this agent started -------------------------------------------------------

  let started = null; // {set, at, seen, gone, record}
  let records = []; // of the present tick
  let tickBegan = 0;

  // What the application changes in a record when a run has ended.
  function recordState(set) {
    const record = records.find((candidate) => candidate && candidate.backupset === set);
    const options = (record && record.schopts) || {};
    return JSON.stringify([options.dayOfMonth, options.minhourdate]);
  }

  function finish(outcome) {
    DDLog.info(started.set + ": " + outcome);
    started = null;
  }

  function finishFailed(outcome) {
    DDLog.error(started.set + ": " + outcome);
    started = null;
  }

  function hasEndedInHistory(run) {
    const second = Math.floor(run.at / 1000) * 1000; // the history knows whole seconds only
    return history.some((entry) => entry.set === run.set && entry.end >= second);
  }

  // Follows the run from its start to its end, and forgets it then.
  function follow() {
    if (started === null) return;
    const alive = isRunner ? copyingProcesses() : applicationProcesses();
    if (alive.length > 0) {
      started.seen = true;
      started.gone = 0;
      return;
    }
    readHistory();
    if (isRunner && hasEndedInHistory(started)) {
      if (failures.has(started.set)) finishFailed("backup failed");
      else finish("backup done");
    } else if (started.seen) {
      // Gone without a word. The documents that are read from now on tell what it achieved.
      if (started.gone === 0) started.gone = Date.now();
      if (tickBegan > started.gone + FRESH * 1000) finish("the backup has ended");
    } else if (Date.now() - started.at > START_GRACE * 1000) {
      noteFailedStart(started.set);
      finishFailed(backupApplication.name + " did not start");
    }
  }

  function poll() {
    follow();
    if (started !== null) system.after(POLL, poll);
  }

  function start(set, token) {
    if (backupApplication === null) {
      DDLog.error(set + ": neither Kelvara+ nor kvbackup is installed");
      noteFailedStart(set);
      return;
    }
    DDLog.info(set + ": starting the backup with " + backupApplication.name);
    const wasFollowed = started !== null;
    started = { set: set, at: Date.now(), seen: false, gone: 0, record: recordState(set) };
    UtilsSch.runScript([backupApplication.executable, token, set]);
    if (!wasFollowed) system.after(POLL, poll);
  }

  function isBackupRunning() {
    follow();
    if (copyingProcesses().length > 0) return true;
    if (started !== null) {
      // Kelvara+ stays open after a backup: there the moved record tells the end.
      if (isRunner) return true;
      const moved = recordState(started.set) !== started.record;
      const tooLong = Date.now() - started.at > LONGEST_RUN * 1000;
      if (!moved && !tooLong) return true;
      if (moved) finish("backup recorded");
      else finishFailed("no backup was recorded in " + LONGEST_RUN / 3600 + " h");
    }
    readHistory();
    return history.some((run) => run.end > tickBegan - FRESH * 1000 && run.end <= Date.now());
  }

  // ---- The application's delegate ------------------------------------------------------------

  let timer = null;
  let present = new Map(); // destination -> whether it is there, for one tick

  function isPresent(path) {
    if (!present.has(path)) present.set(path, system.destinationPresent(path));
    return present.get(path);
  }

  const delegate = {
    applicationDidFinishLaunching() {
      const file = openLog();
      if (backupApplication === null) {
        DDLog.error("neither Kelvara+ nor kvbackup is installed: no backup can be started");
      }
      timer = new KVTimer();
      timer.dbugMenu = new NSMenuItem();
      timer.dbugMenu.title = "Debug Tracing";
      timer.dbugMenu.state = system.environment("KVSCHEDULER_DEBUG") === "1" ? 1 : 0;
      DDLog.info("scheduling " + records.length + " set(s) with " +
        (backupApplication === null ? "no application" : backupApplication.name));
      warnIfUnwritten(file);
    },

    applicationWillTerminate() {
      if (timer !== null) timer.stopTimer();
      DDLog.info("stopped");
    },

    reloadMenuNow(list) {
      records = list;
      tickBegan = Date.now();
      present = new Map();
      follow();
      readHistory();
    },

    checkIfDiskExists_fromSchedule(path, one) {
      if (typeof path !== "string" || path === "") return false;
      const set = timer === null ? null : timer.judgedSet;
      if (one === 1 && typeof set === "string" && isResting(set)) return false;
      return isPresent(path);
    },

    checkRunningBackupStatus() {
      return isBackupRunning() ? 1 : 0;
    },

    checkBackupStatus() {
      return !isRunner && applicationProcesses().length > 0 ? 1 : 0;
    },

    backupNow(set) {
      start(String(set), backupApplication && backupApplication.launchToken);
    },

    backupNowViaScript(set) {
      start(String(set), backupApplication && backupApplication.requestToken);
    },
  };

  application.delegate = delegate;
})();
