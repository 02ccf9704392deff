#include "tools/kvctl/Forecast.h"

#include <gmock/gmock.h>

#include <memory>
#include <sstream>

#include "platform/Utf8.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Task.h"
#include "tests/support/TemporaryFolder.h"
#include "tools/kvctl/CommandLine.h"
#include "tools/kvctl/ForecastCalendar.h"
#include "tools/kvctl/ForecastChart.h"
#include "tools/kvctl/ForecastJson.h"
#include "tools/kvctl/ForecastListing.h"
#include "tools/kvctl/ForecastTexts.h"

namespace kv::kvctl {
namespace {

using test::localDate;
using test::ScopedEnvironment;
using test::Task;
using testing::ElementsAreArray;

/// What a view makes of a forecast from Tuesday 2024-03-05 08:00 on.
class ForecastTest : public testing::Test {
 protected:
  template <class View>
  std::string viewed(TaskList sets) {
    ForecastSubject subject{.sets = std::move(sets),
                            .names = {},
                            .isShown = {},
                            .plan = plan,
                            .style = {},
                            .hasBlocks = hasBlocks,
                            .write = [this](std::string_view piece) { text_ += piece; }};
    subject.names = namesIn(subject.sets);
    for (std::size_t index = 0; index < subject.names.size(); ++index) {
      subject.isShown.push_back(index == shownOnly.value_or(index));
    }
    text_.clear();
    View view(subject);
    view.begin();
    view.end(forecast(subject.sets, subject.plan, view));
    return text_;
  }

  /// The lines about sets, without heading, empty lines and the last one's sum.
  std::vector<std::string> listed(TaskList sets) {
    std::vector<std::string> lines;
    std::istringstream text(viewed<ForecastListing>(std::move(sets)));
    for (std::string line; std::getline(text, line);) {
      if (line.starts_with("  ")) lines.push_back(line.substr(2));
    }
    return lines;
  }

  struct Supposed {
    int days = 1;
    const char* asleep = "";
    const char* absent = "";
    Seconds duration{20 * 60};
    std::optional<Pause> pause = std::nullopt;
  };
  struct Case {
    const char* why;
    Supposed supposed;
    TaskList sets;
    std::vector<std::string> lines;
  };
  void expectLines(const std::vector<Case>& cases) {
    for (const Case& one : cases) {
      plan.days = one.supposed.days;
      plan.duration = one.supposed.duration;
      plan.asleep = DailyWindow::parse(one.supposed.asleep);
      plan.pause = one.supposed.pause;
      plan.absences.clear();
      const std::string absent = one.supposed.absent;
      if (const auto colon = absent.find(':'); colon != std::string::npos) {
        plan.absences = {{absent.substr(0, colon), *DailyWindow::parse(absent.substr(colon + 1))}};
      }
      EXPECT_THAT(listed(one.sets), ElementsAreArray(one.lines)) << one.why;
    }
  }

  ScopedEnvironment zone{"TZ", test::kBerlin};
  ForecastPlan plan{
      .begin = localDate("2024-03-05 08:00"), .days = 1, .locale = DateLocale::fromName("en_US")};
  std::optional<std::size_t> shownOnly;
  bool hasBlocks = true;

