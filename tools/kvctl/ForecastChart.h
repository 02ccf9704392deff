#pragma once

#include <optional>
#include <utility>

#include "tools/kvctl/ForecastView.h"

namespace kv::kvctl {

/// A forecast as charts of a week each: a row for each set, and blocks where it runs. Columns are
/// parts of the local day, so that all days are equally wide.
class ForecastChart final : public ForecastView {
 public:
  explicit ForecastChart(const ForecastSubject& subject);
  void begin() override;
  void runs(const ForecastRun& run) override;
  void skips(const ForecastSkip& skip) override;
  void end(const std::vector<ForecastSet>& sets) override;

 private:
  /// One set in the present week.
  struct Row {
    /// The part of each column in which it runs, from 0 to 1.
    std::vector<double> filled;
    std::vector<bool> skipped;
  };

  /// Seconds since the first day's midnight, as local clocks count them.
  double position(Date date) const;
  void reach(double position);
  void beginWeek();
  void writeWeek();
  void fill(Row& row, double from, double until) const;
  std::string headings() const;
  std::string cells(const Row& row) const;
  std::string label(std::string text) const;

  const ForecastSubject& subject_;
  std::size_t nameWidth_ = 0;
  int days_ = 0;  ///< that the forecast touches
  int columnsPerDay_ = 1;
  int firstDay_ = 0;  ///< of the present week
  int daysOfWeek_ = 0;
  double midnight_ = 0;  ///< of the first day
  std::vector<Row> rows_;
  /// A run that goes on in the next week: its set, and its end.
  std::optional<std::pair<std::size_t, double>> rest_;
};

}  // namespace kv::kvctl
