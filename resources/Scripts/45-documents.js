// The default host: whether somebody else may change what this user's backups are made by.
//
// Whoever can change the documents decides what is copied and, where a copy mirrors, what is
// deleted. They are read all the same: a backup that silently stopped would be the worse fault.
(function (host) {
  "use strict";

  const folder = system.homeFolder + "/Library/Application Support/Kelvara";
  const paths = [folder, folder + "/kelvara.plist", folder + "/kvsets.plist",
    system.settingsFolder + "/settings.json"];
  const told = new Map(); // path -> what the log was told of it

  host.documents = {
    // Once for each tick; tells what has changed since the one before.
    warn() {
      for (const path of paths) {
        const fault = system.whoElseMayChange(path);
        if (fault === told.get(path)) continue;
        told.set(path, fault);
        if (fault === undefined) DDLog.info(path + ": nobody else may change it any more");
        else DDLog.warn(path + " " + fault + "; nobody but you should be able to change it");
      }
    },
  };
})((this.host = this.host || {}));
