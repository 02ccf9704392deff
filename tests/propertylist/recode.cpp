// Reads a property list from standard input and writes it in the encoding that the only argument
// names, "xml" or "binary"; exit status 1 when there was no property list.

#include <iostream>
#include <iterator>
#include <string>

#include "platform/PropertyListReader.h"
#include "platform/PropertyListWriter.h"

int main(int argumentCount, char** arguments) {
  if (argumentCount != 2) return 2;
  const std::string bytes((std::istreambuf_iterator<char>(std::cin)), {});
  const auto value = kv::readPropertyList(bytes);
  if (!value) return 1;
  std::cout << kv::writePropertyList(*value, std::string(arguments[1]) == "xml"
                                                 ? kv::PropertyListEncoding::kXml
                                                 : kv::PropertyListEncoding::kBinary);
  return 0;
}
