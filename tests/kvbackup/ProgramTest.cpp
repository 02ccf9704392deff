#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>

#include "platform/linux/FileLock.h"
#include "tests/support/World.h"
#include "tools/kvbackup/BackupRunner.h"
#include "tools/kvbackup/ExitStatus.h"

namespace kv::test {
namespace {

namespace fs = std::filesystem;
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
    ::setenv("PATH", ((home / "bin") + ":/usr/bin:/bin").c_str(), 1);
    ::setenv("TZ", "UTC0", 1);
    ::unsetenv("XDG_STATE_HOME");
    if (onlyOwnRsync) ::setenv("PATH", (home / "bin").c_str(), 1);
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

  void add(const std::string& name, const std::string& source, const std::string& destination) {
    const Result result = run(
        {"add", name, "--source", home / source, "--dest", home / destination, "--daily", "09:30"});
    ASSERT_EQ(result.status, 0) << result.errors;
  }

  /// Has a shell script take rsync's place.
  void fakeRsync(const std::string& script) {
    writeFile(home / "bin/rsync", "#!/bin/sh\ncd \"$HOME\"\n" + script + "\n");
    fs::permissions(home / "bin/rsync", fs::perms::owner_all);
  }

  std::vector<nlohmann::json> history() const {
    std::vector<nlohmann::json> lines;
    std::istringstream text(readFile(state() + "/history.jsonl"));
    for (std::string line; std::getline(text, line);) lines.push_back(nlohmann::json::parse(line));
    return lines;
  }
  std::string lastResult() const {
    const auto lines = history();
    return lines.empty() ? "none" : lines.back()["result"].get<std::string>();
  }
  std::string document() const { return home / ScheduleDocuments::kSecond; }
  std::string state() const { return home / ".local/state/KVScheduler"; }

  TemporaryFolder home;
  bool onlyOwnRsync = false;
};

TEST(Program, MirrorsTheSourcesAndRecordsTheRun) {
  Machine machine;
  fs::create_directories(machine.home / "more: a'b $x/docs");
  writeFile(machine.home / "more: a'b $x/docs/-letter", "Dear Bob");
  const std::string name = "-a:b 'c' ü";
  ASSERT_EQ(machine
                .run({"add", "--source", machine.home / "docs", "--source",
                      machine.home / "more: a'b $x/docs", "--dest", machine.home / "disk",
                      "--every", "2h", "--", name})
                .status,
            0);
  const auto result = machine.run({"Qm3x7P", name});
  ASSERT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(result.output, HasSubstr("Finished " + name + ": 16 bytes copied in "));
  const std::string copies = (machine.home / "disk/") + name + machine.home.path().string();
  EXPECT_EQ(readFile(copies + "/docs/letter"), "Dear Ann");
  EXPECT_EQ(readFile(copies + "/more: a'b $x/docs/-letter"), "Dear Bob");

  fs::rename(machine.home / "docs/letter", machine.home / "docs/note");
  ASSERT_EQ(machine.run({"4R82T6", name}).status, 0);
  ASSERT_EQ(machine.run({"run", "--", name}).status, 0);
  EXPECT_FALSE(fs::exists(copies + "/docs/letter"));
  EXPECT_EQ(readFile(copies + "/docs/note"), "Dear Ann");

  const auto lines = machine.history();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0]["set"], name);
  EXPECT_EQ(lines[0]["result"], "ok");
  EXPECT_EQ(lines[0]["bytes"], 16);
  EXPECT_THAT(lines[0]["start"].get<std::string>(), testing::MatchesRegex("....-..-..T..:..:..Z"));
  const auto list = nlohmann::json::parse(machine.run({"list", "--json"}).output);
  // The grid began at the minute of the adding, which has passed: the next moment is two hours on.
  EXPECT_GT(list[0]["schedule"]["nextDue"], lines[0]["end"]);
  EXPECT_EQ(list[0]["lastRun"]["result"], "ok");
  EXPECT_THAT(readFile(machine.document()), testing::Not(HasSubstr("<string>0</string>")));
}

struct RefusalCase {
  const char* why;
  std::function<void(Machine&)> arrange;
  ExitStatus status;
  const char* message;
};

