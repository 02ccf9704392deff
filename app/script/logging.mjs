// The logging framework as a host script finds it: `DDLog`, the loggers, the formatters and the
// log file manager.
//
// `kit` is the program's side: it makes the objects behind those of the script. Arguments are
// checked here, and each operation of the program is given all of them. `describe` shows any value
// as the console does.
export function connect(kit, describe, global) {
  // --- Arguments ---

  const isAbsent = value => value === undefined || value === null;

  function text(value, what) {
    if (typeof value !== 'string') throw new TypeError(what + ' must be a text');
    return value;
  }

  function path(value, what) {
    if (text(value, what) === '' || value.indexOf('\0') >= 0) {
      throw new TypeError(what + ' must be a path');
    }
    return value;
  }

  function boolean(value, what) {
    if (typeof value !== 'boolean') throw new TypeError(what + ' must be true or false');
    return value;
  }

  function number(value, what) {
    if (typeof value !== 'number' || !isFinite(value)) {
      throw new TypeError(what + ' must be a finite number');
    }
    return value;
  }

  function integer(value, what, least) {
    if (!Number.isSafeInteger(value) || value < least) {
      throw new TypeError(what + ' must be a whole number' +
                          (least === 0 ? ' of at least 0' : ''));
    }
    return value;
  }

  const size = (value, what) => integer(value, what, 0);
  const context = value => integer(value, 'the context', Number.MIN_SAFE_INTEGER);

  // Flags and levels have 64 bits; -1 stands for all of them.
  const kAllBits = -1;
  const mask = (value, what) => value === kAllBits ? value : integer(value, what, 0);

  // [red, green, blue] as one number, none as -1.
  function color(value, what) {
    if (isAbsent(value)) return -1;
    if (!Array.isArray(value) || value.length !== 3) {
      throw new TypeError(what + ' must be [red, green, blue] or null');
    }
    return Array.from(value).reduce((packed, component) => {
      if (!(integer(component, what, 0) <= 255)) {
        throw new TypeError(what + ' has components from 0 to 255');
      }
      return packed * 256 + component;
    }, 0);
  }

  // Ties the program's object to a script's, under a key that no other kind of object has.
  function kindOfObject(name) {
    const key = Symbol(name);
    return {
      tie(object, behind) { Object.defineProperty(object, key, {value: behind}); },
      behind(object) {
        const isObject = !isAbsent(object) &&
                         (typeof object === 'object' || typeof object === 'function');
        const found = isObject ? object[key] : undefined;
        if (!found) throw new TypeError('this is no ' + name);
        return found;
      }
    };
  }

  const logger = kindOfObject('logger');
  const fileLogger = kindOfObject('DDFileLogger');
  const terminalLogger = kindOfObject('DDTTYLogger');
  const formatter = kindOfObject('formatter');
  const manager = kindOfObject('DDLogFileManagerDefault');

  // --- Formatters and the log file manager ---

  class FormatterSch {
    constructor() { formatter.tie(this, kit.makeFormatterSch()); }
  }

  class DDLogFileFormatterDefault {
    constructor() { formatter.tie(this, kit.makeFileFormatter()); }
  }

  class DDLogFileManagerDefault {
    constructor(folder) {
      const chosen = isAbsent(folder) ? null : path(folder, 'the folder');
      manager.tie(this, kit.makeFileManager(chosen));
    }

    maximumNumberOfLogFiles() { return manager.behind(this).maximumNumberOfLogFiles(); }
    setMaximumNumberOfLogFiles(count) {
      manager.behind(this).setMaximumNumberOfLogFiles(size(count, 'maximumNumberOfLogFiles'));
    }
    logFilesDiskQuota() { return manager.behind(this).logFilesDiskQuota(); }
    setLogFilesDiskQuota(bytes) {
      manager.behind(this).setLogFilesDiskQuota(size(bytes, 'logFilesDiskQuota'));
    }

    logsDirectory() { return manager.behind(this).logsDirectory(); }
    applicationName() { return manager.behind(this).applicationName(); }
    newLogFileName() { return manager.behind(this).newLogFileName(); }
    createNewLogFile() { return manager.behind(this).createNewLogFile(); }
    isLogFile(name) { return manager.behind(this).isLogFile(text(name, 'the file name')); }
    unsortedLogFilePaths() { return Array.from(manager.behind(this).unsortedLogFilePaths()); }
    unsortedLogFileNames() { return Array.from(manager.behind(this).unsortedLogFileNames()); }
    sortedLogFilePaths() { return Array.from(manager.behind(this).sortedLogFilePaths()); }
    sortedLogFileNames() { return Array.from(manager.behind(this).sortedLogFileNames()); }
  }

  // --- Loggers ---

  const formatterKey = Symbol('logFormatter');

  class Logger {
    logFormatter() {
      logger.behind(this);
      return this[formatterKey];
    }
    setLogFormatter(value) {
      const chosen = isAbsent(value) ? null : value;
      logger.behind(this).setLogFormatter(chosen === null ? null : formatter.behind(chosen));
      this[formatterKey] = chosen;
    }
    loggerName() { return logger.behind(this).loggerName(); }
    automaticallyAppendNewlineForCustomFormatters() {
      return logger.behind(this).automaticallyAppendNewlineForCustomFormatters();
    }
    setAutomaticallyAppendNewlineForCustomFormatters(value) {
      logger.behind(this).setAutomaticallyAppendNewlineForCustomFormatters(
          boolean(value, 'automaticallyAppendNewlineForCustomFormatters'));
    }
  }

  function tieLogger(object, kind, behind, itsFormatter) {
    logger.tie(object, behind);
    kind.tie(object, behind);
    Object.defineProperty(object, formatterKey, {value: null, writable: true});
    if (itsFormatter) object.setLogFormatter(itsFormatter);
  }

  const managerKey = Symbol('logFileManager');

  class DDFileLogger extends Logger {
    constructor(itsManager) {
      super();
      const chosen = isAbsent(itsManager) ? new DDLogFileManagerDefault() : itsManager;
      tieLogger(this, fileLogger, kit.makeFileLogger(manager.behind(chosen)),
                new DDLogFileFormatterDefault());
      Object.defineProperty(this, managerKey, {value: chosen});
    }

    logFileManager() {
      fileLogger.behind(this);
      return this[managerKey];
    }
    maximumFileSize() { return fileLogger.behind(this).maximumFileSize(); }
    setMaximumFileSize(bytes) {
      fileLogger.behind(this).setMaximumFileSize(size(bytes, 'maximumFileSize'));
    }
    rollingFrequency() { return fileLogger.behind(this).rollingFrequency(); }
    setRollingFrequency(seconds) {
      fileLogger.behind(this).setRollingFrequency(number(seconds, 'rollingFrequency'));
    }
    doNotReuseLogFiles() { return fileLogger.behind(this).doNotReuseLogFiles(); }
    setDoNotReuseLogFiles(value) {
      fileLogger.behind(this).setDoNotReuseLogFiles(boolean(value, 'doNotReuseLogFiles'));
    }
    groupsBacklogWrites() { return fileLogger.behind(this).groupsBacklogWrites(); }
    setGroupsBacklogWrites(value) {
      fileLogger.behind(this).setGroupsBacklogWrites(boolean(value, 'groupsBacklogWrites'));
    }
    lostLines() { return fileLogger.behind(this).lostLines(); }
    rollLogFile() { fileLogger.behind(this).rollLogFileWithCompletionBlock(null); }
    rollLogFileWithCompletionBlock(completion) {
      const chosen = isAbsent(completion) ? null : completion;
      if (chosen !== null && typeof chosen !== 'function') {
        throw new TypeError('the completion block must be a function');
      }
      fileLogger.behind(this).rollLogFileWithCompletionBlock(chosen);
    }
  }

  // The context that stands for all of them.
  const kAnyContext = 2147483647;

  let sharedTerminalLogger = null;

  // Not operations that call each other by way of `this`, which may be anything: the engine
  // recurses to death when it reports that an array which holds itself lacks an operation.
  function setColors(object, foreground, background, flag, itsContext) {
    terminalLogger.behind(object).setForegroundColor_backgroundColor_forFlag_context(
        color(foreground, 'the foreground colour'), color(background, 'the background colour'),
        mask(flag, 'the flag'), context(itsContext));
  }

  function clearColors(object, flag, itsContext) {
    terminalLogger.behind(object).clearColorsForFlag_context(
        mask(flag, 'the flag'), context(itsContext));
  }

  class DDTTYLogger extends Logger {
    constructor() {
      super();
      throw new TypeError('the one terminal logger is DDTTYLogger.sharedInstance()');
    }
    static sharedInstance() {
      if (sharedTerminalLogger === null) {
        const made = Object.create(DDTTYLogger.prototype);
        tieLogger(made, terminalLogger, kit.makeTerminalLogger(), null);
        sharedTerminalLogger = made;
      }
      return sharedTerminalLogger;
    }

    colorsEnabled() { return terminalLogger.behind(this).colorsEnabled(); }
    setColorsEnabled(value) {
      terminalLogger.behind(this).setColorsEnabled(boolean(value, 'colorsEnabled'));
    }
    loadDefaultColorProfiles() { terminalLogger.behind(this).loadDefaultColorProfiles(); }
    setForegroundColor_backgroundColor_forFlag(foreground, background, flag) {
      setColors(this, foreground, background, flag, kAnyContext);
    }
    setForegroundColor_backgroundColor_forFlag_context(foreground, background, flag, itsContext) {
      setColors(this, foreground, background, flag, itsContext);
    }
    setForegroundColor_backgroundColor_forTag(foreground, background, tag) {
      terminalLogger.behind(this).setForegroundColor_backgroundColor_forTag(
          color(foreground, 'the foreground colour'), color(background, 'the background colour'),
          text(tag, 'the tag'));
    }
    clearColorsForFlag(flag) { clearColors(this, flag, 0); }
    clearColorsForFlag_context(flag, itsContext) { clearColors(this, flag, itsContext); }
    clearColorsForTag(tag) {
      terminalLogger.behind(this).clearColorsForTag(text(tag, 'the tag'));
    }
    clearColorsForAllFlags() { terminalLogger.behind(this).clearColorsForAllFlags(); }
    clearColorsForAllTags() { terminalLogger.behind(this).clearColorsForAllTags(); }
    clearAllColors() { terminalLogger.behind(this).clearAllColors(); }
  }
  Object.defineProperty(DDTTYLogger, 'AnyContext', {value: kAnyContext, enumerable: true});

  // --- DDLog ---

  const kFlags = {FlagError: 1, FlagWarning: 2, FlagInfo: 4, FlagDebug: 8, FlagVerbose: 16};
  const kLevels = {LevelOff: 0, LevelError: 1, LevelWarning: 3, LevelInfo: 7, LevelDebug: 15,
                   LevelVerbose: 31, LevelAll: kAllBits};

  // The script's own objects of the loggers that it has added, once per registration.
  let added = [];

  // Each is called straight from the script, so that the stack begins there.
  const shortForm = (flag, asynchronous) => message => {
    kit.log(asynchronous, describe(message), kAllBits, flag, 0, null, new Error().stack);
  };

  function addLogger(object, level) {
    kit.addLogger_withLevel(logger.behind(object), mask(level, 'the level'));
    added.push(object);
  }

  define('DDLog', Object.freeze(Object.assign({
    addLogger(object) { addLogger(object, kAllBits); },
    addLogger_withLevel: addLogger,
    removeLogger(object) {
      const behind = logger.behind(object);
      kit.removeLogger(behind);
      const index = added.findIndex(one => logger.behind(one) === behind);
      if (index >= 0) added.splice(index, 1);
    },
    removeAllLoggers() {
      kit.removeAllLoggers();
      added = [];
    },
    allLoggers() {
      const find = identity => added.find(one => logger.behind(one).identity() === identity);
      return Array.from(kit.allLoggers(), find).filter(one => one !== undefined);
    },
    flushLog() { kit.flushLog(); },

    log(asynchronous, entry) {
      boolean(asynchronous, 'asynchronous');
      if (isAbsent(entry) || typeof entry !== 'object') {
        throw new TypeError('an entry is an object {message, level, flag, context, tag}');
      }
      const orElse = (value, usual) => value === undefined ? usual : value;
      if (isAbsent(entry.message)) throw new TypeError('the entry has no message');
      kit.log(asynchronous, describe(entry.message), mask(orElse(entry.level, kAllBits), 'level'),
              mask(orElse(entry.flag, kFlags.FlagInfo), 'flag'), context(orElse(entry.context, 0)),
              isAbsent(entry.tag) ? null : text(entry.tag, 'the tag'), new Error().stack);
    },
    error: shortForm(kFlags.FlagError, false),
    warn: shortForm(kFlags.FlagWarning, true),
    info: shortForm(kFlags.FlagInfo, true),
    debug: shortForm(kFlags.FlagDebug, true),
    verbose: shortForm(kFlags.FlagVerbose, true),

    registeredClassNames() { return Array.from(kit.registeredClassNames()); },
    levelForClassWithName(name) {
      return kit.levelForClassWithName(text(name, 'the class name'));
    },
    setLevel_forClassWithName(level, name) {
      kit.setLevel_forClassWithName(mask(level, 'the level'), text(name, 'the class name'));
    }
  }, kFlags, kLevels)));

  function define(name, value) {
    Object.defineProperty(global, name, {value: value, writable: true, configurable: true});
  }
  for (const type of [DDFileLogger, DDTTYLogger, DDLogFileManagerDefault,
                      DDLogFileFormatterDefault, FormatterSch]) {
    define(type.name, type);
  }
}
