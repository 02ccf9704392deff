// What do the workloads of Harness.h cost with log4cplus? One asynchronous appender, which blocks
// when its queue is full, in front of the others.

#include <log4cplus/asyncappender.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <ios>
#include <memory>
#include <vector>

#include "bench/logging/Harness.h"

namespace kv::bench {
namespace {

struct Log4cplus {
  static void open(const Setup& setup) {
    log4cplus::initialize();
    const auto path = setup.folder + "/log4cplus.log";
    std::vector<log4cplus::SharedAppenderPtr> appenders;
    if (setup.rolling) {
      appenders.emplace_back(new log4cplus::RollingFileAppender(
          path, Setup::kRollingBytes, Setup::kKeptFiles - 1, setup.flushesEachLine));
    } else {
      appenders.emplace_back(
          new log4cplus::FileAppender(path, std::ios_base::trunc, setup.flushesEachLine));
    }
    if (setup.terminal) {
      appenders.emplace_back(new log4cplus::ConsoleAppender(/*logToStdErr=*/true));
    }
    for (auto& appender : appenders) {
      appender->setLayout(
          std::make_unique<log4cplus::PatternLayout>("%D{%Y/%m/%d %H:%M:%S:%q}  %m%n"));
    }
    logger = log4cplus::Logger::getInstance("bench");
    logger.setAdditivity(false);
    logger.setLogLevel(log4cplus::INFO_LOG_LEVEL);
    if (!setup.asynchronous) {
      for (auto& appender : appenders) logger.addAppender(appender);
      return;
    }
    const log4cplus::helpers::SharedObjectPtr<log4cplus::AsyncAppender> queue(
        new log4cplus::AsyncAppender(appenders.front(), Setup::kQueueBound));
    if (setup.terminal) queue->addAppender(appenders.back());
    logger.addAppender(log4cplus::SharedAppenderPtr(queue.get()));
  }

  static void log(int counter, int thread) {
    LOG4CPLUS_INFO_FMT(logger, KV_BENCH_BEFORE "%d" KV_BENCH_BETWEEN "%d" KV_BENCH_AFTER, counter,
                       thread);
  }
  static void logSuppressed(int counter, int thread) {
    LOG4CPLUS_DEBUG_FMT(logger, KV_BENCH_BEFORE "%d" KV_BENCH_BETWEEN "%d" KV_BENCH_AFTER, counter,
                        thread);
  }
  static void flush() {}  // there is no such call; the appender flushes each line
  static void close() { log4cplus::Logger::shutdown(); }

  static inline log4cplus::Logger logger;
};

}  // namespace
}  // namespace kv::bench

int main(int argc, char** argv) {
  return kv::bench::runProgram<kv::bench::Log4cplus>(argc, argv);
}
