#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace kv::kvctl {

using Json = nlohmann::ordered_json;

/// What a piece of text means to the reader; a terminal shows it by a colour.
enum class Tone { kPlain, kHeading, kGood, kWarning, kBad, kDim };

/// How to write for whoever reads: in colour for people at a terminal, plain for pipes.
///
/// Threads    any; it holds no more than its two fields.
struct Style {
  bool hasColours = false;
  /// Columns of the terminal; wide where it is none.
  std::size_t width = 100;

  /// `text` in the colour of the tone.
  std::string paint(std::string_view text, Tone tone) const;
};

/// `text` for a terminal: characters that could steer it, or that reorder or hide others, become
/// "?". Bytes that are no UTF-8 become the replacement character.
std::string shown(std::string_view text);

/// Rows whose columns stand below each other, two blanks apart.
///
/// Threads    any, one at a time.
class Table {
 public:
  struct Cell {
    Cell(std::string content, Tone itsTone = Tone::kPlain)  // NOLINT: a text is a cell
        : text(std::move(content)), tone(itsTone) {}
    Cell(const char* content) : text(content) {}  // NOLINT: a text is a cell
    std::string text;
    Tone tone = Tone::kPlain;
  };

  explicit Table(std::vector<std::string> headings);
  /// As many cells as there are headings. The texts must be harmless already.
  void add(std::vector<Cell> row);
  std::string text(const Style& style) const;

 private:
  std::vector<std::vector<Cell>> rows_;
};

/// `text` broken into lines at blanks, each begun with `indent` blanks and at most `width` columns
/// wide where its words allow that.
std::string wrapped(std::string_view text, std::size_t indent, std::size_t width);

/// The whole output of a command, to standard output. Throws Refusal (kUnexpected) when it cannot
/// be written; a reader who has seen enough (a closed pipe) is no failure.
void print(std::string_view text);
void printJson(const Json& document);

}  // namespace kv::kvctl
