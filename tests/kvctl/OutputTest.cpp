#include <gtest/gtest.h>

#include "tests/support/ScopedEnvironment.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvctl/Context.h"
#include "tools/kvctl/Output.h"

namespace kv::kvctl {
namespace {

TEST(Output, NothingOfADocumentSteersATerminal) {
  const struct {
    const char* text;
    const char* shown;
  } kCases[] = {
      {"a\x1b[2Jb", "a?[2Jb"},    // clears the screen
      {"a\nb\tc\rd", "a?b?c?d"},  // breaks the table
      {"\xe2\x80\xae"
       "cod.exe",
       "?cod.exe"},  // turns the direction round
      {"\xc2\x9b"
       "31m",
       "?31m"},  // an escape sequence in one character
      {"Ümläut 日本", "Ümläut 日本"},
      {"\xff", "\xef\xbf\xbd"},
  };
  for (const auto& one : kCases) EXPECT_EQ(shown(one.text), one.shown);
}

TEST(Output, ColumnsStandBelowEachOtherWhateverTheirBytesAndColours) {
  Table table({"SET", "N"});
  table.add({{"Ä", Tone::kBad}, "1"});
  table.add({"abcd", "2"});
  EXPECT_EQ(table.text({}), "SET   N\nÄ     1\nabcd  2\n");
  EXPECT_EQ(table.text({.hasColours = true}),
            "\x1b[1mSET\x1b[0m   \x1b[1mN\x1b[0m\n\x1b[31mÄ\x1b[0m     1\nabcd  2\n");
}

TEST(Output, TimesAreReadInTheLocalZone) {
  const test::ScopedEnvironment zone("TZ", "Europe/Berlin");
  const Date now = Date::fromUnixSeconds(1700000000);  // 2023-11-14 23:13:20 in Berlin
  const struct {
    const char* text;
    const char* instant;
  } kCases[] = {
      {"2026-07-01 09:30", "2026-07-01T07:30:00Z"},
      {"2026-07-01T09:30:05", "2026-07-01T07:30:05Z"},
      {"2026-01-01", "2025-12-31T23:00:00Z"},
      {"09:30", "2023-11-14T08:30:00Z"},
      {"2026-07-01T09:30:00Z", "2026-07-01T09:30:00Z"},
      {"2026-03-29 02:30", nullptr},  // the clocks skip it
      {"2026-02-30 10:00", nullptr},
      {"9:3", nullptr},
      {"", nullptr},
      {"tomorrow", nullptr},
  };
  for (const auto& one : kCases) {
    const auto date = parseTime(one.text, now);
    EXPECT_EQ(date ? utcStamp(*date) : "none", one.instant ? one.instant : "none") << one.text;
  }
}

}  // namespace
}  // namespace kv::kvctl
