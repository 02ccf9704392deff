#include "logging/LogRecord.h"

#include <mutex>
#include <utility>

#include "logging/LogDispatcher.h"
#include "platform/Processor.h"

namespace kv {

/// The free records of the process, in lists of some. Threads take and bring a whole list at once.
class LogRecordPool {
 public:
  static constexpr std::size_t kPortion = 32;

  /// Never destroyed: the last line of a program needs a record too.
  static LogRecordPool& shared() {
    static LogRecordPool& pool = *new LogRecordPool;
    return pool;
  }

  /// A list of one to kPortion records: one that was brought, or a single new one.
  LogRecord* takePortion() {
    {
      std::lock_guard lock(mutex_);
      if (portions_ != nullptr) {
        return std::exchange(portions_, std::exchange(portions_->nextPortion_, nullptr));
      }
    }
    return make();
  }

  /// Takes a list as a portion.
  void bring(LogRecord& first) {
    std::lock_guard lock(mutex_);
    first.nextPortion_ = std::exchange(portions_, &first);
  }

  void lock() { mutex_.lock(); }
  void unlock() { mutex_.unlock(); }

  static LogRecord* next(const LogRecord& record) { return record.nextFree_; }
  static void setNext(LogRecord& record, LogRecord* next) {
    record.nextFree_ = next;
    record.nextText_ = next == nullptr ? nullptr : next->textMemory();
  }

  static LogRecord* make() {
    const std::shared_ptr<LogRecord> record(new LogRecord);
    record->self() = record;
    return record.get();
  }

  /// False when somebody keeps the record: then it is left to them.
  static bool regain(LogRecord& record) {
    if (isSoleHolder(record.self())) {
      record.clear();
      return true;
    }
    const auto leftToKeeper = std::move(record.self());
    return false;
  }

 private:
  std::mutex mutex_;
  LogRecord* portions_ = nullptr;
};

namespace {

template <class Field>
void change(Field& field, Field value) {
  if (field != value) field = value;
}

/// A thread's small stock of free records; on the thread that delivers, what it has to bring back.
struct Stock {
  LogRecord* first = nullptr;
  std::size_t count = 0;

  void add(LogRecord& record) {
    LogRecordPool::setNext(record, first);
    first = &record;
    if (++count >= LogRecordPool::kPortion) bringBack();
  }

  void bringBack() {
    if (first != nullptr) LogRecordPool::shared().bring(*first);
    first = nullptr;
    count = 0;
  }
};

/// Messages may still be logged when a thread's objects are destroyed; then nothing is kept.
struct ThreadStocks {
  LogRecord* free = nullptr;
  Stock used;
  bool isGone = false;
};
constinit thread_local ThreadStocks tStocks;

struct StocksEnd {
  ~StocksEnd() {
    Stock rest;
    for (LogRecord* record = tStocks.free; record != nullptr;) {
      LogRecord& current = *record;
      record = LogRecordPool::next(current);
      rest.add(current);
    }
    rest.bringBack();
    tStocks.used.bringBack();
    tStocks.free = nullptr;
    tStocks.isGone = true;
  }
};

void bringBackAtThreadEnd() {
  thread_local const StocksEnd end;
}

}  // namespace

LogRecord& LogRecord::take() {
  ThreadStocks& stocks = tStocks;
  if (stocks.free == nullptr) {
    if (stocks.isGone) return *LogRecordPool::make();
    bringBackAtThreadEnd();
    stocks.free = LogRecordPool::shared().takePortion();
  }
  LogRecord& record = *stocks.free;
  stocks.free = record.nextFree_;
  record.fetchNext();
  return record;
}

/// What changes in the next free record was last in the hands of another processor: it comes over
/// while this one is being filled: two lines of memory, and two of the text. What does not change
/// stays in the caches of both.
void LogRecord::fetchNext() const {
  if (nextFree_ == nullptr) return;
  const auto* const changing = reinterpret_cast<const char*>(&nextFree_->timestamp_);
  prefetchForWriting(changing);
  prefetchForWriting(changing + kCacheLine);
  prefetchForWriting(nextText_);
  prefetchForWriting(nextText_ + kCacheLine);
}

void LogRecord::recycle(LogRecord& record) {
  if (!LogRecordPool::regain(record)) return;
  ThreadStocks& stocks = tStocks;
  if (!stocks.isGone) bringBackAtThreadEnd();
  stocks.used.add(record);
  if (stocks.isGone) stocks.used.bringBack();
}

void LogRecord::putBack(LogRecord& record) {
  ThreadStocks& stocks = tStocks;
  if (stocks.isGone) {
    recycle(record);
  } else if (LogRecordPool::regain(record)) {
    LogRecordPool::setNext(record, stocks.free);
    stocks.free = &record;
  }
}

void LogRecord::lockPool() {
  LogRecordPool::shared().lock();
}

void LogRecord::unlockPool() {
  LogRecordPool::shared().unlock();
}

void LogRecord::clear() {
  constexpr std::size_t kUsualText = 4096;
  if (ownText_.capacity() > kUsualText) ownText_ = {};
  given_ = nullptr;
  tag_ = nullptr;
  hasOwnText_ = false;
}

void LogRecord::setSite(const LogSite& site) {
  // Of literals the place is enough: another place is another site, or as good as one.
  const bool isSame = file_.data() == site.file.data() && function_.data() == site.function.data();
  if (!isSame) {
    file_ = site.file;
    fileName_ = site.fileName;
    function_ = site.function;
  }
  change(line_, site.line);
}

void LogRecord::setSite(std::string_view file, std::string_view function, std::uint64_t line) {
  keepNames(file, function);
  line_ = line;
}

void LogRecord::setText(std::string_view text) {
  ownText_.assign(text);
  hasOwnText_ = true;
}

char* LogRecord::setTextOf(std::size_t bytes) {
  // Of the same length as the text before, mostly: then nothing is filled in twice.
  ownText_.resize(bytes);
  hasOwnText_ = true;
  return ownText_.data();
}

void LogRecord::setText(LogText text) {
  given_ = std::move(text);
}

void LogRecord::setKind(std::uint64_t level, std::uint64_t flag, std::int64_t context, LogTag tag) {
  change(level_, level);
  change(flag_, flag);
  change(context_, context);
  if (tag_ != tag) tag_ = std::move(tag);
}

void LogRecord::run() {
  dispatcher_->deliverQueued(*this);
  recycle(*this);
}

}  // namespace kv
