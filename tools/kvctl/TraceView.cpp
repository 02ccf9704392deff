#include "tools/kvctl/TraceView.h"

#include <algorithm>
#include <utility>

namespace kv::kvctl {
namespace {

constexpr const char* kGroupIndent = "  ";
constexpr const char* kLineIndent = "    ";

/// A name shows up to its first line end only.
std::optional<std::string> firstLine(std::optional<std::string> set) {
  if (set) set->resize(std::min(set->find('\n'), set->size()));
  return set;
}

const char* wordOf(TracePass pass) {
  switch (pass) {
    case TracePass::kMain:
      return "main";
    case TracePass::kOrder:
      return "order";
    case TracePass::kInterval:
      return "interval";
    case TracePass::kNone:
      break;
  }
  return nullptr;
}

const char* remarkOf(TracePass pass) {
  switch (pass) {
    case TracePass::kOrder:
      return " (is it overdue?)";
    case TracePass::kInterval:
      return " (overdue)";
    default:
      return "";
  }
}

Json textJson(const char* text) {
  return text == nullptr ? Json(nullptr) : Json(text);
}

}  // namespace

TraceView::TraceView(std::optional<std::string> set, Sink sink)
    : set_(firstLine(std::move(set))), sink_(std::move(sink)) {}

void TraceView::take(std::string_view text) {
  const TraceLine line = reader_.take(text);
  const bool isWanted = !set_ || reader_.set() == set_;
  hasFound_ = hasFound_ || isWanted;
  add(line, isWanted);
}

void TraceView::beginAnew() {
  rest();
  reader_ = TraceReader();
}

TraceText::TraceText(std::optional<std::string> set, Style style, Sink sink)
    : TraceView(std::move(set), std::move(sink)), style_(style) {}

void TraceText::add(const TraceLine& line, bool isWanted) {
  if (line.beginsTick) heading_ = hasWritten_ ? "\n" : "";
  if (line.beginsGroup) hasTitle_ = false;
  const std::string text = (line.time.empty() ? "" : style_.paint(line.time, Tone::kDim) + "  ") +
                           style_.paint(shown(line.text), line.tone) + "\n";
  if (line.isHeading) heading_ += text;
  if (!isWanted) return;
  std::string output = std::exchange(heading_, "");
  if (!line.isHeading) {
    const bool hasGroup = reader().pass() != TracePass::kNone;
    if (hasGroup && !std::exchange(hasTitle_, true)) {
      const std::string name = reader().set() ? shown(*reader().set()) : "(unknown set)";
      output +=
          kGroupIndent + style_.paint(name, Tone::kHeading) + remarkOf(reader().pass()) + "\n";
    }
    output += (hasGroup ? kLineIndent : kGroupIndent) + text;
  }
  write(output);
  hasWritten_ = true;
}

TraceJson::TraceJson(std::optional<std::string> set, Form form, Sink sink)
    : TraceView(std::move(set), std::move(sink)), form_(form) {}

void TraceJson::add(const TraceLine& line, bool isWanted) {
  if (line.beginsTick) rest();
  if (line.beginsGroup) isGroupOpen_ = false;
  fired_ = reader().fired();
  if (!isWanted) return;
  if (!std::exchange(isGroupOpen_, true)) {
    const auto& set = reader().set();
    groups_.push_back({{"set", set ? Json(*set) : Json(nullptr)},
                       {"pass", textJson(wordOf(reader().pass()))},
                       {"lines", Json::array()}});
  }
  groups_.back()["lines"].push_back(
      {{"time", line.time.empty() ? Json(nullptr) : Json(line.time)}, {"text", line.text}});
}

void TraceJson::rest() {
  isGroupOpen_ = false;
  if (groups_.empty()) return;
  Json tick = {{"fired", fired_.empty() ? Json(nullptr) : Json(fired_)}};
  tick["groups"] = std::exchange(groups_, Json::array());
  const bool isArray = form_ == Form::kArray;
  if (isArray) write(hasWritten_ ? ",\n" : "[\n");
  hasWritten_ = true;
  write(tick.dump(isArray ? 2 : -1, ' ', false, Json::error_handler_t::replace));
  if (!isArray) write("\n");
}

void TraceJson::end() {
  rest();
  if (form_ == Form::kArray) write(hasWritten_ ? "\n]\n" : "[]\n");
}

}  // namespace kv::kvctl
