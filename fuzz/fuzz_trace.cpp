#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include "FuzzInput.h"
#include "tools/kvctl/TraceLines.h"
#include "tools/kvctl/TraceView.h"

// Whatever lies in the trace file: what is shown cannot steer a terminal, and what is said to be
// JSON is.
//
// The first line is the set that is looked for, if any; the rest is the file.

namespace kv::kvctl {
namespace {

void feed(TraceView& view, std::string_view file) {
  TraceLines lines([&](std::string_view line) { view.take(line); });
  // In two pieces, as a file that grows is read.
  lines.feed(file.substr(0, file.size() / 2));
  view.rest();
  lines.feed(file.substr(file.size() / 2));
  lines.finish();
  view.end();
}

bool isHarmless(const std::string& text) {
  return std::none_of(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) < ' ' && c != '\n') || c == '\x7F';
  });
}

void view(std::string_view file, const std::optional<std::string>& set) {
  std::string output;
  const auto keep = [&](std::string_view piece) { output += piece; };
  TraceText text(set, Style{}, keep);
  feed(text, file);
  require(isHarmless(output), "nothing steers the terminal");

  output.clear();
  TraceJson array(set, TraceJson::Form::kArray, keep);
  feed(array, file);
  require(Json::accept(output), "the array is JSON");

  output.clear();
  TraceJson objects(set, TraceJson::Form::kLines, keep);
  feed(objects, file);
  for (std::string_view rest = output; !rest.empty();) {
    const auto end = std::min(rest.find('\n'), rest.size());
    require(Json::accept(rest.substr(0, end)), "each line is JSON");
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
}

}  // namespace
}  // namespace kv::kvctl

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kv::FuzzInput input(data, size);
  const std::string set(input.line());
  kv::kvctl::view(input.rest(), set.empty() ? std::nullopt : std::optional(set));
  return 0;
}
