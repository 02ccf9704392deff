#pragma once

#include <optional>
#include <string_view>

#include "platform/PropertyList.h"
#include "platform/PropertyListReader.h"

namespace kv {

/// Reads the XML encoding. What readPropertyList promises holds; the strictness on top of XML's:
/// no entity declarations, no references to undeclared entities, no unknown elements, no text
/// outside of leaf elements, exactly one value within <plist> or without it.
std::optional<PropertyList> readXmlPropertyList(std::string_view bytes,
                                                const PropertyListLimits& limits);

}  // namespace kv
