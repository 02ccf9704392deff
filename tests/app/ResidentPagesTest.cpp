#include "platform/linux/ResidentPages.h"

#include <gtest/gtest.h>

#include "tests/app/ScriptWorld.h"

namespace kv::test {
namespace {

/// Kilobytes of program files in memory.
long residentFilePages() {
  const std::string status = readFile("/proc/self/status");
  return std::stol(status.substr(status.find("RssFile:") + 8));
}

/// Changed before the test: data that must not go back to what the file holds.
int changedAtRunTime = 1;

TEST(ResidentPages, WhatStartingNeededGoesAndComesBackWhenTouched) {
  ScriptWorld world;
  world.script("var before = 'kept';");
  changedAtRunTime = 2;
  const long before = residentFilePages();
  releaseStartupPages();
  EXPECT_LT(residentFilePages(), before / 2);
  EXPECT_EQ(changedAtRunTime, 2);
  EXPECT_EQ(world.show("new KVTimer().getType(0) + before"), "Dailykept");
}

}  // namespace
}  // namespace kv::test
