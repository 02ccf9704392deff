#include "tools/kvctl/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/HarmlessText.h"
#include "tools/kvbackup/Text.h"
#include "tools/kvctl/ExitStatus.h"

namespace kv::kvctl {
namespace {

constexpr std::size_t kGap = 2;

const char* colourOf(Tone tone) {
  switch (tone) {
    case Tone::kHeading:
      return "1";
    case Tone::kGood:
      return "32";
    case Tone::kWarning:
      return "33";
    case Tone::kBad:
      return "31";
    case Tone::kDim:
      return "2";
    case Tone::kPlain:
      break;
  }
  return nullptr;
}

}  // namespace

std::string Style::paint(std::string_view text, Tone tone) const {
  const char* const colour = hasColours ? colourOf(tone) : nullptr;
  if (colour == nullptr || text.empty()) return std::string(text);
  return fmt::format("\x1b[{}m{}\x1b[0m", colour, text);
}

std::string shown(std::string_view text) {
  return harmless(text, '?');
}

Table::Table(std::vector<std::string> headings) {
  std::vector<Cell> row;
  for (std::string& heading : headings) row.emplace_back(std::move(heading), Tone::kHeading);
  rows_.push_back(std::move(row));
}

void Table::add(std::vector<Cell> row) {
  assert(row.size() == rows_.front().size());
  rows_.push_back(std::move(row));
}

std::string Table::text(const Style& style) const {
  std::vector<std::size_t> widths(rows_.front().size());
  for (const auto& row : rows_) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], characterCount(row[column].text));
    }
  }
  std::string text;
  for (const auto& row : rows_) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      text += style.paint(row[column].text, row[column].tone);
      if (column + 1 == row.size()) break;
      text.append(widths[column] + kGap - characterCount(row[column].text), ' ');
    }
    text += '\n';
  }
  return text;
}

std::string wrapped(std::string_view text, std::size_t indent, std::size_t width) {
  std::string result;
  std::size_t column = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (word.empty()) continue;
    const std::size_t length = characterCount(word);
    if (column > 0 && column + 1 + length > width) {
      result += '\n';
      column = 0;
    }
    result += column == 0 ? std::string(indent, ' ') : " ";
    column += column == 0 ? indent + length : length + 1;
    result += word;
  }
  return result + "\n";
}

void print(std::string_view text) {
  const bool isWritten =
      std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
  if (isWritten || errno == EPIPE) return;
  throw Refusal(ExitStatus::kUnexpected,
                fmt::format("the output cannot be written: {}", std::strerror(errno)));
}

void printJson(const Json& document) {
  print(document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

}  // namespace kv::kvctl
