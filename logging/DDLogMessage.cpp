#include "logging/DDLogMessage.h"

#include <stdexcept>
#include <utility>

#include "platform/SerialQueue.h"
#include "platform/SystemSeams.h"
#include "platform/Utf8.h"

namespace kv {

DDLogMessage::DDLogMessage(const Fields& fields)
    : level_(fields.level),
      flag_(fields.flag),
      context_(fields.context),
      line_(fields.line),
      options_(fields.options),
      given_(fields.message),
      tag_(fields.tag) {
  keepNames(fields.file, fields.function);
  const Date now = fields.timestamp ? *fields.timestamp : systemClock()->now();
  forgetThreadName();
  takeDownCaller(now);
}

DDLogMessage::DDLogMessage(const DDLogMessage& other)
    : std::enable_shared_from_this<DDLogMessage>(other),
      level_(other.level_),
      flag_(other.flag_),
      context_(other.context_),
      line_(other.line_),
      options_(other.options_),
      queueLabel_(other.queueLabel_),
      thread_(other.thread_),
      timestamp_(other.timestamp_),
      given_(other.message()),
      tag_(other.tag_) {
  keepNames(other.file_, other.function_);
}

DDLogMessage::~DDLogMessage() = default;

LogText DDLogMessage::message() const {
  if (!hasOwnText_) return given_;
  return {shared_from_this(), &ownText_};
}

void DDLogMessage::keepNames(std::string_view file, std::string_view function) {
  names_.assign(file).append(function);
  const std::string_view names = names_;
  file_ = names.substr(0, file.size());
  function_ = names.substr(file.size());
  fileName_ = fileNameWithoutExtension(file_);
}

void DDLogMessage::takeDownCaller(Date now) {
  timestamp_ = now;
  const ThreadFacts& thread = currentThreadFacts(now);
  if (thread_ != thread) thread_ = thread;
  const std::string& label = SerialQueue::currentLabel();
  if (queueLabel_ != label) queueLabel_ = label;
}

extern "C" std::shared_ptr<const std::string_view> DDExtractFileNameWithoutExtension(
    const char* filePath, bool copy) {
  if (filePath == nullptr) return nullptr;
  const char* begin = filePath;
  const char* lastDot = nullptr;
  const char* end = filePath;
  for (; *end != '\0'; ++end) {
    if (*end == '/') begin = end + 1;
    if (*end == '.') lastDot = end;
  }
  if (lastDot != nullptr) end = lastDot;
  if (end < begin) throw std::length_error("the last \".\" of a path lies in a folder's name");

  const std::string_view name(begin, static_cast<std::size_t>(end - begin));
  if (!isUtf8(name)) return nullptr;
  if (!copy) return std::make_shared<const std::string_view>(name);
  struct Copy {
    explicit Copy(std::string_view text) : bytes(text), view(bytes) {}
    std::string bytes;
    std::string_view view;
  };
  auto owner = std::make_shared<const Copy>(name);
  return {owner, &owner->view};
}

}  // namespace kv