 private:
  std::string text_;
};

TEST_F(ForecastTest, TellsWhatMakesABackupLate) {
  expectLines({
      {"two at once wait for each other",
       {},
       {Task("Docs").daily("09:30").lastRun("4"), Task("Mail").daily("09:35").lastRun("4")},
       {"09:30  Docs    20 min  daily 09:30",
        "09:51  Mail    20 min  daily 09:35; due since 09:35: waited behind Docs"}},
      {"away for a while",
       {.absent = "/disk/Docs:09:00-11:00"},
       {Task("Docs").daily("09:30").lastRun("4")},
       {"11:00  Docs    20 min  daily 09:30; due since 09:30: its destination was away"}},
      {"asleep past midnight: one is missed, one is late",
       {.asleep = "22:00-07:00"},
       {Task("Late").daily("23:00").lastRun("4"),
        Task("Any").daily("00:00").onceADay().lastRun("5")},
       {"--:--  Late   skipped  daily 23:00: the computer sleeps from when it is due until the day "
        "is over",
        "07:00  Any     20 min  once a day; due since 00:00: the computer slept until 07:00",
        "Late  the computer sleeps from when it is due until the day is over"}},
      {"a pause of some hours",
       {.pause = Pause{localDate("2024-03-05 12:00")}},
       {Task("Docs").daily("09:30").lastRun("4"), Task("Mail").daily("13:00").lastRun("4")},
       {"12:00  Docs    20 min  daily 09:30; due since 09:30: paused until 12:00",
        "13:00  Mail    20 min  daily 13:00"}},
  });
}

TEST_F(ForecastTest, TellsWhatIsSkipped) {
  expectLines({
      {"away all day",
       {.absent = "/disk:09:00-08:00"},
       {Task("Docs").daily("09:30").lastRun("4")},
       {"--:--  Docs   skipped  daily 09:30: its destination is away whenever it is due",
        "Docs  its destination is away whenever it is due"}},
      {"the number of a day of last month",
       {.days = 10},
       {Task("Docs").weekly("10:00").on(5).lastRun("7")},
       {"--:--  Docs   skipped  thu 10:00: it last ran on a day of the same number, so it counts "
        "as done",
        "10:00  Docs    20 min  thu 10:00"}},
      {"the others take until midnight",
       {.duration = Seconds(8 * 3600)},
       {Task("Docs").daily("20:00").lastRun("4"), Task("Mail").daily("23:00").lastRun("4")},
       {"--:--  Mail   skipped  daily 23:00: other backups run whenever it is due (Docs)",
        "20:00  Docs       8 h  daily 20:00", "Mail  other backups run whenever it is due"}},
      {"paused until somebody resumes",
       {.pause = Pause{}},
       {Task("Docs").daily("09:30").lastRun("4"), Task("Log").minutes("2024-03-05 07:00")},
       {"--:--  Docs   skipped  daily 09:30: the schedule is paused when it is due",
        "Docs  the schedule is paused when it is due",
        "Log   the schedule is paused when it is due"}},
      {"not what ran today already",
       {},
       {Task("Docs").daily("09:30").lastRun("5")},
       {"Docs  it is not due before Wed 2024-03-06 09:30"}},
  });
}

TEST_F(ForecastTest, TellsWhySetsNeverStart) {
  plan.locale = DateLocale::fromName("de_DE");
  expectLines(
      {{"each for its own reason",
        {},
        {Task("Off").daily("09:30").off(), Task("Held").daily("09:30").option("runState", 0),
         Task("Odd").daily("09:30").option("dayWeekOrHour", 9),
         Task("Dateless").minutes("2024-03-05 07:00").without("minhourdate"),
         Task("Far").hourly("2024-04-01 09:00"), Task("Dayless").weekly("09:30"),
         Task("Tuesday").weekly("09:30").on(3),
         Task("Nowhere").daily("09:30").lastRun("4").withoutField("destinationPath")},
        {"--:--  Nowhere    skipped  daily 09:30: it has no destination",
         "Off       it is switched off", "Held      it is held back",
         "Odd       no rule exists for its type", "Dateless  it has no date of its next run",
         "Far       it is not due before Mon 2024-04-01 09:00", "Dayless   no weekday is selected",
         "Tuesday   it is set for Tuesday alone, which never comes where the week starts "
         "on Monday",
         "Nowhere   it has no destination"}}});
}

TEST_F(ForecastTest, TellsOfAnHourSetThatMinuteSetsStarve) {
  shownOnly = 2;
  EXPECT_THAT(
      listed({Task("One").minutes("2024-03-05 07:00"), Task("Two").minutes("2024-03-05 07:00"),
              Task("Rare").hourly("2024-03-05 07:00")}),
      ElementsAreArray({"Rare  it waits since Tue 2024-03-05 08:00: interval sets that come "
                        "before it are always due (One, Two)"}));
}

TEST_F(ForecastTest, TellsOfAnIntervalSetThatHoldsUpAnother) {
  shownOnly = 1;
  plan.absences = {{"/disk/Away", *DailyWindow::parse("08:00-12:00")}};
  EXPECT_EQ(
      listed({Task("Away").hourly("2024-03-05 07:00"),
              Task("Here").hourly("2024-03-05 07:30").option("sethours", 48)}),
      std::vector<std::string>{"12:21  Here    20 min  every 48 h; due at the beginning: held up "
                               "by Away, which comes before it and whose destination was away, "
                               "waited behind Away"});
}

TEST_F(ForecastTest, DrawsAWeekAtATime) {
  const TaskList sets = {Task("Docs").daily("20:00").lastRun("4"), Task("Mail").daily("23:50")};
  plan.duration = Seconds(6 * 3600);
  plan.days = 8;
  plan.absences = {{"/disk/Mail", *DailyWindow::parse("12:00-11:00")}};
  const auto rows = [&] {
    const std::string chart = viewed<ForecastChart>(sets);
    return chart.substr(chart.find("\n\n"));
  };
  // 20:00 to 02:00 in columns of two hours.
  const std::string night = "█         ██|";
  const std::string away = "           x|";
  EXPECT_EQ(
      rows(),
      "\n\n     |Tue 05      |Wed 06      |Thu 07      |Fri 08      |Sat 09      |Sun 10      "
      "|Mon 11      |\nDocs |          ██|" +
          night + night + night + night + night + night + "\nMail |" + away + away + away + away +
          away + away + away + "\n\n     |Tue 12      |Wed 13      |\nDocs |" + night +
          "█           |\nMail |" + away +
          "            |\n\nNot started at all\nMail: its destination is away whenever it is "
          "due\n");
  hasBlocks = false;
  plan.days = 1;
  EXPECT_THAT(rows(), testing::HasSubstr("\nDocs |                    ####|##"
                                         "                      |\n"));
}

TEST_F(ForecastTest, WritesACalendarThatOthersCanRead) {
  const std::string name = "a,b;c\\d\ne\x1b[2J" + std::string(40, 'x') +
                           "\u00e4\u00f6\u00fc\u65e5\u672c" + std::string(40, 'y');
  const std::string text =
      viewed<ForecastCalendar>({Task(name.c_str()).daily("09:30").lastRun("4")});
  std::string unfolded;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line, '\n');) {
    ASSERT_TRUE(line.ends_with('\r')) << line;
    line.pop_back();
    EXPECT_LE(line.size(), 75u);
    EXPECT_EQ(line.find_first_of("\r\x1b"), line.npos);
    const bool goesOn = line.starts_with(' ');
    EXPECT_TRUE(isUtf8(line)) << line;
    unfolded += goesOn ? line.substr(1) : "\n" + line;
  }
  EXPECT_THAT(unfolded, testing::HasSubstr("\nDTSTART:20240305T083015Z\nDURATION:PT1200S\n"
                                           "SUMMARY:Backup: a\\,b\\;c\\\\d\\ne?[2J" +
                                           std::string(40, 'x') + "\u00e4\u00f6\u00fc\u65e5\u672c" +
                                           std::string(40, 'y') + "\nDESCRIPTION:daily 09:30. "));
  EXPECT_EQ(viewed<ForecastCalendar>({Task(name.c_str()).daily("09:30").lastRun("4")}), text);
}

