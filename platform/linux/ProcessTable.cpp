#include "platform/linux/ProcessTable.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

namespace kv {
namespace {

namespace fs = std::filesystem;

std::string resolved(const std::string& path) {
  std::error_code error;
  const fs::path real = fs::canonical(path, error);
  return error ? path : real.string();
}

std::string linkTarget(const std::string& path) {
  std::error_code error;
  return fs::read_symlink(path, error).string();
}

std::string baseName(const std::string& path) {
  return path.substr(path.find_last_of('/') + 1);
}

/// The program that runs the script at `path`, by its bare name; empty when it is no script.
std::string interpreterName(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  char mark[2] = {};
  std::string line;
  if (!file.read(mark, 2) || mark[0] != '#' || mark[1] != '!' || !std::getline(file, line)) {
    return {};
  }
  std::istringstream words(line.substr(0, 4096));
  std::string word;
  words >> word;
  if (baseName(word) != "env") return baseName(word);
  // env takes options and settings first; the program comes after them.
  while (words >> word) {
    if (word.front() != '-' && word.find('=') == std::string::npos) return baseName(word);
  }
  return {};
}

std::vector<std::string> commandLine(const std::string& processFolder) {
  std::ifstream file(processFolder + "/cmdline", std::ios::binary);
  std::vector<std::string> arguments;
  for (std::string argument; std::getline(file, argument, '\0');) arguments.push_back(argument);
  return arguments;
}

/// What all processes are compared with.
struct Wanted {
  std::string executable;
  std::string interpreter;
};

bool runsExecutable(const std::string& image, const Wanted& wanted) {
  // An upgrade replaces the file under a running program.
  return image == wanted.executable || image == wanted.executable + " (deleted)";
}

bool runsScript(const std::string& processFolder, const std::string& image,
                const std::vector<std::string>& arguments, const Wanted& wanted) {
  if (wanted.interpreter.empty() || arguments.size() < 2) return false;
  if (baseName(image) != wanted.interpreter && baseName(arguments[0]) != wanted.interpreter) {
    return false;
  }
  const auto script = std::find_if(
      arguments.begin() + 1, arguments.end(),
      [](const std::string& argument) { return argument.empty() || argument.front() != '-'; });
  if (script == arguments.end() || script->empty()) return false;
  const bool isAbsolute = script->front() == '/';
  return resolved(isAbsolute ? *script : linkTarget(processFolder + "/cwd") + "/" + *script) ==
         wanted.executable;
}

bool isOwn(const std::string& processFolder) {
  struct stat status {};
  return ::stat(processFolder.c_str(), &status) == 0 && status.st_uid == ::geteuid();
}

std::optional<RunningProcess> processMatching(int pid, const Wanted& wanted) {
  const std::string folder = "/proc/" + std::to_string(pid);
  if (!isOwn(folder)) return std::nullopt;
  const std::string image = linkTarget(folder + "/exe");
  if (image.empty()) return std::nullopt;  // ended, or a zombie
  const bool isItself = runsExecutable(image, wanted);
  // To read a command line may mean to wait for the process, so it is done only where it matters.
  if (!isItself && wanted.interpreter.empty()) return std::nullopt;
  RunningProcess process{pid, commandLine(folder)};
  if (!isItself && !runsScript(folder, image, process.arguments, wanted)) return std::nullopt;
  return process;
}

}  // namespace

std::optional<OwnProcess> ownProcess(int pid) {
  constexpr std::string_view kHome = "HOME=";
  const std::string folder = "/proc/" + std::to_string(pid);
  OwnProcess process;
  std::ifstream name(folder + "/comm");
  if (!isOwn(folder) || !std::getline(name, process.name)) return std::nullopt;
  std::ifstream environment(folder + "/environ", std::ios::binary);
  for (std::string variable; std::getline(environment, variable, '\0');) {
    if (variable.starts_with(kHome)) process.home = variable.substr(kHome.size());
  }
  return process;
}

std::vector<RunningProcess> processesRunning(const std::string& executable) {
  std::vector<RunningProcess> processes;
  const Wanted wanted{resolved(executable), interpreterName(executable)};
  std::error_code error;
  fs::directory_iterator entries("/proc", error);
  for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
    const std::string name = entries->path().filename().string();
    int pid = 0;
    const char* const end = name.data() + name.size();
    const auto [last, fault] = std::from_chars(name.data(), end, pid);
    if (fault != std::errc() || last != end) continue;
    if (std::optional<RunningProcess> process = processMatching(pid, wanted)) {
      processes.push_back(std::move(*process));
    }
  }
  std::sort(processes.begin(), processes.end(),
            [](const RunningProcess& a, const RunningProcess& b) { return a.pid < b.pid; });
  return processes;
}

}  // namespace kv
