// The default host: the backup application. Where Kelvara+ is installed that is Kelvara+,
// else it is the backup runner kvbackup that comes with this program.
(function (host) {
  "use strict";

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

  const LOOK_AGE = 1000; // ms; many due sets ask within one tick, and a look costs a walk over all

  function installed(candidate) {
    const executable = candidate.executables.find((path) => system.exists(path));
    return executable ? Object.assign({ executable: executable }, candidate) : null;
  }

  const found = installed(KELVARA) || installed(RUNNER);
  const isRunner = found !== null && found.name === RUNNER.name;
  let look = null; // {at, processes}

  function processes() {
    if (found === null) return [];
    const now = Date.now();
    if (look === null || Math.abs(now - look.at) >= LOOK_AGE) {
      look = { at: now, processes: system.processesRunning(found.executable) };
    }
    return look.processes;
  }

  host.application = {
    // {name, executable, launchToken, requestToken}; null when nothing is installed.
    found: found,
    isRunner: isRunner,
    processes: processes,

    // Processes that certainly make a backup. Kelvara+ is also open without making one.
    copying() {
      if (!isRunner) return [];
      return processes().filter(
        (process) => RUNNER.copyingCommands.indexOf(process.arguments[1]) >= 0
      );
    },

    // The set that such a process backs up.
    setOf(process) {
      return process.arguments.slice(2).find((argument) => argument !== "--") || null;
    },

    isOpen: () => !isRunner && processes().length > 0,
  };
})((this.host = this.host || {}));
