#pragma once

#include <systemd/sd-bus.h>

#include <optional>

#include "platform/PropertyList.h"

namespace kv {

/// Property lists as D-Bus values:
///
/// | property list | D-Bus, where any type will do                          |
/// |---------------|--------------------------------------------------------|
/// | string        | s; what is no UTF-8 and U+0000 become U+FFFD            |
/// | integer       | x                                                      |
/// | real, boolean | d, b                                                   |
/// | date          | x: whole seconds since 1970                            |
/// | dictionary    | a{sv}                                                  |
/// | array         | as when it holds strings only, else aa{sv}             |
///
/// Threads    that of the message.
/// Errors     a negative errno, as sd-bus has it. What does not fit the type that is asked for
///            becomes that type's 0 or empty value, and so does what lies deeper than 8 levels.

/// Appends `value` as one of the types s, b, u, x, d, as, a{sv}, aa{sv}.
int appendBusValue(sd_bus_message* message, const char* type, const PropertyList& value);

/// Appends `value` in a variant, as `type` or (when null) as the type that the table names.
int appendBusVariant(sd_bus_message* message, const char* type, const PropertyList& value);

/// The next value of the message, which may be of any type. Variants yield what they hold; what no
/// property list holds (descriptors) is left out. Nothing when the message is malformed or ends.
std::optional<PropertyList> readBusValue(sd_bus_message* message);

}  // namespace kv
