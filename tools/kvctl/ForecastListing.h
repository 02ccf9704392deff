#pragma once

#include "tools/kvctl/ForecastView.h"

namespace kv::kvctl {

/// A forecast as a list, day by day.
class ForecastListing final : public ForecastView {
 public:
  explicit ForecastListing(const ForecastSubject& subject);
  void begin() override;
  void runs(const ForecastRun& run) override;
  void skips(const ForecastSkip& skip) override;
  void end(const std::vector<ForecastSet>& sets) override;

 private:
  struct Line {
    Date date;
    std::string when;
    std::size_t index;
    std::string what;
    Tone tone;
    std::string why;
  };
  void add(const Line& line);
  std::string padded(std::size_t index) const;
  std::string sinceText(const ForecastRun& run) const;

  const ForecastSubject& subject_;
  std::size_t nameWidth_ = 0;
  std::string day_;
};

}  // namespace kv::kvctl
