// What do the workloads of Harness.h cost with Boost.Log? Asynchronous sinks that block when their
// queue is full; a source for each thread, which needs no lock.

#include <boost/core/null_deleter.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/log/attributes/clock.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/async_frontend.hpp>
#include <boost/log/sinks/block_on_overflow.hpp>
#include <boost/log/sinks/bounded_fifo_queue.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_file_backend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_logger.hpp>
#include <boost/log/support/date_time.hpp>
#include <boost/smart_ptr/make_shared_object.hpp>
#include <functional>
#include <iostream>
#include <utility>
#include <vector>

#include "bench/logging/Harness.h"

namespace kv::bench {
namespace {

namespace expressions = boost::log::expressions;
namespace keywords = boost::log::keywords;
namespace sinks = boost::log::sinks;

enum class Severity { kDebug, kInfo };

template <class Backend>
using AsynchronousSink = sinks::asynchronous_sink<
    Backend, sinks::bounded_fifo_queue<Setup::kQueueBound, sinks::block_on_overflow>>;

struct BoostLog {
  static void open(const Setup& setup) {
    const auto core = boost::log::core::get();
    core->add_global_attribute("TimeStamp", boost::log::attributes::local_clock());
    core->set_filter(expressions::attr<Severity>("Severity") >= Severity::kInfo);
    const auto file = fileBackend(setup);
    if (setup.asynchronous) {
      add<AsynchronousSink<sinks::text_file_backend>>(file);
    } else {
      const auto sink = boost::make_shared<sinks::synchronous_sink<sinks::text_file_backend>>(file);
      setFormatter(*sink);
      core->add_sink(sink);
    }
    if (setup.terminal) {
      const auto backend = boost::make_shared<sinks::text_ostream_backend>();
      backend->add_stream(boost::shared_ptr<std::ostream>(&std::clog, boost::null_deleter()));
      add<AsynchronousSink<sinks::text_ostream_backend>>(backend);
    }
  }

  static void log(int counter, int thread) {
    BOOST_LOG_SEV(source, Severity::kInfo)
        << KV_BENCH_BEFORE << counter << KV_BENCH_BETWEEN << thread << KV_BENCH_AFTER;
  }
  static void logSuppressed(int counter, int thread) {
    BOOST_LOG_SEV(source, Severity::kDebug)
        << KV_BENCH_BEFORE << counter << KV_BENCH_BETWEEN << thread << KV_BENCH_AFTER;
  }
  static void flush() { boost::log::core::get()->flush(); }
  static void close() {
    for (const auto& stop : stops) stop();
    boost::log::core::get()->remove_all_sinks();
    stops.clear();
  }

  static inline thread_local boost::log::sources::severity_logger<Severity> source;
  static inline std::vector<std::function<void()>> stops;

 private:
  static boost::shared_ptr<sinks::text_file_backend> fileBackend(const Setup& setup) {
    if (!setup.rolling) {
      const auto backend = boost::make_shared<sinks::text_file_backend>(
          keywords::file_name = setup.folder + "/boost.log",
          keywords::enable_final_rotation = false);
      backend->auto_flush(setup.flushesEachLine);
      return backend;
    }
    const auto backend = boost::make_shared<sinks::text_file_backend>(
        keywords::file_name = setup.folder + "/boost_%5N.log",
        keywords::rotation_size = Setup::kRollingBytes, keywords::enable_final_rotation = false);
    backend->set_file_collector(sinks::file::make_collector(
        keywords::target = setup.folder + "/kept", keywords::max_files = Setup::kKeptFiles - 1));
    return backend;
  }

  template <class Sink>
  static void setFormatter(Sink& sink) {
    sink.set_formatter(expressions::stream
                       << expressions::format_date_time<boost::posix_time::ptime>(
                              "TimeStamp", "%Y/%m/%d %H:%M:%S:%f")
                       << "  " << expressions::smessage);
  }

  template <class Sink, class Backend>
  static void add(const Backend& backend) {
    const auto sink = boost::make_shared<Sink>(backend);
    setFormatter(*sink);
    boost::log::core::get()->add_sink(sink);
    stops.emplace_back([sink] {
      sink->stop();
      sink->flush();
    });
  }
};

}  // namespace
}  // namespace kv::bench

int main(int argc, char** argv) {
  return kv::bench::runProgram<kv::bench::BoostLog>(argc, argv);
}