TEST_F(ForecastTest, GivesProgramsAllOfIt) {
  plan.days = 2;
  plan.absences = {{"/disk/Mail", *DailyWindow::parse("12:00-11:00")}};
  const Json json = Json::parse(viewed<ForecastJson>(
      {Task("\xff\"Docs").daily("09:30").lastRun("4"), Task("Mail").daily("13:00").lastRun("4")}));
  ASSERT_EQ(json["events"].size(), 4u);
  EXPECT_EQ(json["events"][0]["set"], "\ufffd\"Docs");
  EXPECT_EQ(json["events"][0]["start"], "2024-03-05T08:30:15Z");
  EXPECT_EQ(json["events"][0]["end"], "2024-03-05T08:50:15Z");
  EXPECT_EQ(json["events"][1]["event"], "skip");
  EXPECT_EQ(json["events"][1]["day"], "2024-03-05");
  EXPECT_EQ(json["events"][1]["reason"], "no-volume");
  EXPECT_EQ(json["sets"][1]["skips"], 2);
}

TEST(ForecastCommand, RefusesWhatMakesNoSense) {
  const ScopedEnvironment zone("TZ", "UTC0");
  const ScopedEnvironment home("HOME", "/nowhere");
  const test::TemporaryFolder folder;
  const struct {
    std::vector<std::string> arguments;
    const char* complaint;
  } kCases[] = {
      {{"--days", "0"}, "--days 0: from 1 to 3660"},
      {{"--days", "3661"}, "--days 3661: from 1 to 3660"},
      {{"--duration", "20"}, "--duration 20: no duration"},
      {{"--duration", "99999999999h"}, "no duration"},
      {{"--duration", "25h"}, "no duration"},
      {{"--absent", "/disk"}, "--absent /disk: a destination and"},
      {{"--absent", ":22:00-07:00"}, "a destination and"},
      {{"--absent", "/disk:22:00-25:00"}, "no part of a day"},
      {{"--absent", "/disk:22:00-07:00"}, "no backup set has its destination in /disk"},
      {{"--asleep", "22:00"}, "--asleep 22:00: no part of a day"},
      {{"--json", "--chart"}, "one of them at a time"},
  };
  for (const auto& one : kCases) {
    std::vector<std::string> arguments{"forecast", "--home", folder.path().string()};
    arguments.insert(arguments.end(), one.arguments.begin(), one.arguments.end());
    testing::internal::CaptureStderr();
    EXPECT_EQ(runCommandLine(arguments), 2) << one.complaint;
    const std::string complaint = testing::internal::GetCapturedStderr();
    EXPECT_THAT(complaint, testing::HasSubstr(one.complaint));
    EXPECT_EQ(complaint.find('\n') + 1, complaint.size());
  }
}

}  // namespace
}  // namespace kv::kvctl
