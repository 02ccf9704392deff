// Reads a property list from standard input and writes it in the encoding that the only argument
// names, "xml" or "binary". Exit status: 1 when there was no property list, 2 when what was
// written does not read back as the same bytes.

#include <iostream>
#include <iterator>
#include <string>

#include "platform/PropertyListReader.h"
#include "platform/PropertyListWriter.h"

int main(int, char** arguments) {
  const auto encoding = std::string(arguments[1]) == "xml" ? kv::PropertyListEncoding::kXml
                                                           : kv::PropertyListEncoding::kBinary;
  const std::string bytes((std::istreambuf_iterator<char>(std::cin)), {});
  const auto value = kv::readPropertyList(bytes);
  if (!value) return 1;
  const std::string written = kv::writePropertyList(*value, encoding);
  const auto again = kv::readPropertyList(written);
  // Bytes and not trees, since a NaN is unequal to itself.
  if (!again || kv::writePropertyList(*again, encoding) != written) return 2;
  std::cout << written;
  return 0;
}
