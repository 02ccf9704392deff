#include <cstdint>
#include <string>

#include "RereadCheck.h"

// The fixed first bytes are added here, so that every input gets past them.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes = "bplist00" + std::string(reinterpret_cast<const char*>(data), size);
  kv::checkReadingAndRereading(bytes, kv::PropertyListEncoding::kBinary);
  return 0;
}
