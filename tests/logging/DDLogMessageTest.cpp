#include "logging/DDLogMessage.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>

#include "platform/SerialQueue.h"
#include "platform/SystemSeams.h"

namespace kv {
namespace {

TEST(DDLogMessage, TakesDownWhatOnlyTheCallersThreadKnows) {
  SerialQueue queue("caller's queue");
  const Date before = systemClock()->now();
  std::shared_ptr<DDLogMessage> message;
  std::string expectedThread;
  std::thread([&] {
    pthread_setname_np(pthread_self(), "caller");
    expectedThread = fmt::format("{:x}", gettid());
    queue.sync([&] {
      message = std::make_shared<DDLogMessage>(DDLogMessage::Fields{.message = makeLogText("text"),
                                                                    .level = 7,
                                                                    .flag = 4,
                                                                    .context = -3,
                                                                    .file = "/src/dir.d/a.b.cpp",
                                                                    .function = "f()",
                                                                    .line = 12,
                                                                    .options = -1});
    });
  }).join();
  EXPECT_EQ(message->threadID(), expectedThread);
  EXPECT_EQ(message->threadName(), "caller");
  EXPECT_EQ(message->queueLabel(), "caller's queue");
  EXPECT_GE(message->timestamp(), before);
  EXPECT_LE(message->timestamp(), systemClock()->now());

  // A copy made later, elsewhere, takes nothing down anew.
  const DDLogMessage copy(*message);
  const std::weak_ptr<DDLogMessage> original = message;
  const LogText text = message->message();
  message.reset();
  EXPECT_TRUE(original.expired()) << "a copy needs no original";
  EXPECT_EQ(copy.message(), text);
  EXPECT_EQ(copy.threadID(), expectedThread);
  EXPECT_EQ(copy.threadName(), "caller");
  EXPECT_EQ(copy.queueLabel(), "caller's queue");
  EXPECT_EQ(copy.file(), "/src/dir.d/a.b.cpp");
  EXPECT_EQ(copy.fileName(), "a.b");
  EXPECT_EQ(copy.function(), "f()");
  EXPECT_EQ(copy.level() + copy.flag() + copy.line(), 23u);
  EXPECT_EQ(copy.context() + copy.options(), -4);
}

TEST(DDLogMessage, KnowsAThreadsNameOfTheMomentAndNoneThatNobodyGave) {
  std::string names;
  std::thread([&names] {
    const auto note = [&names] { names += DDLogMessage({.message = nullptr}).threadName(); };
    note();
    for (const char* name : {"one", "two"}) {
      pthread_setname_np(pthread_self(), name);
      note();
    }
  }).join();
  EXPECT_EQ(names, "onetwo");
}

TEST(DDLogMessage, KeepsAGivenTimestampAndNoText) {
  const Date given{Seconds(-5.25)};
  const DDLogMessage message({.message = nullptr, .timestamp = given});
  EXPECT_EQ(message.timestamp(), given);
  EXPECT_EQ(message.message(), nullptr);
}

TEST(DDLogMessage, FileNameIsTheLastComponentUpToItsLastDot) {
  for (const auto& [file, name] : {std::pair{"dir/a.b.m", "a.b"},
                                   {"dir/Makefile", "Makefile"},
                                   {".profile", ""},
                                   {"x/y.tar.gz", "y.tar"},
                                   {"dir.d/file", "file"},
                                   {"a/b.c/", "b"},
                                   {"/", "/"},
                                   {"", ""}}) {
    EXPECT_EQ(DDLogMessage({.message = nullptr, .file = file}).fileName(), name) << file;
  }
}

TEST(DDExtractFileNameWithoutExtension, TakesTheLastDotOfTheWholePath) {
  for (const bool copy : {true, false}) {
    EXPECT_EQ(*DDExtractFileNameWithoutExtension("/a/b/c.m", copy), "c");
    EXPECT_EQ(*DDExtractFileNameWithoutExtension("c", copy), "c");
    EXPECT_EQ(*DDExtractFileNameWithoutExtension("x/y.tar.gz", copy), "y.tar");
    EXPECT_EQ(*DDExtractFileNameWithoutExtension("dir/", copy), "");
    EXPECT_EQ(DDExtractFileNameWithoutExtension(nullptr, copy), nullptr);
    EXPECT_EQ(DDExtractFileNameWithoutExtension("\xff\xfe.c", copy), nullptr);
    EXPECT_THROW(DDExtractFileNameWithoutExtension("dir.d/file", copy), std::length_error);
  }
  std::string path = "a/name.c";
  const auto shown = DDExtractFileNameWithoutExtension(path.c_str(), false);
  const auto copied = DDExtractFileNameWithoutExtension(path.c_str(), true);
  path[2] = 'N';
  EXPECT_EQ(*shown, "Name");
  EXPECT_EQ(*copied, "name");
}

}  // namespace
}  // namespace kv
