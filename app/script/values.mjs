// Carries property lists across the border between C++ and JavaScript.
//
// Building a list of a thousand records property by property from C++ takes several times as long
// as building it here. So a tree crosses as a few flat arrays, written by one side and walked by
// the other (ScriptValues.cpp):
//
//   operations   for each value, in depth-first order, its kind and then
//                  kString      (to C++ only) the number of UTF-16 units
//                  kDictionary  (to JavaScript) the number of its shape, which tells the keys and
//                               the kinds of the values: those are left out behind it;
//                               (to C++) the number of members, and before each member the number
//                               of UTF-16 units of its key
//                  kArray       the number of elements
//   numbers      the numbers and, as milliseconds since 1970, the dates, in that order
//   texts        the strings in that order: a list (to JavaScript), or one text that holds the
//                keys too (to C++)
//   blobs        the data in that order, as ArrayBuffers

// In the order of ScriptShapes.h.
const kAbsent = 0, kNumber = 1, kString = 2, kTrue = 3, kFalse = 4, kDate = 5, kData = 6,
    kDictionary = 7, kArray = 8;

const kDeepest = 100;
const kMostNodes = 1000000;

// --- To JavaScript ---

// What is being read, and how far.
const from = {
  operations: null, numbers: null, texts: null, blobs: null,
  operation: 0, number: 0, text: 0, blob: 0
};

// How a literal in a function of `from` and `read` reads a value, by its kind.
const kReaders = ['null', 'from.numbers[from.number++]', 'from.texts[from.text++]', 'true',
  'false', 'new Date(from.numbers[from.number++])', 'from.blobs[from.blob++]',
  'read(' + kDictionary + ')', 'read(' + kArray + ')'];

// An object literal makes all members at once, many times as fast as one after the other. So the
// shapes of many dictionaries get a function with a literal. To compile one must be worth it, and
// what documents hold must not make them ever more. A key becomes code, so it must be a name.
const kFrequent = 16, kMostMakers = 64, kMostMembers = 64;
const kName = /^[A-Za-z][A-Za-z0-9]*$/;
const compile = Function;  // a script may replace the global one
let makers = 0;

const shapes = [];  // by their numbers

function learnShapes(first, kindBytes, keys) {
  const kinds = new Uint32Array(kindBytes);
  let key = 0;
  shapes.length = first;
  for (let at = 0; at < kinds.length;) {
    const shape = {keys: [], kinds: [], uses: 0, make: null};
    for (let count = kinds[at++]; count > 0; --count) {
      shape.keys.push(keys[key++]);
      shape.kinds.push(kinds[at++]);
    }
    shapes.push(shape);
  }
}

function countUse(shape) {
  if (++shape.uses !== kFrequent || makers >= kMostMakers) return;
  if (shape.keys.length > kMostMembers || !shape.keys.every(key => kName.test(key))) return;
  const members = shape.keys.map((key, index) => '"' + key + '": ' + kReaders[shape.kinds[index]]);
  shape.make = compile('from', 'read', 'return {' + members.join(', ') + '};');
  ++makers;
}

// Assigning to this key would set the prototype instead of a member.
function setPrototypeMember(object, value) {
  Object.defineProperty(object, '__proto__',
      {value: value, writable: true, enumerable: true, configurable: true});
}

// Calls nothing but itself, by way of a literal at most: a document may be nested deeply, and the
// engine's stack is short.
function read(kind) {
  switch (kind) {
    case kNumber: return from.numbers[from.number++];
    case kString: return from.texts[from.text++];
    case kTrue: return true;
    case kFalse: return false;
    case kDate: return new Date(from.numbers[from.number++]);
    case kData: return from.blobs[from.blob++];
    case kDictionary: {
      const shape = shapes[from.operations[from.operation++]];
      if (shape.make !== null) return shape.make(from, read);
      countUse(shape);
      const object = {}, keys = shape.keys, kinds = shape.kinds;
      for (let index = 0; index < keys.length; ++index) {
        const key = keys[index];
        if (key === '__proto__') setPrototypeMember(object, read(kinds[index]));
        else object[key] = read(kinds[index]);
      }
      return object;
    }
    case kArray: {
      const elements = [];
      for (let count = from.operations[from.operation++]; count > 0; --count) {
        elements.push(read(from.operations[from.operation++]));
      }
      return elements;
    }
    default: return null;
  }
}

export function build(operationBytes, numberBytes, texts, blobs, firstShape, shapeKinds, shapeKeys) {
  learnShapes(firstShape, shapeKinds, shapeKeys);
  from.operations = new Uint32Array(operationBytes);
  from.numbers = new Float64Array(numberBytes);
  from.texts = texts;
  from.blobs = blobs;
  from.number = from.text = from.blob = 0;
  from.operation = 1;
  const value = read(from.operations[0]);
  from.operations = from.numbers = from.texts = from.blobs = null;
  return value;
}

// --- To C++ ---

export function flatten(root) {
  const operations = [], numbers = [], texts = [], blobs = [], ancestors = [];
  let nodes = 0;

  function addText(text) {
    operations.push(text.length);
    texts.push(text);
  }

  function addData(buffer) {
    operations.push(kData);
    blobs.push(buffer);
  }

  function addDictionary(object) {
    const keys = Object.keys(object);
    operations.push(kDictionary, keys.length);
    for (let index = 0; index < keys.length; ++index) {
      addText(keys[index]);
      add(object[keys[index]]);
    }
  }

  function addArray(array) {
    const count = array.length;
    operations.push(kArray, count);
    for (let index = 0; index < count; ++index) add(array[index]);
  }

  function addContainer(object) {
    if (ancestors.length >= kDeepest || ancestors.indexOf(object) >= 0) {
      operations.push(kAbsent);
      return;
    }
    ancestors.push(object);
    if (Array.isArray(object)) addArray(object);
    else addDictionary(object);
    ancestors.pop();
  }

  function addObject(object) {
    // Most objects are plain, and to ask all that follows takes longer than to add one.
    if (Object.getPrototypeOf(object) === Object.prototype) {
      addContainer(object);
    } else if (object instanceof Date) {
      operations.push(kDate);
      numbers.push(object.getTime());
    } else if (object instanceof ArrayBuffer) {
      addData(object);
    } else if (ArrayBuffer.isView(object)) {
      addData(object.buffer.slice(object.byteOffset, object.byteOffset + object.byteLength));
    } else if (object instanceof Number || object instanceof String || object instanceof Boolean) {
      add(object.valueOf());
    } else {
      addContainer(object);
    }
  }

  function add(value) {
    if (++nodes > kMostNodes) throw new RangeError('the value has too many members');
    switch (typeof value) {
      case 'number':
        operations.push(kNumber);
        numbers.push(value);
        break;
      case 'string':
        operations.push(kString);
        addText(value);
        break;
      case 'boolean':
        operations.push(value ? kTrue : kFalse);
        break;
      case 'object':
        if (value !== null) {
          addObject(value);
          break;
        }
        // falls through
      default:
        operations.push(kAbsent);
    }
  }

  try {
    add(root);
  } catch (thrown) {
    // The program can tell nothing but an Error from a result.
    throw thrown instanceof Error ? thrown : new Error('a member cannot be read');
  }
  return {
    operations: new Uint32Array(operations).buffer,
    numbers: new Float64Array(numbers).buffer,
    text: texts.join(''),
    blobs: blobs
  };
}
