#include <gmock/gmock.h>

#include "platform/HarmlessText.h"
#include "platform/PlatformError.h"
#include "platform/qt/QtProcessLauncher.h"
#include "tests/app/HostWorld.h"
#include "tests/support/ScopedEnvironment.h"
#include "tools/kvbackup/SetList.h"

namespace kv::test {
namespace {

using testing::HasSubstr;

TEST(HostileNames, BecomeOneLineThatShowsWhatItSays) {
  const std::pair<const char*, const char*> kCases[] = {
      {"a\n09:00:00 > stopped\r", "a?09:00:00 > stopped?"},
      {"\x1b[31m\x07", "?[31m?"},
      {"\xC2\x9B"
       "31m\xC2\x85",
       "?31m?"},  // the same as single characters
      {"\x9B"
       "31m",
       "\xEF\xBF\xBD"
       "31m"},  // and as the byte of an older encoding
      {"\xE2\x80\xAEgpj.exe\xE2\x81\xA9", "?gpj.exe?"},
      {"x\xE2\x80\xA8y\xEF\xBB\xBF", "x?y?"},
      {"می\xE2\x80\x8Cخواهم 👩\xE2\x80\x8D💻", "می\xE2\x80\x8Cخواهم 👩\xE2\x80\x8D💻"},
      {"--help <b>&'\"$(x)", "--help <b>&'\"$(x)"},
  };
  for (const auto& [name, shown] : kCases) EXPECT_EQ(harmless(name, '?'), shown);
}

TEST(HostileNames, ReachNeitherTheLogNorTheTerminalAsTheyAre) {
  const std::string name = "x\n00:00:00 > stopped\x1b[31m\xE2\x80\xAE";
  HostWorld world({Task(name.c_str()).daily("00:00").lastRun("4")});
  world.tickAt("2024-03-05 09:01:00");
  world.tickAt("2024-03-05 09:03:00");
  const std::string shown = " > x 00:00:00 > stopped [31m: ";
  EXPECT_THAT(world.events(), HasSubstr(shown + "starting the backup with kvbackup\n"));
  EXPECT_THAT(world.events(), HasSubstr(shown + "kvbackup did not start\n"));
  EXPECT_THAT(world.events(), HasSubstr(shown + "failed, next try at "));

  DocumentStore::Documents documents;
  documents[0].records = {Task(name.c_str()).daily("09:30")};
  EXPECT_THAT(SetList::table(documents, {}), HasSubstr("x?00:00:00 > stopped?[31m?"));
}

TEST(HostileNames, OfMegabytesHoldNothingUp) {
  // Some 30 µs for a character, and several looks at it in a tick.
  HostWorld world({Task(std::string(1'000'000, 'x').c_str()).daily("00:00").lastRun("4")});
  world.tickAt("2024-03-05 09:01:00");
  EXPECT_LT(world.events().size(), 10'000u);
}

TEST(HostileNames, ArriveWholeOrNotAtAll) {
  QtProcessLauncher launcher;
  EXPECT_NO_THROW(launcher.start("/bin/true", {{"Docs"}}));
  EXPECT_THROW(launcher.start("/bin/true", {{std::string("Docs\0x", 6)}}), PlatformError);
}

}  // namespace
}  // namespace kv::test
