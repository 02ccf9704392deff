#pragma once

#include <memory>
#include <string>

#include "logging/DDLogFormatter.h"
#include "platform/DateFormat.h"

namespace kv {

/// "2024/03/05 14:07:09:042  text": the time stamp in the user's zone, two blanks, the message's
/// text.
///
/// Threads    one logger at a time, since its date formatter is not locked.
class DDLogFileFormatterDefault final : public DDLogFormatter {
 public:
  /// `dateFormatter` renders the time stamp instead (see platform/DateFormatter.h); null for the
  /// usual one.
  explicit DDLogFileFormatterDefault(std::shared_ptr<const DateFormat> dateFormatter = nullptr);
  LogText formatLogMessage(const DDLogMessage& message) override;

 private:
  std::string_view timestamp(Date date);

  std::shared_ptr<const DateFormat> dateFormatter_;
  /// Renders whole seconds; the thousandths are put in here, and most lines share their second.
  bool addsThousandths_;
  double renderedSecond_;
  std::string rendered_;
  /// The last line, used again when nobody keeps it.
  std::shared_ptr<std::string> line_;
};

}  // namespace kv
