// Carries property lists across the border between C++ and JavaScript.
//
// Building a list of a thousand records property by property from C++ takes several times as long
// as building it here. So a tree crosses as a few flat arrays, written by one side and walked by
// the other (ScriptValues.cpp):
//
//   operations   for each value, in depth-first order, its kind and then
//                  kString      (to C++ only) the number of UTF-16 units
//                  kDictionary  the number of members, and before each member its key: an index
//                               into `keys` (to JavaScript) or a number of UTF-16 units (to C++)
//                  kArray       the number of elements
//   numbers      the numbers and, as milliseconds since 1970, the dates, in that order
//   texts        the strings in that order: a list (to JavaScript), or one text that holds the
//                keys too (to C++)
//   blobs        the data in that order, as ArrayBuffers
(function () {
  'use strict';

  // In the order of ScriptValues.cpp.
  const kAbsent = 0, kNumber = 1, kString = 2, kTrue = 3, kFalse = 4, kDate = 5, kData = 6,
      kDictionary = 7, kArray = 8;

  const kDeepest = 100;
  const kMostNodes = 1000000;

  function build(operationBytes, numberBytes, keys, texts, blobs) {
    const operations = new Uint32Array(operationBytes);
    const numbers = new Float64Array(numberBytes);
    // Assigning to this key would set the prototype instead of a member.
    const prototypeKey = keys.indexOf('__proto__');
    let operation = 0, number = 0, text = 0, blob = 0;

    // Calls nothing but itself: a document may be nested deeply, and the engine's stack is short.
    function value() {
      switch (operations[operation++]) {
        case kNumber: return numbers[number++];
        case kString: return texts[text++];
        case kTrue: return true;
        case kFalse: return false;
        case kDate: return new Date(numbers[number++]);
        case kData: return blobs[blob++];
        case kDictionary: {
          const object = {};
          for (let count = operations[operation++]; count > 0; --count) {
            const key = operations[operation++];
            if (key === prototypeKey) {
              Object.defineProperty(object, '__proto__',
                  {value: value(), writable: true, enumerable: true, configurable: true});
            } else {
              object[keys[key]] = value();
            }
          }
          return object;
        }
        case kArray: {
          const elements = [];
          for (let count = operations[operation++]; count > 0; --count) elements.push(value());
          return elements;
        }
        default: return null;
      }
    }

    return value();
  }

  function flatten(root) {
    const operations = [], numbers = [], texts = [], blobs = [], ancestors = [];
    let nodes = 0;

    function addText(text) {
      operations.push(text.length);
      texts.push(text);
    }

    function addData(view) {
      operations.push(kData);
      blobs.push(view);
    }

    function addContainer(kind, count, addMember) {
      operations.push(kind, count);
      for (let index = 0; index < count; ++index) addMember(index);
    }

    function addObject(object) {
      if (object instanceof Date) {
        operations.push(kDate);
        numbers.push(object.getTime());
      } else if (object instanceof ArrayBuffer) {
        addData(object);
      } else if (ArrayBuffer.isView(object)) {
        addData(object.buffer.slice(object.byteOffset, object.byteOffset + object.byteLength));
      } else if (object instanceof Number || object instanceof String ||
                 object instanceof Boolean) {
        add(object.valueOf());
      } else if (ancestors.length >= kDeepest || ancestors.indexOf(object) >= 0) {
        operations.push(kAbsent);
      } else {
        ancestors.push(object);
        if (Array.isArray(object)) {
          addContainer(kArray, object.length, index => add(object[index]));
        } else {
          const keys = Object.keys(object);
          addContainer(kDictionary, keys.length, index => {
            addText(keys[index]);
            add(object[keys[index]]);
          });
        }
        ancestors.pop();
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

  return {build: build, flatten: flatten};
})()
