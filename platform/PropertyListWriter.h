#pragma once

#include <string>

#include "platform/PropertyList.h"
#include "platform/PropertyListReader.h"

namespace kv {

/// Encodes `value` so that readPropertyList gives it back: dictionary order kept, dates to the
/// bit in the compact encoding and to the second in XML (whose text has no fractions).
///
/// Errors     none: every tree can be encoded. What XML cannot hold (control characters in a
///            string; a uid, which becomes a dictionary with the key "CF$UID") is documented at
///            the definition.
std::string writePropertyList(const PropertyList& value, PropertyListEncoding encoding);

}  // namespace kv
