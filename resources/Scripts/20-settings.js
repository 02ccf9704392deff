// The default host: the settings of the user, <settings folder>/settings.json.
//
// The file is looked at again at every tick. What is wrong in it is told once, and costs no more
// than the one setting.
(function (host) {
  "use strict";

  const aTruth = { allowed: "true or false", fits: (value) => typeof value === "boolean" };
  const SETTINGS = {
    notifications: Object.assign({ standard: true }, aTruth),
    statusIcon: Object.assign({ standard: true }, aTruth),
    menuSets: {
      standard: 20,
      allowed: "a whole number from 1 to 100",
      fits: (value) => Number.isInteger(value) && value >= 1 && value <= 100,
    },
  };
  const NAMES = Object.keys(SETTINGS);
  const LONGEST_SHOWN = 60;

  const path = system.settingsFolder + "/settings.json";
  let text = null; // of the file, as it was understood last; null for no file

  function standard() {
    const values = {};
    for (const name of NAMES) values[name] = SETTINGS[name].standard;
    return values;
  }

  function shown(value) {
    const json = host.texts.harmless(JSON.stringify(value));
    return json.length > LONGEST_SHOWN ? json.slice(0, LONGEST_SHOWN) + "…" : json;
  }

  const warn = (complaint) => DDLog.warn(path + ": " + complaint);

  function parse() {
    try {
      const found = JSON.parse(text);
      if (found !== null && typeof found === "object" && !Array.isArray(found)) return found;
    } catch (error) {
      // as for any other text that is no object
    }
    warn("holds no JSON object; the default settings are used");
    return {};
  }

  function understand() {
    const values = standard();
    const found = text === null ? {} : parse();
    for (const name of Object.keys(found)) {
      if (NAMES.indexOf(name) < 0) {
        warn(shown(name) + " (found: " + shown(found[name]) + ") is no setting; allowed are " +
          NAMES.join(", "));
      } else if (SETTINGS[name].fits(found[name])) {
        values[name] = found[name];
      } else {
        warn(shown(name) + " is " + shown(found[name]) + "; allowed is " +
          SETTINGS[name].allowed + "; " + values[name] + " is used");
      }
    }
    return values;
  }

  // What is there but cannot be read is no JSON either.
  function readFile() {
    const read = system.readText(path);
    if (typeof read === "string") return read;
    return system.exists(path) ? "" : null;
  }

  host.settings = {
    values: standard(),

    // Looks at the file again.
    reload() {
      const read = readFile();
      if (read === text) return;
      text = read;
      host.settings.values = understand();
    },
  };
})((this.host = this.host || {}));
