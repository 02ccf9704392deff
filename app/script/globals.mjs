// What a host script finds: `application`, `KVTimer`, `UtilsSch` and `system`.
//
// `program` holds the program's objects behind them. Their operations take every argument, so each
// is filled in here; texts may be null.
export function connect(program, global) {
  function define(name, value) {
    Object.defineProperty(global, name, {value: value, writable: true, configurable: true});
  }

  const textOrNull = value => value === undefined || value === null ? null : String(value);
  const listOf = value => Array.isArray(value) ? value : [];
  const textsOf = value => Array.from(listOf(value), String);
  const absentAsNull = value => value === undefined ? null : value;
  const absentAsUndefined = value => value === null ? undefined : value;

  // --- application ---

  let delegate = null;
  let delegateOrigin = '';
  const isObject = value => value !== null && (typeof value === 'object' ||
                                               typeof value === 'function');

  const application = {
    get delegate() { return delegate; },
    set delegate(value) {
      if (absentAsNull(value) !== null && !isObject(value)) {
        throw new TypeError('application.delegate must be an object');
      }
      delegate = value;
      // Where the fault is when the delegate lacks an operation.
      delegateOrigin = new Error().stack;
    },
    terminate(code) { program.application.terminate(Number(code) | 0); }
  };
  Object.defineProperty(application, 'bundle', {
    value: Object.freeze({path: program.bundlePath, identifier: program.bundleIdentifier}),
    enumerable: true
  });
  Object.defineProperty(application, 'version', {value: program.version, enumerable: true});
  // A script that declares a variable of this name must not cut the program off its delegate.
  Object.defineProperty(global, 'application', {value: application, enumerable: true});

  // --- KVTimer ---

  // What tells when a set is due; the rest of its record need not cross to the program.
  function whenOf(record) {
    return isObject(record) ? {schopts: absentAsNull(record.schopts)} : absentAsNull(record);
  }

  // Each KVTimer keeps its scheduler under this key. A WeakMap would be the obvious place, but the
  // engine crashes in it once keys have been collected.
  const schedulerKey = Symbol('scheduler');

  function scheduler(timer) {
    const found = isObject(timer) ? timer[schedulerKey] : undefined;
    if (!found) throw new TypeError('this is no KVTimer');
    return found;
  }

  class KVTimer {
    constructor() {
      Object.defineProperty(this, schedulerKey, {value: program.application.createScheduler()});
    }

    runTimer() { scheduler(this).runTimer(); }
    stopTimer() { scheduler(this).stopTimer(); }
    ScheduleTimer() { scheduler(this).ScheduleTimer(); }

    getType(type) { return scheduler(this).getType(type | 0); }

    getDestPathFromArray_Set(list, set) {
      // The program finds the record; what it is asked for is given back as it stands in the list.
      const records = listOf(list);
      const names = records.map((record, index) => {
        return {backupset: isObject(record) ? record.backupset : null, destinationPath: index};
      });
      const found = scheduler(this).getDestPathFromArray_Set(names, textOrNull(set));
      if (typeof found !== 'number') return found;
      const path = records[found].destinationPath;
      return path === undefined ? null : path;
    }

    sortArrayForNextBackup(list) {
      const records = listOf(list);
      return scheduler(this).sortArrayForNextBackup(records).map(index => records[index]);
    }

    // Whether the scheduler looks at a set at all, by its record.
    isTakingPart(record) { return scheduler(this).isTakingPart(whenOf(record)); }
    // When it is due next, or null.
    nextDue(record) {
      const due = scheduler(this).nextDue(whenOf(record));
      return due === null || isNaN(due) ? null : due;
    }

    launchKelvaraWithSet(set) { scheduler(this).launchKelvaraWithSet(set); }
    launchKelvaraScriptWithSet(set) { scheduler(this).launchKelvaraScriptWithSet(set); }

    append(text) { return scheduler(this).append(String(text)); }
    logString(text) { scheduler(this).logString(textOrNull(text)); }
    logString_varstr(text, value) {
      scheduler(this).logString_varstr(textOrNull(text), textOrNull(value));
    }
    logString_varnt(text, value) {
      scheduler(this).logString_varnt(textOrNull(text), Number(value) | 0);
    }
    logString_varflt(text, value) {
      scheduler(this).logString_varflt(textOrNull(text), Number(value));
    }

    // Null before the first timer, then whether the latest one is valid.
    get timer() { return scheduler(this).timer(); }
    get indexNum() { return scheduler(this).indexNum(); }
    // The name of the set that is judged right now; null outside a tick.
    get judgedSet() { return scheduler(this).judgedSet(); }
    get ndt() { return new Date(scheduler(this).ndt()); }
    get debugStarted() { return scheduler(this).debugStarted(); }
    get dbugMenu() { return scheduler(this).dbugMenu(); }
    set dbugMenu(item) {
      if (item !== null && item !== undefined && !isObject(item)) {
        throw new TypeError('dbugMenu takes a menu item: an object with a state');
      }
      scheduler(this).setDbugMenu(item === undefined ? null : item);
    }
  }
  define('KVTimer', KVTimer);

  // --- TAV_StatusItemController ---

  const controllerKey = Symbol('controller');

  function controller(item) {
    const found = isObject(item) ? item[controllerKey] : undefined;
    if (!found) throw new TypeError('this is no TAV_StatusItemController');
    return found;
  }

  function menuOrNull(value) {
    if (value === undefined || value === null) return null;
    if (!program.menus.isMenu(value)) throw new TypeError('a menu is an NSMenu');
    return value;
  }

  class TAV_StatusItemController {
    constructor() {
      Object.defineProperty(this, controllerKey,
                            {value: program.application.createStatusItemController()});
    }

    createStatusItemWithMenu() { controller(this).createStatusItemWithMenu(); }
    updateDisplay() { controller(this).updateDisplay(); }
    updateAnimation(mode) { controller(this).updateAnimation(mode | 0); }
    toggleIconAnimation(animates) { controller(this).toggleIconAnimation(Boolean(animates)); }
    updateIcon() { controller(this).updateIcon(); }
    releaseStatusItem() { controller(this).releaseStatusItem(); }

    get menu() { return controller(this).menu(); }
    set menu(menu) { controller(this).setMenu(menuOrNull(menu)); }
    get dynmenu() { return controller(this).dynmenu(); }
    set dynmenu(menu) { controller(this).setDynmenu(menuOrNull(menu)); }
    // Both are true when there is one, else null.
    get statusItem() { return controller(this).hasStatusItem() ? true : null; }
    get animationTimer() { return controller(this).isAnimating() ? true : null; }
    get updateCount() { return controller(this).updateCount(); }
  }
  define('TAV_StatusItemController', TAV_StatusItemController);

  // --- UtilsSch ---

  define('UtilsSch', Object.freeze({
    getTmSTring: () => program.launcher.getTmSTring(),
    runAppAlone: list => program.launcher.runAppAlone(textsOf(list)),
    runApp: list => program.launcher.runApp(textsOf(list)),
    runScript: list => program.launcher.runScript(textsOf(list))
  }));

  // --- system ---

  const kit = program.system;
  define('system', Object.freeze({
    exists: path => kit.exists(String(path)),
    mountPoint: path => kit.mountPoint(String(path)),
    destinationPresent: path => kit.destinationPresent(String(path)),
    processesRunning: executable => kit.processesRunning(String(executable)),
    environment: name => absentAsUndefined(kit.environment(String(name))),
    readTail: (path, maxBytes) => absentAsUndefined(kit.readTail(String(path), Number(maxBytes))),
    whoElseMayChange: path => absentAsUndefined(kit.whoElseMayChange(String(path))),
    readText: path => kit.readText(String(path)),
    writeText: (path, text) => kit.writeText(String(path), String(text)),
    open: path => kit.open(String(path)),
    notify(summary, body, urgency) {
      const level = Number(urgency === undefined || urgency === null ? 1 : urgency);
      kit.notify(textOrNull(summary) || '', textOrNull(body) || '', level);
    },
    after(seconds, action) {
      if (typeof action !== 'function') throw new TypeError('after takes a function');
      kit.after(Number(seconds), action);
    },
    isTerminal: kit.isTerminal(),
    programFolder: kit.programFolder(),
    homeFolder: kit.homeFolder(),
    stateFolder: kit.stateFolder(),
    settingsFolder: kit.settingsFolder(),
    historyFile: kit.historyFile()
  }));

  return {
    delegate: () => isObject(delegate) ? delegate : null,
    delegateOrigin: () => delegateOrigin
  };
}
