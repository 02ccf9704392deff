#include "platform/SystemSeams.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include "platform/ProcessFacts.h"
#include "platform/linux/SyslogSystemLog.h"
#include "tests/support/ScopedEnvironment.h"

namespace kv::test {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

TEST(ProcessFacts, AreThoseOfTheProcess) {
  const auto facts = ProcessFacts::current();
  EXPECT_EQ(facts.name, "platform_tests");
  EXPECT_EQ(facts.pid, ::getpid());
  EXPECT_EQ(facts.bundleIdentifier, std::nullopt);
  setMainBundleIdentifier("com.example.Tests");
  EXPECT_EQ(ProcessFacts::current().bundleIdentifier, "com.example.Tests");
  setMainBundleIdentifier(std::nullopt);
}

TEST(ProcessFacts, CountAllProcessorsOfTheMachine) {
  const unsigned all = ProcessFacts::current().processors;
  EXPECT_GE(all, 1u);
  cpu_set_t before;
  ASSERT_EQ(::sched_getaffinity(0, sizeof(before), &before), 0);
  EXPECT_GE(all, unsigned(CPU_COUNT(&before)));
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(::sched_getcpu(), &one);
  ASSERT_EQ(::sched_setaffinity(0, sizeof(one), &one), 0);
  EXPECT_EQ(ProcessFacts::current().processors, all);
  ::sched_setaffinity(0, sizeof(before), &before);
}

TEST(SystemSeams, LogOneLineToStandardErrorWhoeverWritesIt) {
  const auto prefix = "platform_tests[" + std::to_string(::getpid()) + "]: ";
  CaptureStderr();
  processSystemLog()->write("one\x1b[31m\ntwo %s");
  EXPECT_EQ(GetCapturedStderr(), prefix + "one [31m two %s\n");

  CaptureStderr();
  {
    SyslogSystemLog programs("platform_tests");
    processSystemLog()->write("once");
  }
  EXPECT_EQ(GetCapturedStderr(), prefix + "once\n");
}

TEST(SystemSeams, FindFoldersByTheEnvironment) {
  {
    ScopedEnvironment home("HOME", "/home/someone");
    ScopedEnvironment temporary("TMPDIR", "/scratch");
    EXPECT_EQ(userLibraryFolder(), "/home/someone/Library");
    EXPECT_EQ(temporaryFolder(), "/scratch");
  }
  ScopedEnvironment home("HOME", "/");
  ScopedEnvironment temporary("TMPDIR", nullptr);
  EXPECT_EQ(userLibraryFolder(), "");
  EXPECT_EQ(temporaryFolder(), "/tmp");
}

}  // namespace
}  // namespace kv::test
