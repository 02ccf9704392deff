#pragma once

#include <time.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string_view>

namespace kv {

/// An input as text that is taken line by line, so that seeds can be read and written by hand.
///
/// Lines end in a line feed; the last one may lack it. What has run out is empty.
class FuzzInput {
 public:
  FuzzInput(const std::uint8_t* data, std::size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  bool isAtEnd() const { return rest_.empty(); }
  std::string_view rest() const { return rest_; }

  std::string_view line() {
    const auto end = rest_.find('\n');
    const auto line = rest_.substr(0, end);
    rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
    return line;
  }

 private:
  std::string_view rest_;
};

/// Takes the first character off `text`; a NUL when there is none.
inline char takeFirst(std::string_view& text) {
  if (text.empty()) return '\0';
  const char first = text.front();
  text.remove_prefix(1);
  return first;
}

/// Local time from here on. Zones with changes of an hour and of half an hour, at midnight, across
/// the date line, and by a rule instead of a name.
inline void setZone(char letter) {
  constexpr const char* kZones[] = {"UTC0",
                                    "Europe/Berlin",
                                    "Australia/Lord_Howe",
                                    "America/St_Johns",
                                    "Pacific/Apia",
                                    "America/Sao_Paulo",
                                    "<+1145>-11:45<+1315>,M3.2.0/26,M11.1.0/-3"};
  const char* zone = kZones[static_cast<unsigned char>(letter) % std::size(kZones)];
  ::setenv("TZ", zone, 1);
  ::tzset();
}

/// A promise that has to hold whatever the input.
inline void require(bool holds, const char* promise) {
  if (holds) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

}  // namespace kv
