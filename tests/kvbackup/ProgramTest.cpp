#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "platform/linux/FileLock.h"
#include "tests/support/World.h"
#include "tools/kvbackup/BackupRunner.h"
#include "tools/kvbackup/ExitStatus.h"

namespace kv::test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;

/// The real program in a home of its own.
class Machine {
 public:
  struct Result {
    int status;
    std::string output;
    std::string errors;
  };

  Machine() {
    for (const char* name : {"docs", "disk", "bin"}) fs::create_directories(home / name);
    writeFile(home / "docs/letter", "Dear Ann");
  }

  pid_t start(const std::vector<std::string>& arguments) const {
    std::vector<char*> pointers{const_cast<char*>(KVBACKUP_PROGRAM)};
    for (const auto& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    const pid_t pid = ::fork();
    if (pid != 0) return pid;
    // A job in the background of a script has some of them ignored.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::signal(signal, SIG_DFL);
    ::dup2(::open((home / "output").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
    ::dup2(::open((home / "errors").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
    ::setenv("HOME", home.path().c_str(), 1);
    ::setenv("PATH", ((home / "bin") + (onlyOwnRsync ? "" : ":/usr/bin:/bin")).c_str(), 1);
    ::setenv("TZ", "UTC0", 1);
    ::unsetenv("XDG_STATE_HOME");
    ::execv(KVBACKUP_PROGRAM, pointers.data());
    ::_exit(99);
  }

  Result finish(pid_t pid) const {
    int status = 0;
    ::waitpid(pid, &status, 0);
    const int exit = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    return {exit, readFile(home / "output"), readFile(home / "errors")};
  }

  Result run(const std::vector<std::string>& arguments) const { return finish(start(arguments)); }

  void add(const std::string& name) {
    const Result result =
        run({"add", name, "--source", home / "docs", "--dest", home / "disk", "--daily", "09:30"});
    ASSERT_EQ(result.status, 0) << result.errors;
  }

  /// Has a shell script take rsync's place.
  void fakeRsync(const std::string& script) {
    writeFile(home / "bin/rsync", "#!/bin/sh\ncd \"$HOME\"\n" + script + "\n");
    fs::permissions(home / "bin/rsync", fs::perms::owner_all);
  }

  void writeSet(const PropertyList& set) {
    writeFile(document(), writePropertyList(PropertyList::Array{set}, PropertyListEncoding::kXml));
  }

  std::vector<nlohmann::json> history() const {
    std::vector<nlohmann::json> lines;
    std::istringstream text(readFile(state() + "/history.jsonl"));
    for (std::string line; std::getline(text, line);) lines.push_back(nlohmann::json::parse(line));
    return lines;
  }
  std::string results() const {
    std::string all;
    for (const auto& line : history()) all += line["result"].get<std::string>() + " ";
    return all;
  }
  std::string document() const { return home / ScheduleDocuments::kSecond; }
  std::string state() const { return home / ".local/state/KVScheduler"; }

  TemporaryFolder home;
  bool onlyOwnRsync = false;
};

TEST(Program, MirrorsTheSourcesAndRecordsTheRun) {
  Machine machine;
  const std::string other = machine.home / "more: a'b $x/docs";
  writeFile(other + "/-letter", "Dear Bob");
  const std::string name = "-a:b 'c' ü";
  machine.run({"add", "--source", machine.home / "docs", "--source", other, "--dest",
               machine.home / "disk", "--every", "2h", "--", name});
  const auto result = machine.run({"Qm3x7P", name});
  ASSERT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(result.output, HasSubstr("Finished " + name + ": 16 bytes copied in "));
  const std::string copies = (machine.home / "disk/") + name;
  EXPECT_EQ(readFile(copies + (machine.home / "docs/letter")), "Dear Ann");
  EXPECT_EQ(readFile(copies + other + "/-letter"), "Dear Bob");

  fs::rename(machine.home / "docs/letter", machine.home / "docs/note");
  ASSERT_EQ(machine.run({"4R82T6", name}).status, 0);
  ASSERT_EQ(machine.run({"run", "--", name}).status, 0);
  EXPECT_FALSE(fs::exists(copies + (machine.home / "docs/letter")));
  EXPECT_EQ(readFile(copies + (machine.home / "docs/note")), "Dear Ann");

  const auto lines = machine.history();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0]["set"], name);
  EXPECT_EQ(lines[0]["result"], "ok");
  EXPECT_EQ(lines[0]["bytes"], 16);
  EXPECT_THAT(lines[0]["start"].get<std::string>(), testing::MatchesRegex("....-..-..T..:..:..Z"));
  const auto list = nlohmann::json::parse(machine.run({"list", "--json"}).output);
  // The grid began at the minute of the adding, which has passed: the next moment is two hours on.
  EXPECT_GT(list[0]["schedule"]["nextDue"], lines[0]["end"]);
}

/// What is wrong, how it came, the status and the message.
using RefusalCase = std::tuple<const char*, void (*)(Machine&), ExitStatus, const char*>;
const RefusalCase kRefusals[] = {
    {"unknown set", [](Machine& m) { fs::remove(m.document()); }, ExitStatus::kUnknownSet,
     "there is no backup set \"Docs\""},
    {"destination gone", [](Machine& m) { fs::remove(m.home / "disk"); },
     ExitStatus::kDestinationMissing, "disk is missing"},
    {"no sources", [](Machine& m) { m.writeSet(Task("Docs").daily("09:30")); },
     ExitStatus::kNoSources, "\"Docs\" has no sources"},
    {"document destroyed", [](Machine& m) { writeFile(m.document(), "destroyed"); },
     ExitStatus::kDocumentUnreadable, "cannot be read"},
    {"no rsync", [](Machine& m) { m.onlyOwnRsync = true; }, ExitStatus::kNoRsync,
     "rsync is not installed"},
    {"rsync fails", [](Machine& m) { m.fakeRsync("echo 'bad disk' >&2; exit 23"); },
     ExitStatus::kCopyFailed, "rsync ended with status 23: bad disk"},
    {"the document is destroyed meanwhile",
     [](Machine& m) { m.fakeRsync("echo destroyed > '" + m.document() + "'"); },
     ExitStatus::kCopyNotRecorded, "the copy is complete, but the run could not be recorded"},
    {"rsync is killed", [](Machine& m) { m.fakeRsync("kill -KILL $$"); }, ExitStatus::kCopyFailed,
     "rsync was killed by signal 9"},
};

TEST(Program, RefusesARunWithOneLineAndItsStatus) {
  for (const auto& [why, arrange, status, message] : kRefusals) {
    SCOPED_TRACE(why);
    Machine machine;
    machine.add("Docs");
    arrange(machine);
    const std::string before = readFile(machine.document());
    const auto result = machine.run({"run", "Docs"});
    EXPECT_EQ(result.status, static_cast<int>(status)) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr(message));
    const bool destroyed = status == ExitStatus::kCopyNotRecorded;
    EXPECT_EQ(readFile(machine.document()), destroyed ? "destroyed\n" : before);
    EXPECT_EQ(machine.results(), "failed ");
    EXPECT_THAT(machine.history()[0]["message"].get<std::string>(), HasSubstr(message));
  }
}

TEST(Program, NeverLeavesTheDestinationForAnOddName) {
  for (const char* name : {"..", "a/../../b", "", "a\nb", "\xc2\x9b"}) {
    Machine machine;
    machine.writeSet(Task(name)
                         .field("destinationPath", machine.home / "disk")
                         .field("sourcePaths", PropertyList::Array{machine.home / "docs"}));
    EXPECT_EQ(machine.run({"4R82T6", name}).status, static_cast<int>(ExitStatus::kBadName));
    EXPECT_TRUE(fs::is_empty(machine.home / "disk"));
    EXPECT_EQ(machine.results(), "failed ") << "or the agent would try again at every tick";
  }
}

TEST(Program, RunsOneBackupAtATime) {
  Machine machine;
  machine.add("Docs");
  fs::create_directories(machine.state());
  const auto lock = FileLock::tryAcquire(BackupRunner::lockFile(machine.state()), "Photos");
  const auto result = machine.run({"run", "Docs"});
  EXPECT_EQ(result.status, 75);
  EXPECT_EQ(result.errors, "kvbackup: the backup of \"Photos\" is running\n");
  EXPECT_THAT(machine.history(), testing::IsEmpty());
  EXPECT_EQ(machine.run({"hold", "Docs"}).status, 0) << "editing is not running";
}

TEST(Program, KeepsABoundedLogOfTheLastRun) {
  Machine machine;
  machine.add("Docs");
  const std::string log = machine.state() + "/logs/Docs.log";
  machine.fakeRsync("yes \"$(printf 'bad\\033 disk')\" | head -c 2000000 >&2; exit 23");
  machine.run({"run", "Docs"});
  const std::string failed = readFile(log);
  EXPECT_THAT(failed.substr(16), testing::StartsWith(" Backing up Docs to "));
  EXPECT_THAT(failed, AllOf(HasSubstr(" bad? disk\n"), HasSubstr(" and more, which is left out"),
                            testing::EndsWith(" rsync ended with status 23: bad? disk\n")));
  EXPECT_LT(failed.size(), 2u << 20);
  EXPECT_EQ(fs::status(log).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  machine.fakeRsync("exit 0");
  machine.run({"run", "Docs"});
  EXPECT_THAT(readFile(log), AllOf(HasSubstr("Finished Docs"), testing::Not(HasSubstr("bad"))));
  // What lies in its place is left alone, and the backup is made all the same.
  fs::remove(log);
  fs::create_symlink(machine.home / "docs/letter", log);
  EXPECT_EQ(machine.run({"run", "Docs"}).status, 0);
  EXPECT_EQ(readFile(machine.home / "docs/letter"), "Dear Ann");
}

TEST(Program, GivesRsyncNothingButItsStreams) {
  Machine machine;
  machine.add("Docs");
  // The listing itself has the folder open, as descriptor 3.
  machine.fakeRsync("{ ls /proc/self/fd; grep SigIgn /proc/self/status; } > facts; exit 24");
  const int inherited = ::open("/dev/null", O_RDONLY);
  ASSERT_GE(::fcntl(inherited, F_DUPFD, 20), 20);
  ::signal(SIGUSR1, SIG_IGN);
  const auto result = machine.run({"run", "Docs"});
  ::signal(SIGUSR1, SIG_DFL);
  EXPECT_EQ(readFile(machine.home / "facts"), "0\n1\n2\n3\nSigIgn:\t0000000000000000\n");
  EXPECT_EQ(result.status, 0) << "vanished files are no failure";
  EXPECT_THAT(result.output, HasSubstr("some files vanished"));
}

TEST(Program, TakesRsyncAlongWhenItIsInterruptedOrKilled) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGKILL}) {
    Machine machine;
    machine.add("Docs");
    for (const char* name : {"begun", "never"}) {
      ASSERT_EQ(::mkfifo((machine.home / name).c_str(), 0600), 0);
    }
    machine.fakeRsync("exec 7> begun; exec cat never");  // waits for ever
    const std::string before = readFile(machine.document());
    const pid_t pid = machine.start({"run", "Docs"});
    pollfd pipe{::open((machine.home / "begun").c_str(), O_RDONLY), POLLIN, 0};
    ::kill(pid, signal);
    const bool killed = signal == SIGKILL;
    EXPECT_EQ(machine.finish(pid).status, killed ? 1000 + signal : 128 + signal);
    EXPECT_EQ(::poll(&pipe, 1, 30'000), 1);
    EXPECT_TRUE(pipe.revents & POLLHUP) << "rsync runs on";
    ::close(pipe.fd);
    EXPECT_EQ(machine.results(), killed ? "" : "interrupted ");
    EXPECT_EQ(readFile(machine.document()), before);
    machine.fakeRsync("exit 0");
    EXPECT_EQ(machine.run({"run", "Docs"}).status, 0) << "the lock went with the process";
  }
}

TEST(Program, EditsSetsFromTheCommandLine) {
  Machine machine;
  machine.add("Docs");
  machine.add("run");  // a command's name is a name like any other
  EXPECT_EQ(machine.run({"edit", "Docs", "--weekly", "mon,sun", "7:05"}).status, 0);
  EXPECT_EQ(machine.run({"edit", "Docs", "--dest", machine.home / "docs/x"}).status,
            static_cast<int>(ExitStatus::kDestinationOverlaps));
  EXPECT_EQ(machine.run({"hold", "run"}).status, 0);
  EXPECT_THAT(machine.run({"list"}).output,
              AllOf(HasSubstr("Docs  on     sun,mon 07:05"), HasSubstr("run   held   daily")));
  writeFile(machine.document(), "destroyed");
  EXPECT_EQ(machine.run({"list"}).status, static_cast<int>(ExitStatus::kDocumentUnreadable));
}

}  // namespace
}  // namespace kv::test
