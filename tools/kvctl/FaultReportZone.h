#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Date.h"
#include "tools/kvctl/Output.h"

namespace kv::kvctl {

/// How far local time was ahead of UTC around the instants that a tick looks at: enough to make
/// the same local times elsewhere, whatever that system knows of the zone.
///
/// Threads    main thread only, as the zone is the process's.
/// Units      seconds since 1970-01-01 UTC; offsets in seconds east of Greenwich.
/// Errors     from() throws Refusal.
struct ReportZone {
  struct Change {
    std::int64_t since = 0;
    std::int32_t offset = 0;
  };
  /// For people only; empty when it is not known or nobody's business.
  std::string name;
  /// In order of time; the first offset holds before it too. At least one.
  std::vector<Change> changes;

  /// The present zone, around each of the instants.
  static ReportZone around(std::vector<Date> instants);
  static ReportZone from(const Json& json);
  Json json() const;

  /// Makes a zone the process's for as long as it lives.
  class InForce {
   public:
    /// Throws Refusal when the system cannot take it up.
    explicit InForce(const ReportZone& zone);
    ~InForce();
    InForce(const InForce&) = delete;
    InForce& operator=(const InForce&) = delete;

   private:
    std::optional<std::string> before_;
    int file_ = -1;
  };
};

}  // namespace kv::kvctl
