#include "platform/DateFormatter.h"

#include <gtest/gtest.h>

#include <cmath>

#include "platform/LocalTime.h"
#include "tests/support/ScopedEnvironment.h"

namespace kv::test {
namespace {

constexpr double kJuly = 1720000000;  // 2024-07-03 09:46:40 UTC, a Wednesday

struct RenderCase {
  const char* zone;
  const char* locale;
  const char* pattern;
  double unixSeconds;
  const char* text;
};

TEST(DateFormatter, RendersLocalTimeInAsciiDigits) {
  const RenderCase cases[] = {
      {"UTC0", "C", "YYYY/MM/dd HH:mm:ss", kJuly, "2024/07/03 09:46:40"},
      {kBerlin, "de_DE.UTF-8", "HHmm", kJuly, "1146"},
      {kBerlin, "de_DE.UTF-8@euro", "e", kJuly, "3"},
      {kBerlin, "en_US.UTF-8", "e", kJuly, "4"},
      {kBerlin, "POSIX", "e", kJuly, "4"},
      {kBerlin, "ar_EG.UTF-8", "MM/dd HH:mm:ss e", kJuly, "07/03 11:46:40 5"},
      {kBerlin, "fa_IR", "d HHmm", kJuly, "3 1146"},  // neither Persian digits nor calendar
      {kBerlin, "th_TH", "yyyy", kJuly, "2024"},      // not the Buddhist year
      {kBerlin, "no such locale!", "e", kJuly, "4"},
      {kBerlin, "ar_", "d HHmm", kJuly, "3 1146"},              // keywords are no part of a name
      {kBerlin, "Cj1711846800", "B", kJuly, "in the morning"},  // a name that no library takes
      {"<+0545>-5:45", "C", "HH:mm", kJuly, "15:31"},
      {"UTC0", "C", "HH:mm:ss", -0.5, "23:59:59"},
      {"UTC0", "de_DE", "YYYY", 1735473600, "2024"},  // Sunday, 29 December: the last day of
      {"UTC0", "en_US", "YYYY", 1735473600, "2025"},  // a week here, the first of one there
  };
  for (const auto& c : cases) {
    ScopedEnvironment zone("TZ", c.zone);
    EXPECT_EQ(DateFormatter(c.pattern, DateLocale::fromName(c.locale))
                  .string(Date::fromUnixSeconds(c.unixSeconds)),
              c.text)
        << c.locale << " " << c.pattern;
  }
}

TEST(DateFormatter, KeepsToUtcWhateverTheLocalZone) {
  ScopedEnvironment zone("TZ", kBerlin);
  const DateFormatter format("yyyy-MM-dd HH-mm", DateLocale::fromName("C"), DateZone::kUtc);
  EXPECT_EQ(format.string(Date::fromUnixSeconds(kJuly)), "2024-07-03 09-46");
  EXPECT_EQ(format.date("2024-07-03 09-46"), Date::fromUnixSeconds(kJuly - 40));
  EXPECT_TRUE(format.date("2024-03-31 02-30")) << "skipped by local clocks only";
  EXPECT_EQ(format.string(Date::fromUnixSeconds(HUGE_VAL)), std::nullopt);
}

TEST(DateFormatter, CutsOffAfterTheMillisecond) {
  const DateFormatter format("ss.SSS", DateLocale::fromName("C"), DateZone::kUtc);
  for (int milliseconds = 0; milliseconds < 1000; ++milliseconds) {
    // Put together as the parser does it, with the rounding that this brings.
    const auto text = format.string(Date::fromUnixSeconds((kJuly * 1000 + milliseconds) / 1000));
    EXPECT_EQ(std::stoi(text->substr(3)), milliseconds);
  }
  EXPECT_EQ(format.string(Date::fromUnixSeconds(kJuly + 0.9999995)), "40.999");
  EXPECT_EQ(format.string(Date::fromUnixSeconds(kJuly + 0.0019)), "40.001");
  EXPECT_EQ(format.string(Date::fromUnixSeconds(-0.25)), "59.750");
  const DateFormatter whole("yyyy-MM-dd HH:mm:ss.SSS", DateLocale::fromName("C"));
  const auto date = whole.date("2024-07-03 09:46:40.123");
  ASSERT_TRUE(date);
  EXPECT_EQ(whole.string(*date), "2024-07-03 09:46:40.123");
}

TEST(DateFormatter, FollowsTheZoneWhileItIsKept) {
  ScopedEnvironment zone("TZ", "UTC0");
  const DateFormatter format("HHmm", DateLocale::fromName("C"));
  EXPECT_EQ(format.string(Date::fromUnixSeconds(kJuly)), "0946");
  zone.set("EST5");
  EXPECT_EQ(format.string(Date::fromUnixSeconds(kJuly)), "0446");
  EXPECT_EQ(localTimeOfDay(Date::fromUnixSeconds(kJuly)), "04:46:40");
}

/// The scheduler decides by the number and traces the text.
TEST(DateFormatter, TheTimeOfDayAsANumberIsTheOneRendered) {
  const DateFormatter format("HHmm", DateLocale::fromName("C"));
  for (const char* name : {kBerlin, "UTC0", "LHST-10:30LHDT-11,M10.1.0,M4.1.0", "XYZ3:07:19"}) {
    const ScopedEnvironment zone("TZ", name);
    // Some 285,000 years: farther away a double holds no single milliseconds, which ICU counts.
    constexpr double kFarthest = 9e12;
    for (double seconds = -kFarthest; seconds <= kFarthest; seconds += 7.77e8 + 0.3) {
      const Date date = Date::fromUnixSeconds(seconds);
      ASSERT_EQ(localTimeNumber(date), std::stoi(format.string(date).value())) << name << seconds;
    }
  }
  EXPECT_EQ(localTimeNumber(Date::fromUnixSeconds(1e300)), std::nullopt);
}

TEST(DateFormatter, RendersNothingForAnInstantWithoutACalendar) {
  const DateFormatter format("HHmm", DateLocale::fromName("C"));
  for (const double seconds : {HUGE_VAL, -HUGE_VAL, std::nan(""), 1e300, -1e300, 1e18}) {
    EXPECT_EQ(format.string(Date::fromUnixSeconds(seconds)), std::nullopt) << seconds;
  }
  EXPECT_TRUE(format.string(Date::fromUnixSeconds(-1e12)));
}

TEST(DateFormatter, ParsesNothingButWholeAndExactDates) {
  ScopedEnvironment zone("TZ", kBerlin);
  const DateFormatter format("MM/dd/yyyy HH:mm:ss", DateLocale::fromName("de_DE"));
  EXPECT_EQ(format.date("01/02/2011 06:37:35"), Date::fromUnixSeconds(1293946655));
  EXPECT_EQ(format.date("07/03/2024 11:46:40"), Date::fromUnixSeconds(kJuly));
  for (const char* text :
       {"", "01/02/2011", "01/02/2011 06:37:35 ", "1/2/2011 6:37:35", "02/30/2024 00:00:00",
        "03/31/2024 02:30:00" /* skipped in spring */, "01/02/2011 06:37:3x"}) {
    EXPECT_EQ(format.date(text), std::nullopt) << text;
  }
  const DateFormatter fractions("ss.SSS", DateLocale::fromName("C"));
  // ICU divides by a power of ten of as many digits.
  const std::string zeros(17, '0');
  for (const auto* between : {"0", "e0", ","}) {
    EXPECT_EQ(fractions.date("40." + zeros + between + zeros + "1"), std::nullopt) << between;
  }
}

struct LocaleCase {
  const char* all;
  const char* time;
  const char* lang;
  const char* identifier;
};

TEST(DateLocale, TakesTheFirstVariableThatSaysSomething) {
  const LocaleCase cases[] = {
      {"de_DE.UTF-8", "fr_FR", "en_US", "de_DE@calendar=gregorian;numbers=latn"},
      {"", "fr_FR.UTF-8", "en_US", "fr_FR@calendar=gregorian;numbers=latn"},
      {nullptr, nullptr, "sr_RS@latin", "sr_RS@calendar=gregorian;numbers=latn"},
      {"C.UTF-8", "fr_FR", "de_DE", "en_US_POSIX@calendar=gregorian;numbers=latn"},
      {nullptr, nullptr, nullptr, "en_US_POSIX@calendar=gregorian;numbers=latn"},
      // No names: years would be those of the country's calendar, or in its digits.
      {"fa_IR__", nullptr, nullptr, "en_US_POSIX@calendar=gregorian;numbers=latn"},
      {"ffa_IR__", nullptr, nullptr, "en_US_POSIX@calendar=gregorian;numbers=latn"},
      {"ar_EG--", nullptr, nullptr, "en_US_POSIX@calendar=gregorian;numbers=latn"},
  };
  for (const auto& c : cases) {
    ScopedEnvironment lcAll("LC_ALL", c.all);
    ScopedEnvironment lcTime("LC_TIME", c.time);
    ScopedEnvironment language("LANG", c.lang);
    EXPECT_EQ(DateLocale::fromEnvironment().identifier, c.identifier);
  }
}

}  // namespace
}  // namespace kv::test
