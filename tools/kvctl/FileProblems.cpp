#include "tools/kvctl/FileProblems.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>

#include "platform/PropertyListReader.h"
#include "tools/kvbackup/Text.h"

namespace kv::kvctl {
namespace {

namespace fs = std::filesystem;
using Severity = Problem::Severity;

/// A session of tracing writes a few megabytes; this is several of them.
constexpr std::uint64_t kLargeTraceBytes = 20u << 20;

/// What stands in the way of a document, and what to do about it.
struct Obstacle {
  const char* what;
  const char* remedy;
};

Obstacle obstacleAt(Files& files, const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (status.type() == fs::file_type::not_found) {
    return {"is a link that leads nowhere", "Correct the link, or remove it."};
  }
  if (error) {
    return {"cannot be looked at", "Give yourself the right to read it and to enter its folders."};
  }
  if (status.type() == fs::file_type::directory) {
    return {"is a folder", "Move the folder away, and put the document in its place."};
  }
  if (status.type() != fs::file_type::regular) {
    return {"is no plain file", "Move it away, and put the document in its place."};
  }
  const PropertyListLimits limits;
  const auto size = fs::file_size(path, error);
  if (!error && size > limits.fileBytes) {
    return {"is larger than 64 MB", "Put an earlier copy of the document in its place."};
  }
  const auto bytes = files.read(path, limits.fileBytes);
  if (!bytes) {
    return {"cannot be opened for reading", "Give yourself the right to read it (chmod u+r)."};
  }
  if (bytes->empty()) {
    return {"is empty", "Put an earlier copy of the document in its place, or remove it."};
  }
  if (!readPropertyList(*bytes, limits)) {
    return {"is no property list, or a damaged one",
            "Put an earlier copy of the document in its place."};
  }
  return {"is a property list, but no list of backup sets",
          "Put an earlier copy of the document in its place."};
}

void addDocumentProblems(const CheckSubject& subject, Problems& problems) {
  for (const std::string& path : subject.sets().unreadable()) {
    const Obstacle obstacle = obstacleAt(*subject.context().files, path);
    Problem problem = CheckSubject::problem("unreadable-document", Severity::kError);
    problem.file = path;
    problem.what = fmt::format("{} {}.", shown(path), obstacle.what);
    problem.meaning = "The scheduler sees none of the sets in it, and starts none of them.";
    problem.remedy = obstacle.remedy;
    problems.push_back(problem);
  }
}

/// Why tracing writes nothing to the file; null when nothing stands in the way.
const char* traceFault(const FileAttributes& file) {
  using Type = FileAttributes::Type;
  if (file.type == Type::kLink) return "is a link";
  if (file.type == Type::kFolder) return "is a folder";
  if (file.type != Type::kRegular) return "is no plain file";
  if (file.owner != ::geteuid()) return "belongs to another user";
  if (file.links > 1) return "has a second name (a hard link)";
  return nullptr;
}

void addTraceProblems(const CheckSubject& subject, Problems& problems) {
  const std::string& path = subject.context().traceFile;
  const auto file = subject.context().files->attributes(path);
  if (!file) return;
  if (const char* const fault = traceFault(*file)) {
    Problem problem = CheckSubject::problem("trace-file-unusable", Severity::kNotice);
    problem.file = path;
    problem.what = fmt::format("The trace file {} {}.", shown(path), fault);
    problem.meaning =
        "Tracing writes only to a plain file of your own: switched on, it writes nothing. "
        "Backups do not suffer.";
    problem.remedy = file->owner == ::geteuid() ? "Remove it; tracing makes a new one:"
                                                : "Have its owner or the administrator remove it:";
    problem.command = "rm " +
                      std::string(file->type == FileAttributes::Type::kFolder ? "-r " : "") +
                      shellWord(path);
    problems.push_back(problem);
  } else if (file->sizeBytes > kLargeTraceBytes) {
    Problem problem = CheckSubject::problem("trace-file-large", Severity::kNotice);
    problem.file = path;
    problem.what =
        fmt::format("The trace file {} has grown to {}.", shown(path), sizeText(file->sizeBytes));
    problem.meaning =
        "Tracing has been on for long or often: every round adds lines, and nothing removes them.";
    problem.remedy =
        "Switch \"Debug Tracing\" off in the menu, take KVSCHEDULER_DEBUG out of the agent's "
        "environment, and remove the file:";
    problem.command = "rm " + shellWord(path);
    problems.push_back(problem);
  }
}

}  // namespace

void addFileProblems(const CheckSubject& subject, Problems& problems) {
  addDocumentProblems(subject, problems);
  addTraceProblems(subject, problems);
}

}  // namespace kv::kvctl
