#include "platform/linux/ProcessTable.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
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
  std::array<char, PATH_MAX> target;
  const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
  return {target.data(), length < 0 ? 0 : static_cast<std::size_t>(length)};
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

/// Whether it is the same file, and not written since.
bool isUnchanged(const struct stat& before, const struct stat& now) {
  return before.st_dev == now.st_dev && before.st_ino == now.st_ino &&
         before.st_size == now.st_size && before.st_ctim.tv_sec == now.st_ctim.tv_sec &&
         before.st_ctim.tv_nsec == now.st_ctim.tv_nsec;
}

/// What all processes are compared with.
struct Wanted {
  std::string executable;
  std::string interpreter;
};

bool runsExecutable(std::string_view image, const Wanted& wanted) {
  if (!image.starts_with(wanted.executable)) return false;
  image.remove_prefix(wanted.executable.size());
  return image.empty() || image == " (deleted)";  // an upgrade replaces the file of what runs
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
  const std::string image = linkTarget(folder + "/exe");
  if (image.empty()) return std::nullopt;  // ended, a zombie, or not to be seen by this user
  const bool isItself = runsExecutable(image, wanted);
  // To read a command line may mean to wait for the process, so it is done only where it matters.
  if (!isItself && wanted.interpreter.empty()) return std::nullopt;
  if (!isOwn(folder)) return std::nullopt;
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

const std::string& ProcessTable::interpreterOf(const std::string& path) {
  struct stat state {};
  if (::stat(path.c_str(), &state) != 0) state = {};
  const auto [entry, isNew] = programs_.try_emplace(path);
  Program& program = entry->second;
  if (isNew || !isUnchanged(program.state, state)) program = {state, interpreterName(path)};
  return program.interpreter;
}

std::vector<RunningProcess> ProcessTable::running(const std::string& executable) {
  std::vector<RunningProcess> processes;
  const Wanted wanted{resolved(executable), interpreterOf(executable)};
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
