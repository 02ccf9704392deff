// The default host: the agent's log.
//
// What the agent does goes to ~/Library/Logs/KVScheduler/KVScheduler.txt and, where there is one,
// to the terminal. Faults of the scripts go to the system log.
//
// The parts are loaded in the order of their names. They share one object, in which each leaves
// what the others may use; host.js, the last, is what the program calls.
(function (host) {
  "use strict";

  let file = null;

  host.log = {
    open() {
      // Without a home the usual place would be a folder that everybody may write to.
      const hasHome = system.homeFolder !== "/";
      file = new DDFileLogger(
        hasHome ? null : new DDLogFileManagerDefault(system.stateFolder + "/logs"));
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
    },

    warnIfUnwritten() {
      DDLog.flushLog();
      if (file.lostLines() > 0) {
        console.warn("no log can be written in " + file.logFileManager().logsDirectory());
      }
    },

    // The file that is written now. The agent's own bears a name that is not listed.
    path() {
      const manager = file.logFileManager();
      return manager.sortedLogFilePaths()[0] ||
        manager.logsDirectory() + "/" + manager.newLogFileName();
    },
  };
})((this.host = this.host || {}));
