#pragma once

#include "tools/kvctl/ForecastView.h"

namespace kv::kvctl {

/// A forecast as a calendar that other programs import (iCalendar): each run is an event.
class ForecastCalendar final : public ForecastView {
 public:
  explicit ForecastCalendar(const ForecastSubject& subject) : subject_(subject) {}
  void begin() override;
  void runs(const ForecastRun& run) override;
  void skips(const ForecastSkip&) override {}
  void end(const std::vector<ForecastSet>& sets) override;

  /// One line of the format: ended by CR LF and broken after 75 bytes at most, between characters.
  static std::string folded(std::string_view line);
  /// A text as a value: what separates is escaped, what controls is gone.
  static std::string escaped(std::string_view text);

 private:
  const ForecastSubject& subject_;
};

}  // namespace kv::kvctl
