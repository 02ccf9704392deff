"use strict";

// The default host of KVScheduler: it answers for the backup application. The scheduler judges;
// this script answers, starts and shows.
//
// This last part is what the program calls. The others are loaded before it, in the order of their
// names, and leave what they offer in `host`.

(function (host) {
  let records = []; // of the present tick

  host.timer = null;

  // Brings the menu up to date with what is known; costs next to nothing when that is unchanged.
  host.refresh = function () {
    if (host.timer === null) return; // the scheduler is only just being made
    const states = host.states.update(records);
    const situation = {
      run: host.running.present(),
      pause: host.pause.present(),
      hasApplication: host.application.found !== null,
    };
    host.menu.show(states, situation, Date.now());
  };

  function showIcon() {
    const isWanted = host.settings.values.statusIcon;
    if (isWanted && !host.icon.isShown()) host.icon.show(host.menu.menu, host.menu.moreMenu);
    if (!isWanted && host.icon.isShown()) host.icon.hide();
  }

  function isPaused() {
    const pause = host.pause.present();
    if (pause === null) return false;
    // What the scheduler writes next, that a backup is running, needs this to be understood.
    host.timer.logString(host.texts.pause(pause, Date.now()) + ": nothing is started");
    return true;
  }

  function isJudgedSetResting() {
    // The scheduler asks for every set at every tick, and hardly ever has any failed.
    if (!host.history.hasFailures()) return false;
    const set = host.timer === null ? null : host.timer.judgedSet;
    return typeof set === "string" && host.history.isResting(set);
  }

  application.delegate = {
    applicationDidFinishLaunching() {
      host.log.open();
      host.settings.reload();
      host.documents.warn();
      if (host.application.found === null) {
        DDLog.error("neither Kelvara+ nor kvbackup is installed: no backup can be started");
      }
      host.pause.restore();
      host.menu.build();
      host.timer = new KVTimer();
      host.timer.dbugMenu = host.menu.tracing;
      host.menu.tracing.state = system.environment("KVSCHEDULER_DEBUG") === "1" ? 1 : 0;
      DDLog.info("scheduling " + records.length + " set(s) with " +
        (host.application.found === null ? "no application" : host.application.found.name));
      host.refresh();
      showIcon();
      host.log.warnIfUnwritten();
    },

    applicationWillTerminate() {
      if (host.timer !== null) host.timer.stopTimer();
      host.icon.hide();
      DDLog.info("stopped");
    },

    reloadMenuNow(list) {
      records = list;
      host.states.beginTick();
      host.recording.beginTick(list);
      host.running.beginTick(list);
      if (host.timer === null) return;
      host.settings.reload();
      host.documents.warn();
      showIcon();
      host.refresh();
      host.notifications.tell(host.states.list(), host.running.present() !== null);
    },

    checkIfDiskExists_fromSchedule(path, one) {
      if (typeof path !== "string" || path === "") return false;
      if (one === 1 && isJudgedSetResting()) return false;
      return host.states.isPresent(path);
    },

    checkRunningBackupStatus() {
      return host.running.blocksSchedule() || isPaused() ? 1 : 0;
    },

    checkBackupStatus() {
      return host.application.isOpen() ? 1 : 0;
    },

    describeState: () => host.describe(),

    backupNow(set) {
      host.recording.noteStart(String(set));
      host.running.launch(String(set));
      host.refresh();
    },

    backupNowViaScript(set) {
      host.recording.noteStart(String(set));
      host.running.request(String(set));
      host.refresh();
    },
  };
})((this.host = this.host || {}));
