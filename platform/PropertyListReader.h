#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "platform/PropertyList.h"

namespace kv {

/// The two encodings of a property list.
enum class PropertyListEncoding { kXml, kBinary };

/// The most that a document may hold; one that holds more is no document.
///
/// Shared references of the compact encoding multiply what stands in the file once, so the nodes
/// and the memory are counted as they stand in the tree, not in the file. With the defaults a
/// process that holds a document and reads it stays below 256 MB, whatever the document.
struct PropertyListLimits {
  std::size_t fileBytes = 64u << 20;
  /// Values within values; the root has depth 1.
  std::size_t depth = 512;
  /// Values, containers included; keys count as memory only.
  std::size_t nodes = 1'000'000;
  /// What the tree and the reader's own state take: strings, keys, data and the nodes themselves.
  std::size_t memoryBytes = 128u << 20;
};

/// Reads a property list in either encoding; the first bytes tell which one it is.
///
/// Threads    any; no state.
/// Units      `bytes` is the whole document.
/// Errors     anything that is not a well-formed document within the limits yields nothing, in
///            time linear in the limits; nothing is thrown (but std::bad_alloc by the system).
std::optional<PropertyList> readPropertyList(std::string_view bytes,
                                             const PropertyListLimits& limits = {});

/// Which encoding the first bytes announce; it says nothing about the rest.
PropertyListEncoding propertyListEncoding(std::string_view bytes);

}  // namespace kv
