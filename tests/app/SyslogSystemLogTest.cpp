#include "platform/linux/SyslogSystemLog.h"

#include <gmock/gmock.h>
#include <unistd.h>

namespace kv::test {
namespace {

TEST(SyslogSystemLog, ALineIsALineWhateverItHolds) {
  testing::internal::CaptureStderr();
  {
    SyslogSystemLog log("TestName");
    log.write("plain größe 100%s");
    log.write(std::string_view("a\nb\x1b[31m\0c", 10));
    log.write(std::string(5000, 'x'));
  }
  const std::string prefix = "TestName[" + std::to_string(getpid()) + "]: ";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), prefix + "plain größe 100%s\n" + prefix +
                                                        "a b [31m c\n" + prefix +
                                                        std::string(5000, 'x') + "\n");
}

}  // namespace
}  // namespace kv::test
