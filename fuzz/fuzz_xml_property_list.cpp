#include <cstdint>

#include "RereadCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (kv::propertyListEncoding(bytes) == kv::PropertyListEncoding::kXml) {
    kv::checkReadingAndRereading(bytes, kv::PropertyListEncoding::kXml);
  }
  return 0;
}
