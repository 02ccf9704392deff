#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/World.h"
#include "tools/kvctl/TraceLines.h"
#include "tools/kvctl/TraceSource.h"
#include "tools/kvctl/TraceView.h"

namespace kv::kvctl {
namespace {

using test::readFile;
using test::Task;
using test::World;
using test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

template <class View, class... Rest>
std::string viewed(const std::string& trace, std::optional<std::string> set, Rest... rest) {
  std::string output;
  View view(std::move(set), rest..., [&output](std::string_view text) { output += text; });
  TraceLines lines([&view](std::string_view line) { view.take(line); });
  lines.feed(trace);
  lines.finish();
  view.end();
  return output;
}

Json viewedJson(const std::string& trace, std::optional<std::string> set = std::nullopt) {
  return Json::parse(viewed<TraceJson>(trace, std::move(set), TraceJson::Form::kArray));
}

/// "main Docs", "order Often", of those groups that are about a set.
std::vector<std::string> groupsOf(const Json& tick) {
  std::vector<std::string> groups;
  for (const Json& group : tick["groups"]) {
    if (group["pass"].is_null()) continue;
    groups.push_back(group["pass"].get<std::string>() + " " + group["set"].get<std::string>());
  }
  return groups;
}

/// What the scheduler itself writes in three ticks, of which the first has no heading.
std::string realTrace() {
  World world;
  world.setFirst(PropertyList::Array{
      Task("Docs").daily("09:30").lastRun("4"), Task("Hourly").hourly("2024-03-05 07:00"),
      Task("Recent").minutes("2024-03-05 09:20"), Task("Old").minutes("2024-03-05 08:00"),
      Task("Two\nlines").daily("23:00")});
  world.host->missing = {"/disk/Docs", "/disk/Old"};
  world.start();
  world.tickAt("2024-03-05 09:31:07");
  world.host->running = PropertyList(1);
  world.tickAt("2024-03-05 09:32:04");
  world.host->running = PropertyList(0);
  world.host->missing.clear();
  world.tickAt("2024-03-05 09:33:01");
  return readFile(world.traceFile);
}

TEST(TraceReader, PutsEachLineOfTheSchedulerToItsTickAndSet) {
  const Json ticks = viewedJson(realTrace());
  ASSERT_EQ(ticks.size(), 3u);
  EXPECT_EQ(ticks[0]["fired"], nullptr);
  EXPECT_EQ(ticks[1]["fired"], "2024/03/05 09:32:04");
  const auto judged = ElementsAre("main Docs", "main Hourly", "main Recent", "main Old", "main Two",
                                  "order Recent", "order Old", "interval Old", "interval Recent");
  EXPECT_THAT(groupsOf(ticks[0]), judged);
  EXPECT_THAT(groupsOf(ticks[1]), judged);
  EXPECT_THAT(groupsOf(ticks[2]), ElementsAre("main Docs"));  // it was launched: the tick ended

  // The lines of a tried interval set do not name it before the end.
  EXPECT_THAT(viewed<TraceText>(realTrace(), "Old", Style{}),
              HasSubstr("  Old (overdue)\n    09:31:07  Sorted minutes or hours post loop\n"));
  EXPECT_EQ(viewedJson(realTrace(), "Two\nlines")[0]["groups"].size(), 1u);
}

TEST(TraceReader, TellsTicksApartThatHaveNoHeading) {
  const std::string stars = "09:00:00 [Timer] " + std::string(65, '*') + "\n";
  const auto lines = [](std::initializer_list<const char*> texts) {
    std::string trace;
    for (const char* text : texts) trace += std::string("09:00:00 [Timer] ") + text + "\n";
    return trace;
  };
  const struct {
    const char* why;
    std::string trace;
    std::size_t ticks;
  } kCases[] = {
      {"nothing", "", 0},
      {"no sets", lines({"sorted array count: 0", "sorted array count: 0"}), 2},
      {"a summary after the sets",
       lines({"plist list:A", "plist list:B", "Checking ************** : A", "plist list:A"}), 2},
      {"a set after a launch",
       lines(
           {"Checking ************** : A", "Launching now set: A", "Checking ************** : A"}),
       2},
      {"the timer began between", lines({"sorted array count: 0", "Run Timer now pre"}), 1},
      {"a heading without its stars",
       lines({"Timer fired: 2024/03/05 10:00:57", "Timer fired: 2024/03/05 10:01:54"}), 2},
      {"a heading", stars + lines({"Timer fired: 2024/03/05 10:00:57", "Debug state = 1"}), 1},
      {"stars twice", stars + stars, 2},
      {"nothing known", "x\ny\n09:00 [Timer] plist list:\n", 1},
  };
  for (const auto& one : kCases) EXPECT_EQ(viewedJson(one.trace).size(), one.ticks) << one.why;
}

TEST(TraceView, LosesAndMovesNoLineWhateverItsBytes) {
  const std::string hostile[] = {
      realTrace(),
      std::string("\0\0\n\n\xff\xfe no text\r\n\n", 18) + "\x1b[2J\nno end",
      realTrace().substr(700, 2000),
      "09:00:00 [Timer] Sorted task: type:\n09:00:00 [Timer] Sorted minutes or hours post loop\n"
      "09:00:00 [Timer] Checking ************** : \n09:00:00  \n09:00:00 [Timer] ",
  };
  for (const std::string& trace : hostile) {
    std::vector<std::string> expected;
    TraceLines split([&](std::string_view line) {
      for (const std::string_view tag : {" [Timer] ", "  "}) {
        const std::string text(line.substr(std::min<std::size_t>(line.size(), 8)));
        if (line.size() > 8 && line[2] == ':' && text.starts_with(tag)) {
          expected.push_back(shown(text.substr(tag.size())));
          return;
        }
      }
      expected.push_back(shown(line));
    });
    for (const char byte : trace) split.feed({&byte, 1});  // pieces may be of any size
    split.finish();

    std::vector<std::string> found;
    for (const Json& tick : viewedJson(trace)) {
      for (const Json& group : tick["groups"]) {
        for (const Json& line : group["lines"])
          found.push_back(shown(line["text"].get<std::string>()));
      }
    }
    EXPECT_EQ(found, expected);

    const std::string text = viewed<TraceText>(trace, std::nullopt, Style{});
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
    std::size_t at = 0;
    for (const std::string& line : expected) {
      at = text.find(line + "\n", at);
      ASSERT_NE(at, std::string::npos) << line;
      at += line.size() + 1;
    }
  }
}

TEST(TraceView, ShowsOnlyWhatIsAboutTheSet) {
  const std::string text = viewed<TraceText>(realTrace(), "Docs", Style{});
  EXPECT_THAT(text,
              HasSubstr("09:32:04  Timer fired: 2024/03/05 09:32:04\n  Docs\n    09:32:04  "));
  EXPECT_THAT(text, Not(HasSubstr("Recent")));
  EXPECT_THAT(viewed<TraceText>(realTrace(), "Nobody", Style{}), IsEmpty());
  EXPECT_EQ(viewed<TraceJson>(realTrace(), "Nobody", TraceJson::Form::kArray), "[]\n");
  EXPECT_THAT(viewed<TraceText>(realTrace(), "Docs", Style{.hasColours = true}),
              HasSubstr("\x1b[33mNo volume present for backup set Docs\x1b[0m"));
}

TEST(TraceLines, HandsOnAnEndlessLineInParts) {
  std::vector<std::size_t> lengths;
  TraceLines lines([&](std::string_view line) { lengths.push_back(line.size()); });
  const std::string piece(TraceLines::kLongestLine / 2 + 1, '\0');
  lines.feed(piece);
  lines.feed(piece + "\n");
  lines.finish();
  EXPECT_THAT(lengths, ElementsAre(TraceLines::kLongestLine, 2u));
}

TEST(TraceSource, OpensNothingThatCouldHarm) {
  const test::TemporaryFolder folder;
  writeFile(folder / "plain", "x\n");
  std::filesystem::create_symlink(folder / "plain", folder / "link");
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  const struct {
    const char* name;
    const char* reason;
  } kCases[] = {{"missing", "KVSCHEDULER_DEBUG=1"},
                {"link", "a symbolic link"},
                {"fifo", "no plain file"},
                {"", "no plain file"},
                {"plain/below", "there is no trace yet"}};
  for (const auto& one : kCases) {
    TraceSource source(folder / one.name);
    EXPECT_THAT(source.open().value_or("opened"), HasSubstr(one.reason)) << one.name;
  }
  TraceSource device("/dev/zero");
  EXPECT_THAT(device.open().value_or("opened"), HasSubstr("no plain file"));

  TraceSource plain(folder / "plain");
  EXPECT_EQ(plain.open(), std::nullopt);
  EXPECT_THAT(plain.remarks(), IsEmpty());
  std::filesystem::create_hard_link(folder / "plain", folder / "other");
  EXPECT_THAT(plain.remarks(), ElementsAre(HasSubstr("another name")));
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make another user's file";
  ASSERT_EQ(::chown((folder / "plain").c_str(), 65534, 65534), 0);
  EXPECT_THAT(plain.remarks(), Contains(HasSubstr("user 65534")));
}

/// The real program with its two outputs in one pipe.
class Following {
 public:
  explicit Following(std::vector<std::string> arguments) {
    int ends[2];
    if (::pipe(ends) != 0) throw std::runtime_error("no pipe");
    output_ = ends[0];
    process_ = ::fork();
    if (process_ != 0) {
      ::close(ends[1]);
      return;
    }
    ::dup2(ends[1], 1);
    ::dup2(ends[1], 2);
    ::close(ends[0]);
    ::close(ends[1]);
    std::vector<char*> pointers{const_cast<char*>(KVCTL_PROGRAM)};
    for (auto& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    ::execv(KVCTL_PROGRAM, pointers.data());
    ::_exit(99);
  }
  ~Following() {
    hangUp();
    ::kill(process_, SIGKILL);
    if (!hasEnded_) ::waitpid(process_, nullptr, 0);
  }

  std::string line() {
    constexpr int kPatienceMilliseconds = 20'000;
    std::string text;
    for (;;) {
      pollfd ready{output_, POLLIN, 0};
      char byte = 0;
      if (::poll(&ready, 1, kPatienceMilliseconds) != 1 || ::read(output_, &byte, 1) != 1) {
        return text + " (and no more)";
      }
      if (byte == '\n') return text;
      text += byte;
    }
  }
  void signal(int number) const { ::kill(process_, number); }
  void hangUp() {
    if (output_ >= 0) ::close(std::exchange(output_, -1));
  }
  int exitStatus() {
    int status = 0;
    ::waitpid(process_, &status, 0);
    hasEnded_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  int output_ = -1;
  pid_t process_ = -1;
  bool hasEnded_ = false;
};

void append(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::app) << text;
}

TEST(TraceFollower, GoesOnWhateverBecomesOfTheFile) {
  const test::TemporaryFolder folder;
  const std::string path = folder / "trace";
  Following program({"trace", "--follow", "--file", path});
  EXPECT_THAT(program.line(), HasSubstr("there is no trace yet"));
  append(path, "one\n");
  EXPECT_EQ(program.line(), "  one");
  append(path, "tw");
  append(path, "o\n");
  EXPECT_EQ(program.line(), "  two");
  std::filesystem::resize_file(path, 0);
  EXPECT_THAT(program.line(), HasSubstr("was emptied"));
  append(path, "three\n");
  EXPECT_EQ(program.line(), "");
  EXPECT_EQ(program.line(), "  three");
  writeFile(folder / "new", "four\n");
  std::filesystem::rename(folder / "new", path);
  EXPECT_THAT(program.line(), HasSubstr("another file"));
  EXPECT_EQ(program.line(), "");
  EXPECT_EQ(program.line(), "  four");
  std::filesystem::remove(path);
  EXPECT_THAT(program.line(), HasSubstr("is gone"));
  std::filesystem::create_symlink("/etc/hostname", path);
  EXPECT_THAT(program.line(), HasSubstr("a symbolic link"));
  std::filesystem::remove(path);
  append(path, "five, unfinished");
  program.signal(SIGTERM);
  EXPECT_EQ(program.exitStatus(), 0);
  EXPECT_EQ(program.line(), "");
  EXPECT_EQ(program.line(), "  five, unfinished");
}

TEST(TraceFollower, EndsWhenNobodyReadsAnyMore) {
  const test::TemporaryFolder folder;
  writeFile(folder / "trace", "one\n");
  Following program({"trace", "--follow", "--json", "--file", folder / "trace"});
  EXPECT_THAT(program.line(), HasSubstr(R"("text":"one")"));  // a second after the last line
  program.hangUp();
  EXPECT_EQ(program.exitStatus(), 0);
}

}  // namespace
}  // namespace kv::kvctl