const RefusalCase kRefusals[] = {
    {"unknown set",
     [](Machine& m) {
       m.run({"remove", "Docs"});
     },
     ExitStatus::kUnknownSet, "there is no backup set \"Docs\""},
    {"destination gone", [](Machine& m) { fs::remove(m.home / "disk"); },
     ExitStatus::kDestinationMissing, "disk is missing"},
    {"source gone", [](Machine& m) { fs::remove_all(m.home / "docs"); }, ExitStatus::kSourceMissing,
     "docs is missing"},
    {"no sources",
     [](Machine& m) {
       writeFile(m.document(), writePropertyList(PropertyList::Array{Task("Docs").daily("09:30")},
                                                 PropertyListEncoding::kXml));
     },
     ExitStatus::kNoSources, "\"Docs\" has no sources"},
    {"destination moved into the source",
     [](Machine& m) {
       fs::remove(m.home / "disk");
       fs::create_directory(m.home / "docs/disk");
       fs::create_directory_symlink(m.home / "docs/disk", m.home / "disk");
     },
     ExitStatus::kDestinationOverlaps, "lies inside the source"},
    {"document destroyed", [](Machine& m) { writeFile(m.document(), "destroyed"); },
     ExitStatus::kDocumentUnreadable, "cannot be read"},
    {"no rsync", [](Machine& m) { m.onlyOwnRsync = true; }, ExitStatus::kNoRsync,
     "rsync is not installed"},
    {"rsync fails", [](Machine& m) { m.fakeRsync("echo 'bad disk' >&2; exit 23"); },
     ExitStatus::kCopyFailed, "rsync ended with status 23: bad disk"},
    {"rsync is killed", [](Machine& m) { m.fakeRsync("kill -KILL $$"); }, ExitStatus::kCopyFailed,
     "rsync was killed by signal 9"},
    {"rsync cannot be executed",
     [](Machine& m) {
       writeFile(m.home / "bin/rsync", "#!/nowhere\n");
       fs::permissions(m.home / "bin/rsync", fs::perms::owner_all);
     },
     ExitStatus::kCopyFailed, "status 127: No such file"},
};

TEST(Program, RefusesARunWithOneLineAndItsStatus) {
  for (const RefusalCase& test : kRefusals) {
    SCOPED_TRACE(test.why);
    Machine machine;
    machine.add("Docs", "docs", "disk");
    test.arrange(machine);
    const std::string before = readFile(machine.document());
    const auto result = machine.run({"run", "Docs"});
    EXPECT_EQ(result.status, static_cast<int>(test.status)) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr(test.message));
    EXPECT_EQ(readFile(machine.document()), before);
    ASSERT_EQ(machine.history().size(), 1u);
    EXPECT_EQ(machine.lastResult(), "failed");
    EXPECT_THAT(machine.history()[0]["message"].get<std::string>(), HasSubstr(test.message));
  }
}

TEST(Program, NeverLeavesTheDestinationForAnOddName) {
  for (const char* name : {"..", ".", "a/../../b", ""}) {
    Machine machine;
    const PropertyList set = Task(name)
                                 .daily("09:30")
                                 .field("destinationPath", machine.home / "disk")
                                 .field("sourcePaths", PropertyList::Array{machine.home / "docs"});
    writeFile(machine.document(),
              writePropertyList(PropertyList::Array{set}, PropertyListEncoding::kBinary));
    EXPECT_EQ(machine.run({"4R82T6", name}).status, static_cast<int>(ExitStatus::kBadName));
    EXPECT_TRUE(fs::is_empty(machine.home / "disk"));
    EXPECT_EQ(machine.lastResult(), "failed") << "or the agent would try again at every tick";
  }
}

TEST(Program, RunsOneBackupAtATime) {
  Machine machine;
  machine.add("Docs", "docs", "disk");
  fs::create_directories(machine.state());
  const auto lock = FileLock::tryAcquire(BackupRunner::lockFile(machine.state()), "Photos");
  const auto result = machine.run({"run", "Docs"});
  EXPECT_EQ(result.status, 75);
  EXPECT_EQ(result.errors, "kvbackup: the backup of \"Photos\" is running\n");
  EXPECT_THAT(machine.history(), testing::IsEmpty());
  EXPECT_EQ(machine.run({"hold", "Docs"}).status, 0) << "editing is not running";
}

