#pragma once

#include <string>

#include "platform/PropertyListWriter.h"

namespace kv::bench {

/// Records as an application in everyday use holds them, of all four types; none is due at `now`,
/// so that a tick judges every one of them.
struct EverydaySets {
  Date now;
  int today = 0;

  PropertyList::Array sets(int count) const {
    PropertyList::Array sets;
    for (int i = 0; i < count; ++i) {
      const auto name = "Set number " + std::to_string(i);
      auto options = fieldsOfType(i);
      for (int day = 1; day <= 7; ++day) {
        options.set("day" + std::to_string(day), (i + day) % 2);
      }
      options.set("sethours", 2);
      options.set("setmins", 15);
      options.set("minhourdate", now + kDay);
      auto record = lean(i);
      record.set("sourcePaths",
                 PropertyList::Array{"/home/user/" + name, "/home/user/too/" + name});
      record.set("schopts", options);
      sets.push_back(record);
    }
    return sets;
  }

  /// With the fields that the type of each needs: 100,000 of these fit in two documents.
  PropertyList::Array leanSets(int count) const {
    PropertyList::Array sets;
    for (int i = 0; i < count; ++i) sets.push_back(lean(i));
    return sets;
  }

 private:
  static constexpr Seconds kDay{86400};

  PropertyList::Dictionary lean(int i) const {
    return {{"backupset", "Set number " + std::to_string(i)},
            {"destinationPath", "/backup/destination/" + std::to_string(i % 10)},
            {"schopts", fieldsOfType(i)}};
  }

  PropertyList::Dictionary fieldsOfType(int i) const {
    PropertyList::Dictionary options{
        {"scheduleIt", 1}, {"runState", true}, {"dayWeekOrHour", i % 4}};
    if (i % 4 < 2) {
      options.set("datePick", now + Seconds(-60.0 * (i % 600)));
      options.set("afterSleep", i % 3 == 0 ? 1 : 0);
      options.set("dayOfMonth", std::to_string(today));
    } else {
      options.set(i % 4 == 2 ? "sethours" : "setmins", 15);
      options.set("minhourdate", now + kDay);
    }
    if (i % 4 == 1) options.set("day" + std::to_string(i % 7 + 1), 1);
    return options;
  }
};

}  // namespace kv::bench
