// What do the workloads of Harness.h cost with glog? It has no thread of its own: lines are put
// into a buffer, or written, by the caller. It cannot keep a number of files either.

#include <glog/logging.h>

#include <stdexcept>

#include "bench/logging/Harness.h"

namespace kv::bench {
namespace {

struct Glog {
  static void open(const Setup& setup) {
    if (setup.rolling) throw std::runtime_error("glog keeps no given number of files");
    FLAGS_logtostderr = false;
    FLAGS_alsologtostderr = setup.terminal;
    FLAGS_stderrthreshold = google::GLOG_FATAL;
    if (setup.flushesEachLine) {
      FLAGS_logbufsecs = 0;
      FLAGS_logbuflevel = -1;
    }
    FLAGS_v = 0;
    google::SetLogDestination(google::GLOG_INFO, (setup.folder + "/glog.").c_str());
    google::SetLogSymlink(google::GLOG_INFO, "");
    google::InitGoogleLogging("bench_logging_glog");
  }

  static void log(int counter, int thread) {
    LOG(INFO) << KV_BENCH_BEFORE << counter << KV_BENCH_BETWEEN << thread << KV_BENCH_AFTER;
  }
  static void logSuppressed(int counter, int thread) {
    VLOG(1) << KV_BENCH_BEFORE << counter << KV_BENCH_BETWEEN << thread << KV_BENCH_AFTER;
  }
  static void flush() { google::FlushLogFiles(google::GLOG_INFO); }
  static void close() { google::FlushLogFiles(google::GLOG_INFO); }
};

}  // namespace
}  // namespace kv::bench

int main(int argc, char** argv) {
  return kv::bench::runProgram<kv::bench::Glog>(argc, argv);
}
