#pragma once

#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/PropertyListReader.h"
#include "platform/PropertyListWriter.h"

namespace kv {

/// Whatever the bytes: no crash; and what is read can be written, in either encoding, and reads
/// back equal in the encoding that it came in.
inline void checkReadingAndRereading(std::string_view bytes, PropertyListEncoding encoding) {
  // Small limits, so that time goes into new inputs rather than into large trees.
  constexpr PropertyListLimits kLimits{
      .fileBytes = 1 << 20, .depth = 64, .nodes = 10'000, .memoryBytes = 4 << 20};
  const auto value = readPropertyList(bytes, kLimits);
  if (!value) return;
  const auto again = readPropertyList(writePropertyList(*value, encoding));
  if (!again) std::abort();
  // The compact encoding keeps every bit, so its bytes compare what == cannot: NaNs.
  const std::string text = writePropertyList(*value, PropertyListEncoding::kBinary);
  if (writePropertyList(*again, PropertyListEncoding::kBinary) != text) std::abort();
  if (!readPropertyList(writePropertyList(*value, PropertyListEncoding::kXml))) std::abort();
  if (value->description() != again->description()) std::abort();
}

}  // namespace kv