TEST(Program, TakesVanishedFilesForASuccess) {
  Machine machine;
  machine.add("Docs", "docs", "disk");
  machine.fakeRsync("exit 24");
  const auto result = machine.run({"run", "Docs"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("some files vanished"));
  EXPECT_EQ(machine.lastResult(), "ok");
}

TEST(Program, SaysWhenACopyCouldNotBeRecorded) {
  Machine machine;
  machine.add("Docs", "docs", "disk");
  machine.fakeRsync("echo destroyed > '" + machine.document() + "'");
  const auto result = machine.run({"run", "Docs"});
  EXPECT_EQ(result.status, static_cast<int>(ExitStatus::kCopyNotRecorded));
  EXPECT_THAT(result.errors, HasSubstr("the copy is complete, but the run could not be recorded"));
  EXPECT_EQ(machine.lastResult(), "failed");
  EXPECT_EQ(readFile(machine.document()), "destroyed\n");
}

TEST(Program, GivesRsyncNothingButItsStreams) {
  Machine machine;
  machine.add("Docs", "docs", "disk");
  // The listing itself has the folder open, as descriptor 3.
  machine.fakeRsync("ls /proc/self/fd > fds; grep -E 'Sig(Blk|Ign)' /proc/self/status > signals");
  const int inherited = ::open("/dev/null", O_RDONLY);
  ASSERT_GE(::fcntl(inherited, F_DUPFD, 20), 20);
  ::signal(SIGUSR1, SIG_IGN);
  const auto result = machine.run({"run", "Docs"});
  ::signal(SIGUSR1, SIG_DFL);
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(readFile(machine.home / "fds"), "0\n1\n2\n3\n");
  EXPECT_EQ(readFile(machine.home / "signals"),
            "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
}

/// A run whose rsync holds a pipe open and waits for ever.
class BlockedRun {
 public:
  BlockedRun() {
    machine.add("Docs", "docs", "disk");
    for (const char* name : {"begun", "never"}) {
      if (::mkfifo((machine.home / name).c_str(), 0600) != 0) throw std::runtime_error("mkfifo");
    }
    machine.fakeRsync("exec 7> begun; exec cat never");
    before = readFile(machine.document());
    pid = machine.start({"run", "Docs"});
    pipe_ = ::open((machine.home / "begun").c_str(), O_RDONLY);  // waits until rsync has begun
  }
  ~BlockedRun() { ::close(pipe_); }

  /// True when nobody holds the pipe any more.
  bool rsyncEnds() const {
    pollfd source{pipe_, POLLIN, 0};
    char byte;
    return ::poll(&source, 1, 30'000) == 1 && ::read(pipe_, &byte, 1) == 0;
  }

  Machine machine;
  std::string before;
  pid_t pid = -1;

 private:
  int pipe_ = -1;
};

TEST(Program, EndsRsyncWhenItIsInterrupted) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    BlockedRun run;
    ::kill(run.pid, signal);
    const auto result = run.machine.finish(run.pid);
    EXPECT_EQ(result.status, 128 + signal) << result.errors;
    EXPECT_TRUE(run.rsyncEnds());
    EXPECT_EQ(run.machine.lastResult(), "interrupted");
    EXPECT_EQ(run.machine.history().size(), 1u);
    EXPECT_EQ(readFile(run.machine.document()), run.before);
  }
}

TEST(Program, TakesRsyncAlongWhenItIsKilled) {
  BlockedRun run;
  ::kill(run.pid, SIGKILL);
  EXPECT_EQ(run.machine.finish(run.pid).status, 1000 + SIGKILL);
  EXPECT_TRUE(run.rsyncEnds());
  run.machine.fakeRsync("exit 0");
  EXPECT_EQ(run.machine.run({"run", "Docs"}).status, 0) << "the lock went with the process";
}

TEST(Program, EditsSetsFromTheCommandLine) {
  Machine machine;
  machine.add("Docs", "docs", "disk");
  machine.add("run", "docs", "disk");  // a command's name is a name like any other
  EXPECT_EQ(machine.run({"edit", "Docs", "--weekly", "mon,sun", "7:05"}).status, 0);
  EXPECT_EQ(machine.run({"edit", "Docs", "--dest", machine.home / "docs/x"}).status,
            static_cast<int>(ExitStatus::kDestinationOverlaps));
  EXPECT_EQ(machine.run({"hold", "run"}).status, 0);
  EXPECT_EQ(machine.run({"edit", "Docs"}).status, static_cast<int>(ExitStatus::kUsage));
  EXPECT_EQ(machine.run({"bogus"}).status, static_cast<int>(ExitStatus::kUsage));
  const auto table = machine.run({"list"});
  EXPECT_EQ(table.status, 0);
  EXPECT_THAT(table.output, HasSubstr("Docs  on     sun,mon 07:05  never     "));
  EXPECT_THAT(table.output, HasSubstr("run   held   daily 09:30    never     "));
  writeFile(machine.document(), "destroyed");
  EXPECT_EQ(machine.run({"list"}).status, static_cast<int>(ExitStatus::kDocumentUnreadable));
}

}  // namespace
}  // namespace kv::test
