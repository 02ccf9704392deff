#pragma once

#include <optional>
#include <string_view>

#include "platform/PropertyList.h"
#include "platform/PropertyListReader.h"

namespace kv {

/// Reads the compact encoding, version "bplist00". What readPropertyList promises holds; null,
/// fill and set objects, and keys that are no strings, make a document no document.
std::optional<PropertyList> readBinaryPropertyList(std::string_view bytes,
                                                   const PropertyListLimits& limits);

}  // namespace kv
