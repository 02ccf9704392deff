#include "logging/DDLogFileFormatterDefault.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "logging/RecycledText.h"
#include "platform/NumericDateFormat.h"

namespace kv {
namespace {

constexpr std::string_view kPatternToSecond = "yyyy/MM/dd HH:mm:ss:";
constexpr std::size_t kThousandthsDigits = 3;

void writeThousandths(char* digits, double fraction) {
  // A date holds thousandths to within less than a microsecond only, above or below.
  const auto thousandths = std::min(static_cast<unsigned>(fraction * 1000.0 + 0.001), 999U);
  digits[0] = static_cast<char>('0' + thousandths / 100);
  digits[1] = static_cast<char>('0' + thousandths / 10 % 10);
  digits[2] = static_cast<char>('0' + thousandths % 10);
}

}  // namespace

DDLogFileFormatterDefault::DDLogFileFormatterDefault(
    std::shared_ptr<const DateFormat> dateFormatter)
    : dateFormatter_(std::move(dateFormatter)),
      addsThousandths_(dateFormatter_ == nullptr),
      renderedSecond_(std::numeric_limits<double>::quiet_NaN()) {
  if (addsThousandths_) dateFormatter_ = std::make_shared<NumericDateFormat>(kPatternToSecond);
}

LogText DDLogFileFormatterDefault::formatLogMessage(const DDLogMessage& message) {
  std::string& line = recycledText(line_);
  line.assign(timestamp(message.timestamp())).append("  ").append(message.text());
  return line_;
}

std::string_view DDLogFileFormatterDefault::timestamp(Date date) {
  if (!addsThousandths_) {
    rendered_ = dateFormatter_->string(date).value_or("");
    return rendered_;
  }
  // Most lines share their second with the one before.
  double fraction = date.sinceReference.count() - renderedSecond_;
  if (!(fraction >= 0.0 && fraction < 1.0)) {
    const double second = std::floor(date.sinceReference.count());
    const auto toSecond = dateFormatter_->string({Seconds(second)});
    if (!toSecond) return {};  // no calendar holds this date
    rendered_ = *toSecond;
    rendered_.append(kThousandthsDigits, '0');
    renderedSecond_ = second;
    fraction = date.sinceReference.count() - second;
  }
  writeThousandths(rendered_.data() + rendered_.size() - kThousandthsDigits, fraction);
  return rendered_;
}

}  // namespace kv
