#include "platform/PropertyListReader.h"

#include "platform/BinaryPropertyListReader.h"
#include "platform/XmlPropertyListReader.h"

namespace kv {

PropertyListEncoding propertyListEncoding(std::string_view bytes) {
  return bytes.starts_with("bplist") ? PropertyListEncoding::kBinary : PropertyListEncoding::kXml;
}

std::optional<PropertyList> readPropertyList(std::string_view bytes,
                                             const PropertyListLimits& limits) {
  if (bytes.size() > limits.fileBytes) return std::nullopt;
  return propertyListEncoding(bytes) == PropertyListEncoding::kBinary
             ? readBinaryPropertyList(bytes, limits)
             : readXmlPropertyList(bytes, limits);
}

}  // namespace kv
