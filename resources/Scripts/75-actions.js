// The default host: what the lines of the menu do.
(function (host) {
  "use strict";

  const TRACE = "/tmp/KVScheduler.txt";

  // Answers a choice that somebody made in the menu, and therefore always.
  function answer(summary, body) {
    DDLog.info(summary + (body === "" ? "" : ": " + body.replace(/\n/g, "; ")));
    system.notify(summary, body, 1);
  }

  function open(path, absence) {
    if (typeof path !== "string" || !system.exists(path)) answer(absence, "");
    else if (!system.open(path)) answer("No program was found that opens it", path);
  }

  function logOf(set) {
    // The runner takes no other names, and names its logs by them.
    const isFileName = set !== null && set.indexOf("/") < 0;
    return isFileName ? system.stateFolder + "/logs/" + set + ".log" : null;
  }

  function pauseUntil(until) {
    host.pause.begin(until);
    host.refresh();
  }

  host.actions = {
    pauses: [
      { title: "For 1 hour", begin: () => pauseUntil(host.pause.inAnHour()) },
      { title: "Until tomorrow", begin: () => pauseUntil(host.pause.tomorrow()) },
      { title: "Until resumed", begin: () => pauseUntil(null) },
    ],

    resume() {
      if (host.pause.present() === null) return;
      host.pause.resume();
      host.refresh();
    },

    hasLog: (set) => logOf(set) !== null && system.exists(logOf(set)),

    showLog: (set) => open(logOf(set), "There is no log of this backup yet"),

    backUp(set) {
      const name = host.texts.name(set);
      if (host.running.isBusy()) {
        const running = host.running.present().set;
        answer(name + " is not started now",
          running === null ? "A backup is running." :
            "The backup of " + host.texts.name(running) + " is running.");
      } else if (host.application.isOpen()) {
        host.running.request(set);
      } else {
        host.running.launch(set);
      }
      host.refresh();
    },

    openTrace: () => open(TRACE, "There is no trace; Debug Tracing writes one"),

    openLog: () => open(host.log.path(), "There is no log"),

    about() {
      answer("KVScheduler " + application.version,
        "Starts the backups that are due.\nBackup sets: " + system.homeFolder +
        "/Library/Application Support/Kelvara\nLog: " + host.log.path() +
        "\nSettings: " + system.settingsFolder + "/settings.json");
    },

    quit: () => application.terminate(0),
  };
})((this.host = this.host || {}));
