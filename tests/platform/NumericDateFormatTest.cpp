#include "platform/NumericDateFormat.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>

#include "platform/DateFormatter.h"
#include "tests/support/ScopedEnvironment.h"

namespace kv {
namespace {

// The oracle is the formatter that knows every pattern.
TEST(NumericDateFormat, RendersAndParsesAsTheGeneralFormatterDoes) {
  constexpr unsigned kSeed = 20261121;
  std::mt19937_64 random(kSeed);
  std::uniform_real_distribution<double> seconds(-4e9, 9e9);  // 1874 to 2286
  for (const char* zone : {"UTC", "Europe/Berlin", "Australia/Lord_Howe", "America/St_Johns"}) {
    const test::ScopedEnvironment local("TZ", zone);
    for (const char* pattern : {"yyyy/MM/dd HH:mm:ss:SSS", "HH:mm:ss", "yyyy'-'MM'-'dd' 'HH'-'mm'",
                                "ss','SSS 'at' HH", "HH 'o''clock' mm"}) {
      for (const auto which : {DateZone::kLocal, DateZone::kUtc}) {
        const NumericDateFormat format(pattern, which);
        const DateFormatter oracle(pattern, DateLocale::fromName("C"), which);
        for (int round = 0; round < 100; ++round) {
          const Date date = Date::fromUnixSeconds(std::floor(seconds(random) * 8) / 8);
          const auto text = oracle.string(date);
          ASSERT_EQ(format.string(date), text) << pattern << " " << zone << " seed " << kSeed;
          const bool isWholeDate = *pattern == 'y';
          ASSERT_TRUE(!isWholeDate || format.date(*text) == oracle.date(*text)) << *text << zone;
        }
      }
    }
  }
}

// A date holds its milliseconds only nearly, and less so the farther off it is.
TEST(NumericDateFormat, ShowsTheMillisecondThatWasMeant) {
  struct Case {
    double unixSeconds;
    const char* milliseconds;
  };
  const NumericDateFormat format("SSS");
  const DateFormatter general("SSS", DateLocale::fromName("C"));
  for (const Case& c : {Case{1712413800.123, "123"}, Case{1712413800.9999998, "999"},
                        Case{-1000000000 + 0.007, "007"}, Case{57124138001.2, "200"},
                        Case{253402300799.001, "001"}, Case{253402300799.999, "999"}}) {
    const Date date = Date::fromUnixSeconds(c.unixSeconds);
    EXPECT_EQ(format.string(date), c.milliseconds) << c.unixSeconds;
    EXPECT_EQ(general.string(date), c.milliseconds) << c.unixSeconds;
  }
}

TEST(NumericDateFormat, RefusesWhatIsNotExactlyADate) {
  const NumericDateFormat format("yyyy-MM-dd HH-mm", DateZone::kUtc);
  ASSERT_TRUE(format.date("2024-02-29 23-59"));
  for (const char* text :
       {"", "2024-02-29 23-5", "2024-02-29 23-590", "2023-02-29 00-00", "2024-13-01 00-00",
        "2024-00-10 00-00", "2024-01-01 24-00", "2024-01-01 00-60", "2024/01/01 00-00",
        "2024-01-01 -1-00", "2024-01-01 +1-00", " 024-01-01 00-00", "0000-01-01 00-00"}) {
    EXPECT_EQ(format.date(text), std::nullopt) << text;
  }
  EXPECT_EQ(format.string({Seconds(1e300)}), std::nullopt);
  EXPECT_EQ(format.string({Seconds(std::numeric_limits<double>::quiet_NaN())}), std::nullopt);
  for (const char* pattern : {"MMM", "e", "YYYY", "H"}) {
    EXPECT_THROW(NumericDateFormat{pattern}, std::invalid_argument) << pattern;
  }
}

}  // namespace
}  // namespace kv
