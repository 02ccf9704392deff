#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "app/Host.h"
#include "tools/kvctl/Forecast.h"
#include "tools/kvctl/Output.h"

namespace kv::kvctl {

/// What a forecast is about and who reads it.
struct ForecastSubject {
  /// The sets as they stand before it.
  TaskList sets;
  /// Of each set, harmless to a terminal.
  std::vector<std::string> names;
  /// Whether the reader wants to know of it.
  std::vector<bool> isShown;
  ForecastPlan plan;
  Style style;
  /// False where only ASCII can be shown.
  bool hasBlocks = true;
  /// Takes the output, piece by piece, so that a year needs no more memory than a week.
  std::function<void(std::string_view)> write;
};

/// A forecast as somebody wants to read it.
///
/// Threads    main thread only.
/// Ownership  borrows the subject, which must outlive it.
class ForecastView : public ForecastSink {
 public:
  virtual void begin() = 0;
  virtual void end(const std::vector<ForecastSet>& sets) = 0;
};

}  // namespace kv::kvctl
