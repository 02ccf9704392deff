#pragma once

#include <QJSEngine>
#include <QJSValue>
#include <optional>

#include "app/Host.h"
#include "app/ScriptShapes.h"
#include "platform/PropertyList.h"

namespace kv {

/// Property lists as JavaScript values, and back.
///
/// | property list          | JavaScript                                  | and back           |
/// |------------------------|---------------------------------------------|--------------------|
/// | string                 | string; ill-formed UTF-8 becomes U+FFFD     | string             |
/// | integer, real          | number                                      | integer when whole |
/// | boolean                | boolean                                     | boolean            |
/// | date                   | Date; invalid when no Date can hold it      | date (a NaN then)  |
/// | data                   | ArrayBuffer                                 | data, views too    |
/// | uid                    | {"CF$UID": number}                          | dictionary         |
/// | array, dictionary      | array, object with own members in order     | the same           |
/// | absent                 | null                                        | absent             |
///
/// Anything else (undefined, functions, symbols) is absent on the way back, and so is what lies
/// deeper than 100 levels or is its own ancestor. An absent member of an object is left out; an
/// absent element of an array becomes an empty string, so that the others keep their places.
///
/// Threads    the engine's.
/// Ownership  values belong to the engine; this object must not outlive it.
/// Errors     ScriptError when the engine cannot carry the value (it has more than a million
///            members, or a getter throws).
class ScriptValues {
 public:
  explicit ScriptValues(QJSEngine& engine);

  /// Null for an absent value. Each call yields a tree of its own, the caller's to change.
  QJSValue fromPropertyList(const PropertyList* value);
  QJSValue fromList(const TaskList& list);

  std::optional<PropertyList> toPropertyList(const QJSValue& value);

 private:
  QJSValue build(const QJSValueList& flat);

  QJSEngine& engine_;
  ScriptShapes shapes_;
  QJSValue build_;
  QJSValue flatten_;
};

}  // namespace kv
