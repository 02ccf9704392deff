#pragma once

#include "tools/kvctl/ForecastView.h"

namespace kv::kvctl {

/// A forecast for programs: one JSON object, whose events come one a line.
class ForecastJson final : public ForecastView {
 public:
  explicit ForecastJson(const ForecastSubject& subject) : subject_(subject) {}
  void begin() override;
  void runs(const ForecastRun& run) override;
  void skips(const ForecastSkip& skip) override;
  void end(const std::vector<ForecastSet>& sets) override;

 private:
  Json setJson(std::size_t index) const;
  Json namesJson(const std::vector<std::size_t>& sets) const;
  void add(std::size_t index, const Json& event);

  const ForecastSubject& subject_;
  bool hasEvents_ = false;
};

}  // namespace kv::kvctl
