#include "tools/kvctl/FaultReport.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <cmath>
#include <limits>

#include "platform/LocalTime.h"
#include "tests/support/World.h"
#include "tools/kvctl/ExitStatus.h"
#include "tools/kvctl/FaultReportRedaction.h"
#include "tools/kvctl/FaultReportReplay.h"
#include "tools/kvctl/FaultReportValues.h"

namespace kv::kvctl {
namespace {

using test::localDate;
using test::readFile;
using test::ScopedEnvironment;
using test::Task;
using test::writeFile;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

TEST(FaultReportValues, ComeBackAsTheyWere) {
  PropertyList::Dictionary large;
  for (int key = 0; key < 600; ++key) large.set(std::to_string(key), key);
  const PropertyList kValues[] = {
      "",
      "text \"ü\" \n\t",
      true,
      0,
      std::int64_t{-5},
      std::numeric_limits<std::int64_t>::min(),
      std::numeric_limits<std::uint64_t>::max(),
      1.0,
      -0.0,
      0.1,
      1e300,
      5e-324,
      Date{Seconds(0.1)},
      std::numeric_limits<double>::infinity(),
      Date{Seconds(-INFINITY)},
      PropertyList::Uid{7},
      PropertyList::Data{},
      PropertyList::Data{1},
      PropertyList::Data{1, 2},
      PropertyList::Data{250, 251, 252, 253},
      PropertyList::Array{},
      PropertyList::Dictionary{},
      PropertyList::Dictionary{{"b", 1}, {"a", PropertyList::Array{"x", 2.0}}},
      PropertyList::Dictionary{{"$date", 5}},
      PropertyList::Dictionary{{"$$", "$"}, {"", "$real"}},
      large};
  for (const PropertyList& value : kValues) {
    const std::string text = valueJson(value).dump();
    EXPECT_EQ(valueFrom(Json::parse(text)), value) << text;
  }
  EXPECT_TRUE(std::signbit(*valueFrom(valueJson(-0.0)).as<double>()));
  EXPECT_TRUE(std::isnan(*valueFrom(valueJson(std::nan(""))).as<double>()));
}

/// A tick over sets that start, wait, rest and are not due, recorded in Berlin.
FaultReport recorded() {
  const ScopedEnvironment zone("TZ", ":Europe/Berlin");
  FaultReport report;
  report.program = "test";
  report.at = localDate("2024-03-31 12:31:07");
  report.locale = DateLocale::fromName("de_DE.UTF-8");
  report.documents[0] = {
      "kelvara.plist",
      ScheduleDocument::State::kRead,
      {Task("Secret letters")
           .daily("09:30")
           .lastRun("30")
           .field("sourcePaths", PropertyList::Array{"/home/ann/letters", "/disk/Secret letters"})
           .field("note", "call Ann")
           .field("alias", PropertyList::Data{65, 110, 110}),
       Task("Two\nlines").weekly("12:31").on(1).lastRun("no day, Ann"),
       Task("Often").minutes("2024-03-31 01:59").option("setmins", "15 for Ann"), "Ann's record"}};
  report.documents[1] = {"kvsets.plist",
                         ScheduleDocument::State::kRead,
                         {Task("Secret letters").daily("23:00").off(), Task("Held").onceADay()}};
  const auto instants = {report.at, localDate("2019-01-15 09:30"), localDate("2011-01-02 06:37"),
                         localDate("2024-03-31 01:59")};
  report.zone = ReportZone::around(instants);
  const auto disk = [](const char* path, bool isThere) {
    return HostAnswer{HostAnswer::Question::kDestinationPresent,
                      path ? std::optional<PropertyList>(path) : std::nullopt,
                      PropertyList(isThere)};
  };
  report.answers = {disk("/disk/Secret letters", false),
                    disk("/disk/Secret letters", false),
                    disk("/disk/Two\nlines", true),
                    disk("/disk/Two\nlines", true),
                    {HostAnswer::Question::kBackupRunning, std::nullopt, PropertyList("1 of Ann")},
                    disk("/disk/Often", true),
                    disk(nullptr, false),
                    disk("/disk/Secret letters", true),
                    disk("/disk/Held", true),
                    disk("/disk/Held", true),
                    {HostAnswer::Question::kBackupRunning, std::nullopt, PropertyList(0)},
                    {HostAnswer::Question::kApplicationOpen, std::nullopt, std::nullopt}};
  const ReplayResult made = replay(report);
  EXPECT_THAT(made.oddQuestions, IsEmpty());
  report.judgements = made.judgements;
  for (const std::string& line : made.trace) report.trace.push_back({line, false});
  return report;
}

std::vector<std::string> textsOf(const FaultReport& report, const std::vector<Judgement>& made) {
  std::vector<std::string> texts;
  for (const auto& one : made) texts.push_back(judgementText(one, report.list()));
  return texts;
}

TEST(FaultReport, IsDecidedTheSameAnywhere) {
  const FaultReport report = recorded();
  EXPECT_THAT(
      textsOf(report, report.judgements),
      testing::ElementsAre("set 1 (Secret letters): no-volume",
                           "set 2 (Two\nlines): backup-running", "set 4 (no name): switched-off",
                           "set 5 (Secret letters): switched-off", "set 6 (Held): launched"));
  std::vector<std::string> expected;
  for (const auto& line : report.trace) expected.push_back(line.text);
  // Summer time had begun ten hours before: only the offsets of the report can tell.
  EXPECT_THAT(expected, testing::Contains("12:31:07 [Timer] today's time = 1231"));
  EXPECT_THAT(expected, testing::Contains("12:31:07 [Timer] stored  time = 0930"));
  for (const char* elsewhere : {"Asia/Kathmandu", "<-11>11", "UTC0"}) {
    const ScopedEnvironment zone("TZ", elsewhere);
    const ReplayResult made = replay(FaultReport::parse(report.text()));
    EXPECT_EQ(made.trace, expected) << elsewhere;
    EXPECT_EQ(textsOf(report, made.judgements), textsOf(report, report.judgements)) << elsewhere;
    EXPECT_STREQ(::getenv("TZ"), elsewhere);
  }
}

TEST(FaultReport, OtherAnswersShowAsOtherDecisions) {
  FaultReport report = recorded();
  report.answers[1].answer = PropertyList(true);  // the volume of the first set is there now
  const ReplayResult made = replay(report);
  EXPECT_THAT(textsOf(report, made.judgements)[0], Not(HasSubstr("no-volume")));
  EXPECT_THAT(made.oddQuestions, Not(IsEmpty()));
}

TEST(FaultReport, ReplaysAtTheEndsOfAZoneToo) {
  for (const std::int32_t offset : {-43'200, -12'600, 0, 1, 20'700, 50'400}) {
    FaultReport report = recorded();
    report.zone.changes = {{0, 3600}, {1, offset}};
    const Date now = report.at;
    const ReportZone::InForce zone(report.zone);
    EXPECT_EQ(localOffsetFromUtc(now), Seconds(offset));
    EXPECT_EQ(localOffsetFromUtc(Date::fromUnixSeconds(-5)), Seconds(3600));
  }
}

TEST(FaultReport, WithoutNamesDecidesTheSame) {
  FaultReport report = recorded();
  report.trace.insert(report.trace.begin() + 9,
                      {"12:31:07 [Timer] Paused until Ann comes: nothing is started", true});
  const FaultReport without = FaultReport::parse(redacted(report).text());
  const std::string text = without.text();
  for (const char* secret : {"Ann", "ann", "Secret", "Two", "Often", "Held", "disk/", "note",
                             "QW5u", "Berlin", "lines"}) {
    EXPECT_THAT(text, Not(HasSubstr(secret)));
  }
  const auto outcomes = [](const std::vector<Judgement>& made) {
    std::vector<std::pair<std::size_t, Outcome>> pairs;
    for (const auto& one : made) pairs.emplace_back(one.index, one.outcome);
    return pairs;
  };
  EXPECT_EQ(outcomes(without.judgements), outcomes(report.judgements));
  EXPECT_THAT(without.trace, SizeIs(report.trace.size()));
  EXPECT_TRUE(without.trace[9].isHosts);
  EXPECT_EQ(outcomes(replay(without).judgements), outcomes(report.judgements));
  // The same text is the same substitute wherever it stands.
  EXPECT_THAT(text, HasSubstr("No volume present for backup set set-1\""));
  const auto* const record = without.documents[0].records[0].as<PropertyList::Dictionary>();
  EXPECT_EQ(record->find("sourcePaths")->as<PropertyList::Array>()->at(1),
            *record->find("destinationPath"));
  EXPECT_EQ(*without.answers[0].subject, *record->find("destinationPath"));
}

std::string objectOf(int keys) {
  std::string text = "{\"z\":0";
  for (int key = 0; key < keys; ++key) text += ",\"" + std::to_string(key) + "\":0";
  return text + "}";
}

TEST(FaultReport, RefusesWhatIsNone) {
  const Json good = recorded().json();
  const auto with = [&good](const char* pointer, Json value) {
    Json changed = good;
    changed[Json::json_pointer(pointer)] = std::move(value);
    return changed.dump();
  };
  const std::string deep(100'000, '[');
  const std::string kCases[] = {
      "",
      "x",
      "null",
      "[]",
      "{}",
      std::string("\0", 1),
      "{\"format\":\"\xff\"}",
      deep,
      "{\"a\":" + deep,
      objectOf(600),
      "{\"version\":1e999}",
      good.dump().substr(0, 2000),
      good.dump() + "x",
      with("/format", 5),
      with("/version", 2),
      with("/version", 1.0),
      with("/version", "1"),
      with("/at", nullptr),
      with("/at", 1e300),
      with("/at", "nan"),
      with("/zone", Json::array()),
      with("/zone/changes", Json::array()),
      with("/zone/changes/0", Json::array({0, 100'000})),
      with("/zone/changes/0", Json::array({1e20, 0})),
      with("/zone/changes/0", Json::array({std::numeric_limits<std::int64_t>::max(), 0})),
      with("/locale", "../../etc"),
      with("/locale", std::string(1000, 'e')),
      with("/documents", Json::array()),
      with("/documents/0/state", "lost"),
      with("/documents/0/records", 5),
      with("/documents/0/records/0", nullptr),
      with("/documents/0/records/0", {{"$data", "A"}}),
      with("/documents/0/records/0", {{"$data", "===="}}),
      with("/documents/0/records/0", {{"$uid", -1}}),
      with("/documents/0/records/0", {{"$date", "soon"}}),
      with("/documents/0/records/0", {{"$entries", {"a"}}}),
      with("/documents/0/records/0", {{"$entries", {5, "a"}}}),
      with("/documents/0/records/0", {{"$new", 0}}),
      with("/documents/0/records/0", {{"$a", 0}, {"b", 0}}),
      with("/answers/0/asked", "why"),
      with("/answers/0", 0),
      with("/decisions/0/index", 99),
      with("/decisions/0/index", -1),
      with("/decisions/0/outcome", ""),
      with("/trace/0", 5)};
  for (const std::string& text : kCases) {
    EXPECT_THROW(FaultReport::parse(text), Refusal) << text.substr(0, 80);
  }
  EXPECT_NO_THROW(FaultReport::parse(good.dump()));
}

/// The real program's exit status; its output goes to a file.
int run(const std::string& home, const std::string& arguments) {
  const std::string command = "HOME='" + home +
                              "' " KVCTL_PROGRAM
                              " --at '2024-03-05 09:31' "
                              "--bundle '" KVCTL_BUNDLE "' " +
                              arguments + " >'" + home + "/output' 2>'" + home + "/errors'";
  const int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(RecordAndReplay, AgreeAboutTheRealHost) {
  test::World world;
  world.setFirst(PropertyList::Array{Task("Docs").daily("09:30").lastRun("4"),
                                     Task("Often").minutes("2024-03-05 09:00")});
  const std::string home = world.home.path().string();
  writeFile(world.home / ".local/state/KVScheduler/paused.json", "{\"until\":null}");
  for (const std::string redact : {"", "--redact "}) {
    const std::string report = home + "/report" + redact.substr(0, redact.find(' '));
    ASSERT_EQ(run(home, "record " + redact + "-o '" + report + "'"), 0)
        << readFile(home + "/errors");
    EXPECT_EQ(run(home, "record -o '" + report + "'"), 70);  // it overwrites nothing
    EXPECT_EQ(run(home, "replay '" + report + "'"), 0) << readFile(home + "/output");
    EXPECT_THAT(readFile(home + "/output"), HasSubstr("The same decisions: 2 sets"));

    std::string changed = test::readFile(report);
    changed.replace(changed.find("\"no-volume\""), 11, "\"launched\"");
    writeFile(report, changed);
    EXPECT_EQ(run(home, "replay '" + report + "'"), 1);
    EXPECT_THAT(readFile(home + "/output"), HasSubstr(": launched\n  + set 1 ("));
  }
  EXPECT_EQ(run(home, "replay '" + home + "'"), 4);
}

}  // namespace
}  // namespace kv::kvctl
