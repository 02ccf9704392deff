#include "logging/DDFileLogger.h"

#include <fmt/format.h>

#include <exception>
#include <utility>

#include "logging/DDLogFileFormatterDefault.h"
#include "logging/DDLogFileManagerDefault.h"
#include "platform/MainQueue.h"

namespace kv {
namespace {

/// Failures of all file loggers of the process.
constinit std::atomic<int> gFailures{0};
constexpr int kReportedFailures = 10;

/// Forgets lines that were dealt with, in whatever way, and keeps the memory of usual ones.
struct ClearAtEnd {
  std::string& lines;
  std::vector<std::size_t>& lengths;
  ~ClearAtEnd() {
    constexpr std::size_t kUsualBytes = 2 * HeldLines::kMostBytes;
    if (lines.capacity() > kUsualBytes) lines = {};
    lines.clear();
    lengths.clear();
  }
};

}  // namespace

/// Lets go of a file that was rolled, whatever its manager did when it was told.
struct DDFileLogger::ForgetAtEnd {
  DDFileLogger& logger;
  ~ForgetAtEnd() {
    logger.currentLogFileInfo_.reset();
    logger.currentLogFileVnode_.reset();
    logger.rollingTimer_.reset();
  }
};

template <class Work>
void DDFileLogger::guarded(Work&& work) {
  try {
    work();
  } catch (...) {
    reportCaught();
  }
}

std::shared_ptr<DDFileLogger> DDFileLogger::create() {
  return create(std::make_shared<DDLogFileManagerDefault>());
}

std::shared_ptr<DDFileLogger> DDFileLogger::create(std::shared_ptr<DDLogFileManager> manager) {
  return std::make_shared<DDFileLogger>(std::move(manager));
}

DDFileLogger::DDFileLogger(std::shared_ptr<DDLogFileManager> manager)
    : DDFileLogger(std::move(manager), Environment()) {}

DDFileLogger::DDFileLogger(std::shared_ptr<DDLogFileManager> manager, Environment environment)
    : environment_(std::move(environment)), logFileManager_(std::move(manager)) {
  exchangeFormatter(std::make_shared<DDLogFileFormatterDefault>());
}

DDFileLogger::~DDFileLogger() {
  guarded([this] {
    if (!lines_.empty()) writeAll();
    if (currentLogFileHandle_ != nullptr) currentLogFileHandle_->synchronize();
  });
  finishRolling();
}

// --- Settings ---

std::uint64_t DDFileLogger::maximumFileSize() {
  std::uint64_t sizeBytes = 0;
  syncBetweenMessages([&] { sizeBytes = maximumFileSize_; });
  return sizeBytes;
}

void DDFileLogger::setMaximumFileSize(std::uint64_t sizeBytes) {
  asyncBetweenMessages([this, sizeBytes] {
    maximumFileSize_ = sizeBytes;
    guarded([this] { maybeRollLogFileDueToSize(); });
  });
}

double DDFileLogger::rollingFrequency() {
  double seconds = 0;
  syncBetweenMessages([&] { seconds = rollingFrequency_; });
  return seconds;
}

void DDFileLogger::setRollingFrequency(double seconds) {
  asyncBetweenMessages([this, seconds] {
    rollingFrequency_ = seconds;
    guarded([this] { maybeRollLogFileDueToAge(); });
  });
}

// --- The current file ---

bool DDFileLogger::isDueForArchiving(DDLogFileInfo& info) const {
  if (info.isArchived()) return false;
  if (maximumFileSize_ != 0 && info.fileSize() >= maximumFileSize_) return true;
  return rollingFrequency_ > 0.0 && info.age() >= rollingFrequency_;
}

std::shared_ptr<DDLogFileInfo> DDFileLogger::currentLogFileInfo() {
  if (currentLogFileInfo_ != nullptr) return currentLogFileInfo_;
  const auto infos = logFileManager_->sortedLogFileInfos();
  if (!infos.empty()) {
    const auto& newest = infos.front();
    const bool isDue = isDueForArchiving(*newest);
    if (!doNotReuseLogFiles_ && !isDue && !newest->isArchived()) {
      currentLogFileInfo_ = newest;
    } else if (isDue) {
      newest->setIsArchived(true);
      logFileManager_->didArchiveLogFile(newest->filePath());
    }
  }
  if (currentLogFileInfo_ == nullptr) {
    const DDLogFileInfo::Environment seams{environment_.files, environment_.clock,
                                           environment_.systemLog};
    currentLogFileInfo_ =
        std::make_shared<DDLogFileInfo>(logFileManager_->createNewLogFile(), seams);
  }
  return currentLogFileInfo_;
}

FileHandle* DDFileLogger::currentLogFileHandle() {
  if (currentLogFileHandle_ != nullptr) return currentLogFileHandle_.get();
  std::unique_ptr<FileHandle> handle;
  // The file may have gone since it was found or made: then once more from the beginning. A record
  // without its file is not kept, for nobody would make that file again.
  for (int attempts = 2; attempts > 0; --attempts) {
    const std::string& wanted = currentLogFileInfo()->filePath();
    handle = environment_.files->openForAppending(wanted);
    if (handle != nullptr || environment_.files->exists(wanted)) break;
    currentLogFileInfo_.reset();
  }
  if (handle == nullptr) return nullptr;
  const std::string path = currentLogFileInfo_->filePath();
  handle->seekToEnd();
  currentLogFileHandle_ = std::move(handle);
  scheduleTimerToRollLogFileDueToAge();
  currentLogFileVnode_ =
      environment_.fileWatcher->watch(path, currentLogFileHandle_->descriptor(), loggerQueue(),
                                      handler(&DDFileLogger::rollLogFileNow));
  return currentLogFileHandle_.get();
}

// --- Rolling ---

void DDFileLogger::rollLogFile() {
  rollLogFileWithCompletionBlock(nullptr);
}

void DDFileLogger::rollLogFileWithCompletionBlock(std::function<void()> completion) {
  const auto work = [this, completion = std::move(completion)] {
    guarded([this] { rollLogFileNow(); });
    finishRolling();
    if (completion) MainQueue::async(completion);
  };
  if (isOnInternalLoggerQueue()) {
    work();
  } else {
    asyncBetweenMessages(work);
  }
}

void DDFileLogger::rollLogFileNow() {
  if (currentLogFileHandle_ == nullptr) return;
  if (!lines_.empty()) writeAll();
  if (mayHold_ && groupsBacklogWrites_) {
    if (closer_.isFull()) finishRolling();
    closer_.close(std::move(currentLogFileHandle_));
  } else {
    finishRolling();
    currentLogFileHandle_->synchronize();
    currentLogFileHandle_.reset();
  }
  const ForgetAtEnd forget{*this};
  if (currentLogFileInfo_ == nullptr) return;
  currentLogFileInfo_->setIsArchived(true);
  logFileManager_->didRollAndArchiveLogFile(currentLogFileInfo_->filePath());
}

void DDFileLogger::maybeRollLogFileDueToSize() {
  if (maximumFileSize_ == 0 || currentLogFileHandle_ == nullptr) return;
  if (currentLogFileHandle_->offset() >= maximumFileSize_) rollLogFileNow();
}

void DDFileLogger::maybeRollLogFileDueToAge() {
  const bool isDue = rollingFrequency_ > 0.0 && currentLogFileInfo_ != nullptr &&
                     currentLogFileInfo_->age() >= rollingFrequency_;
  if (isDue) {
    rollLogFileNow();
  } else {
    scheduleTimerToRollLogFileDueToAge();
  }
}

void DDFileLogger::scheduleTimerToRollLogFileDueToAge() {
  rollingTimer_.reset();
  if (currentLogFileInfo_ == nullptr || !(rollingFrequency_ > 0.0)) return;
  // A file without a creation date has no age, so it never becomes due.
  const auto created = currentLogFileInfo_->creationDate();
  if (!created) return;
  const Date rollingMoment = *created + Seconds(rollingFrequency_);
  rollingTimer_ =
      environment_.timers->fireOnce(rollingMoment - environment_.clock->now(), loggerQueue(),
                                    handler(&DDFileLogger::maybeRollLogFileDueToAge));
}

std::function<void()> DDFileLogger::handler(void (DDFileLogger::*work)()) {
  return [weak = weak_from_this(), work] {
    const auto self = std::static_pointer_cast<DDFileLogger>(weak.lock());
    if (self != nullptr) self->guarded([&] { ((*self).*work)(); });
  };
}

void DDFileLogger::willRemoveLogger() {
  guarded([this] { rollLogFileNow(); });
  finishRolling();
}

/// Returns when the files that were rolled are on the disk.
void DDFileLogger::finishRolling() {
  for (const auto& failure : closer_.finish()) {
    guarded([&failure] { std::rethrow_exception(failure); });
  }
}

// --- Writing ---

/// Writes what is held. What cannot be written is lost; of a single line the failure is thrown, of
/// several each is reported. Inline like what follows, for the sake of synchronous messages: see
/// SerialQueue::sync().
[[gnu::always_inline]] inline void DDFileLogger::writeAll() {
  const ClearAtEnd clear{lines_, lineLengths_};
  FileHandle* handle = nullptr;
  std::uint64_t begin = 0;
  try {
    handle = currentLogFileHandle();
    if (handle == nullptr) {
      lostLines_ += lineLengths_.size();
      return;
    }
    begin = handle->offset();
    handle->write(lines_);
    return;
  } catch (const std::exception&) {
    if (handle == nullptr || lineLengths_.size() == 1) {
      if (handle != nullptr && handle->offset() != begin) handle->cutBackTo(begin);
      lostLines_ += lineLengths_.size();
      throw;
    }
  }
  writeLineByLine(*handle, begin);
}

[[gnu::always_inline]] inline void DDFileLogger::writeAndRoll() {
  try {
    writeAll();
    maybeRollLogFileDueToSize();
  } catch (...) {
    reportCaught();
  }
}

void DDFileLogger::write() {
  writeAndRoll();
}

void DDFileLogger::logMessage(const DDLogMessage& message) {
  DDLogFormatter* const formatter = currentFormatter();
  const LogText text =
      formatter == nullptr ? message.message() : formatter->formatLogMessage(message);
  if (text == nullptr) return;

  const bool isCustom = formatter != nullptr && !message.isOwnText(text);
  const bool isLeftAsIs = isCustom && !appendsNewline_;
  const std::size_t begin = lines_.size();
  lines_.append(*text);
  if (!isLeftAsIs && !text->ends_with('\n')) lines_.push_back('\n');
  lineLengths_.push_back(lines_.size() - begin);
  if (mustWrite()) writeAndRoll();
}

bool DDFileLogger::mustWrite() const {
  if (!mayHold_ || !groupsBacklogWrites_ || currentLogFileHandle_ == nullptr) return true;
  if (lineLengths_.size() >= kMostLines || lines_.size() >= kMostBytes) return true;
  const std::uint64_t offset = currentLogFileHandle_->offset() + lines_.size();
  return maximumFileSize_ != 0 && offset >= maximumFileSize_;
}

/// After a group of lines that began at `begin` failed somewhere: goes on behind the last whole
/// line that is in the file.
void DDFileLogger::writeLineByLine(FileHandle& handle, std::uint64_t begin) {
  const std::uint64_t written = handle.offset() - begin;
  std::size_t position = 0;
  std::size_t line = 0;
  while (line < lineLengths_.size() && position + lineLengths_[line] <= written) {
    position += lineLengths_[line++];
  }
  if (position < written) handle.cutBackTo(begin + position);

  for (; line < lineLengths_.size(); position += lineLengths_[line++]) {
    const std::uint64_t lineBegin = handle.offset();
    try {
      handle.write(std::string_view(lines_).substr(position, lineLengths_[line]));
    } catch (const std::exception& failure) {
      if (handle.offset() != lineBegin) handle.cutBackTo(lineBegin);
      ++lostLines_;
      report(failure.what());
    }
  }
}

void DDFileLogger::reportCaught() {
  try {
    throw;
  } catch (const std::exception& failure) {
    report(failure.what());
  } catch (...) {
    report("unknown exception");
  }
}

void DDFileLogger::report(const char* what) {
  const int before = gFailures.fetch_add(1);
  if (before >= kReportedFailures) return;
  environment_.systemLog->write(fmt::format("DDFileLogger.logMessage: {}", what));
  if (before + 1 == kReportedFailures) {
    environment_.systemLog->write(
        "DDFileLogger.logMessage: Too many exceptions -- will not log any more of them.");
  }
}

}  // namespace kv
