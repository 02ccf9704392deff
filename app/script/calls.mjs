// The one way by which the program calls what a host script defines, and the script's console.
//
// `reporter` is the program's side: missing() and threw(text, stack) speak of the operation that
// the program is calling, log(level, text, stack) of the console.
export function connect(reporter, global) {
  // What to show of any value, however hostile.
  function describe(value) {
    try {
      if (typeof value === 'string') return value;
      if (value instanceof Error || typeof value !== 'object' || value === null) {
        return String(value);
      }
      const text = JSON.stringify(value);
      return text === undefined ? String(value) : text;
    } catch (nested) {
      // Not String(value): the engine recurses to death in an array that holds itself.
    }
    try {
      return Object.prototype.toString.call(value);
    } catch (nested) {
      return '[object]';  // a proxy that lets nobody look
    }
  }

  function reportThrown(thrown) {
    let stack = '';
    try {
      if (thrown instanceof Error) stack = String(thrown.stack);
    } catch (nested) {
      // A stack that cannot be had is no stack.
    }
    const text = describe(thrown);
    reporter.threw(thrown instanceof Error ? text : 'threw ' + text, stack);
  }

  // Answers undefined when there is no such operation or it throws; the program is told.
  function invoke(object, operation, first, second) {
    try {
      const method = object[operation];
      if (typeof method === 'function') return method.call(object, first, second);
      reporter.missing();
    } catch (thrown) {
      reportThrown(thrown);
    }
    return undefined;
  }

  function invokeFunction(method) {
    try {
      return method();
    } catch (thrown) {
      reportThrown(thrown);
    }
    return undefined;
  }

  // The check mark of anything that has a `state`.
  function readState(item) {
    try {
      return Number(item.state) | 0;
    } catch (thrown) {
      reportThrown(thrown);
    }
    return 0;
  }

  function writeState(item, state) {
    try {
      item.state = state;
    } catch (thrown) {
      reportThrown(thrown);
    }
  }

  const console = {};
  for (const level of ['debug', 'log', 'info', 'warn', 'error']) {
    console[level] = function () {
      const parts = [];
      for (let index = 0; index < arguments.length; ++index) parts.push(describe(arguments[index]));
      reporter.log(level, parts.join(' '), new Error().stack);
    };
  }
  Object.defineProperty(global, 'console', {value: console, writable: true, configurable: true});

  return {
    describe: describe,
    invoke: invoke,
    invokeFunction: invokeFunction,
    readState: readState,
    writeState: writeState
  };
}
