// What do the workloads of Harness.h cost with spdlog? Asynchronous loggers of its own thread pool
// that block when the queue is full.

#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <memory>
#include <vector>

#include "bench/logging/Harness.h"

namespace kv::bench {
namespace {

struct Spdlog {
  static void open(const Setup& setup) {
    std::vector<spdlog::sink_ptr> sinks;
    const auto path = setup.folder + "/spdlog.log";
    if (setup.rolling) {
      sinks.push_back(std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
          path, Setup::kRollingBytes, Setup::kKeptFiles - 1));
    } else {
      sinks.push_back(std::make_shared<spdlog::sinks::basic_file_sink_mt>(path));
    }
    if (setup.terminal) sinks.push_back(std::make_shared<spdlog::sinks::stderr_sink_mt>());
    std::shared_ptr<spdlog::logger> made;
    if (setup.asynchronous) {
      spdlog::init_thread_pool(Setup::kQueueBound, 1);
      made = std::make_shared<spdlog::async_logger>("bench", sinks.begin(), sinks.end(),
                                                    spdlog::thread_pool(),
                                                    spdlog::async_overflow_policy::block);
    } else {
      made = std::make_shared<spdlog::logger>("bench", sinks.begin(), sinks.end());
    }
    made->set_pattern("%Y/%m/%d %H:%M:%S:%e  %v");
    made->set_level(spdlog::level::info);
    if (setup.flushesEachLine) made->flush_on(spdlog::level::trace);
    spdlog::register_logger(made);
    logger = made.get();
  }

  static void log(int counter, int thread) {
    logger->info(KV_BENCH_BEFORE "{}" KV_BENCH_BETWEEN "{}" KV_BENCH_AFTER, counter, thread);
  }
  static void logSuppressed(int counter, int thread) {
    logger->debug(KV_BENCH_BEFORE "{}" KV_BENCH_BETWEEN "{}" KV_BENCH_AFTER, counter, thread);
  }
  static void flush() { logger->flush(); }
  static void close() { spdlog::shutdown(); }

  static inline spdlog::logger* logger = nullptr;
};

}  // namespace
}  // namespace kv::bench

int main(int argc, char** argv) {
  return kv::bench::runProgram<kv::bench::Spdlog>(argc, argv);
}
