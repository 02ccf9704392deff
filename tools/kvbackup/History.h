#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "platform/Date.h"

namespace kv {

/// One finished run.
struct RunReport {
  enum class Result { kOk, kFailed, kInterrupted };

  std::string set = {};
  Date start = {};
  Date end = {};
  Result result = Result::kFailed;
  /// Bytes of file content copied.
  std::uint64_t bytes = 0;
  /// Why, when the result is not a plain success; may be empty.
  std::string message = {};
};

/// How the message of a run begins that copied all and could not write that into the documents.
inline constexpr const char* kRunNotRecorded =
    "the copy is complete, but the run could not be recorded";

/// "ok", "failed" or "interrupted".
const char* resultName(RunReport::Result result);

/// The record of all runs: a file of lines, each a JSON object with "set", "start", "end",
/// "result", "bytes" and "message".
///
/// Threads    any, several processes too: a line is appended in one write.
/// Errors     what is no such line is passed over when reading.
class History {
 public:
  explicit History(std::string path) : path_(std::move(path)) {}

  /// False when the line could not be written.
  bool append(const RunReport& report) const;

  struct LastRun {
    Date end;
    std::string result;
    /// The end where the line tells no start.
    Date start;
    std::string message;
  };

  /// The latest run of each set, as far as the last megabyte of the file tells.
  std::map<std::string, LastRun> lastRuns() const;

 private:
  const std::string path_;
};

}  // namespace kv
