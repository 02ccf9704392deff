// Question: how long does one reading of a schedule document take? Driven by parse_documents.py,
// which states the budget and compares.
//
// Usage: parse_documents FILE REPETITIONS; prints the median of the seconds per reading.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/PropertyListReader.h"

int main(int argumentCount, char** arguments) {
  if (argumentCount != 3) return 2;
  std::ifstream file(arguments[1], std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), {});
  const auto repetitions = static_cast<std::size_t>(std::max(1, std::atoi(arguments[2])));
  std::vector<double> seconds(repetitions);
  for (double& one : seconds) {
    const auto begin = std::chrono::steady_clock::now();
    const auto value = kv::readPropertyList(bytes);
    one = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    if (!value || value->as<kv::PropertyList::Array>() == nullptr) {
      std::fprintf(stderr, "%s is no list\n", arguments[1]);
      return 1;
    }
  }
  const auto median = seconds.begin() + static_cast<std::ptrdiff_t>(repetitions / 2);
  std::nth_element(seconds.begin(), median, seconds.end());
  std::printf("%.9f\n", *median);
  return 0;
}
