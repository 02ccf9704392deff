// What do the workloads of Harness.h cost with our own library?
//
// Budgets    bench/logging/run has them, as shares of what the best of the other libraries takes.

#include <deque>
#include <memory>
#include <string>
#include <string_view>

#include "bench/logging/Harness.h"
#include "logging/DDFileLogger.h"
#include "logging/DDLog.h"
#include "logging/DDLogFileManagerDefault.h"
#include "logging/DDTTYLogger.h"
#include "logging/Log.h"
#include "platform/SystemSeams.h"

#undef KV_LOG_LEVEL
#define KV_LOG_LEVEL level

namespace kv::bench {
namespace {

constinit LogLevelVariable level(LogLevel::kInfo);

/// Files with numbers in their names, of which the newest are kept: those with dates have the
/// minute only, so a file that was rolled would go on for the rest of it.
class NumberedLogFiles final : public DDLogFileManagerDefault {
 public:
  using DDLogFileManagerDefault::DDLogFileManagerDefault;

  bool isLogFile(std::string_view fileName) override { return fileName.starts_with("bench "); }
  std::string newLogFileName() override { return fmt::format("bench {:06}.log", ++made_); }
  std::string createNewLogFile() override {
    kept_.push_back(DDLogFileManagerDefault::createNewLogFile());
    if (kept_.size() > Setup::kKeptFiles) {
      systemFiles()->remove(kept_.front());
      kept_.pop_front();
    }
    return kept_.back();
  }

 private:
  int made_ = 0;
  std::deque<std::string> kept_;
};

struct Ours {
  static void open(const Setup& setup) {
    isAsynchronous = setup.asynchronous;
    std::shared_ptr<DDLogFileManager> manager;
    if (setup.rolling) {
      manager = std::make_shared<NumberedLogFiles>(setup.folder);
    } else {
      manager = std::make_shared<DDLogFileManagerDefault>(setup.folder);
    }
    const auto logger = DDFileLogger::create(manager);
    logger->setMaximumFileSize(setup.rolling ? Setup::kRollingBytes : 0);
    logger->setRollingFrequency(0);
    logger->setGroupsBacklogWrites(setup.groupsWrites);
    DDLog::addLogger(logger);
    if (setup.terminal) DDLog::addLogger(DDTTYLogger::sharedInstance());
  }

  static void log(int counter, int thread) {
    if (isAsynchronous) {
      LOG_INFO(KV_BENCH_BEFORE "{}" KV_BENCH_BETWEEN "{}" KV_BENCH_AFTER, counter, thread);
    } else {
      LOG_ERROR(KV_BENCH_BEFORE "{}" KV_BENCH_BETWEEN "{}" KV_BENCH_AFTER, counter, thread);
    }
  }
  static void logSuppressed(int counter, int thread) {
    LOG_DEBUG(KV_BENCH_BEFORE "{}" KV_BENCH_BETWEEN "{}" KV_BENCH_AFTER, counter, thread);
  }
  static void flush() { DDLog::flushLog(); }
  static void close() { DDLog::flushLog(); }

  static inline bool isAsynchronous = true;
};

}  // namespace
}  // namespace kv::bench

int main(int argc, char** argv) {
  return kv::bench::runProgram<kv::bench::Ours>(argc, argv);
}
