#pragma once

#include <sys/stat.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kv {

/// A running process of this user.
struct RunningProcess {
  int pid = 0;
  /// The command line, program name first.
  std::vector<std::string> arguments;
};

/// Tells which processes of this user run a program. One object that is asked again and again reads
/// the program's file only after it has changed: an agent that looks every minute must not wait for
/// a disk to tell it what it knows.
///
/// Threads    one at a time.
/// Errors     none; what cannot be read is not running.
class ProcessTable {
 public:
  /// Those that run the executable at the absolute path `executable` (links resolved), in ascending
  /// order of their ids. A script counts under its own path when it stands in its command line
  /// behind the interpreter.
  std::vector<RunningProcess> running(const std::string& executable);

 private:
  /// What a file was when its first line was read.
  struct Program {
    struct stat state {};
    std::string interpreter;
  };

  const std::string& interpreterOf(const std::string& path);

  std::map<std::string, Program> programs_;
};

/// A process of this user by its id.
struct OwnProcess {
  /// Of its program, at most 15 characters.
  std::string name;
  /// HOME as it was started with; empty when that cannot be told.
  std::string home;
};

/// Nothing when no process of this user has the id.
std::optional<OwnProcess> ownProcess(int pid);

}  // namespace kv
