#include "logging/DDTTYLogger.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <new>
#include <utility>

#include "logging/LogLevel.h"
#include "platform/LocalTime.h"

namespace kv {
namespace {

constinit std::atomic<bool> sharedInstanceExists{false};

constexpr std::size_t kTimeLength = std::string_view("14:07-").size();
constexpr std::size_t kThreadLength = 8;
constexpr std::string_view kHeadEnd = "] ";
constexpr std::size_t kProfileCapacity = 8;

constexpr LogColor kErrorColor = LogColor::fromBytes(214, 57, 30);
constexpr LogColor kWarningColor = LogColor::fromBytes(204, 121, 32);

/// "14:07-", which needs no memory of its own; empty for an instant that no calendar can hold.
std::string renderedTime(Date date) {
  const auto offset = localOffsetFromUtc(date);
  if (!offset) return {};
  constexpr std::int64_t kMinutesPerDay = 24 * 60;
  const double localSeconds = std::floor(date.unixSeconds()) + offset->count();
  const auto minutes = static_cast<std::int64_t>(std::floor(localSeconds / 60.0));
  const std::int64_t minuteOfDay = (minutes % kMinutesPerDay + kMinutesPerDay) % kMinutesPerDay;
  return fmt::format("{:02}:{:02}-", minuteOfDay / 60, minuteOfDay % 60);
}

}  // namespace

std::shared_ptr<DDTTYLogger> DDTTYLogger::sharedInstance() {
  // Never destroyed: it serves the very last line of the process.
  static const auto* instance = [] {
    TerminalColors::settleForProcess();
    const auto* made = new std::shared_ptr<DDTTYLogger>(create());
    sharedInstanceExists = true;
    return made;
  }();
  return *instance;
}

std::shared_ptr<DDTTYLogger> DDTTYLogger::create() {
  return create(Environment{});
}

std::shared_ptr<DDTTYLogger> DDTTYLogger::create(Environment environment) {
  if (sharedInstanceExists) return nullptr;
  try {
    return std::shared_ptr<DDTTYLogger>(new DDTTYLogger(std::move(environment)));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

DDTTYLogger::DDTTYLogger(Environment environment)
    : output_(std::move(environment.output)),
      terminal_(environment.terminal),
      appAndPid_(fmt::format(
          " {}[{}:", environment.processName.empty() ? "<UnnamedApp>" : environment.processName,
          environment.pid)) {
  head_.reserve(kTimeLength + appAndPid_.size() + kThreadLength + kHeadEnd.size());
  colorProfilesArray_.reserve(kProfileCapacity);
  colorProfilesDict_.reserve(kProfileCapacity);
}

void DDTTYLogger::initialize_colors_16() {
  TerminalColors::setPaletteOfProcess(TerminalPalette::colors16());
}

void DDTTYLogger::initialize_colors_256() {
  TerminalColors::setPaletteOfProcess(TerminalPalette::colors256());
}

void DDTTYLogger::getRed_green_blue_fromColor(double* red, double* green, double* blue,
                                              const LogColor& color) {
  if (red != nullptr) *red = color.red;
  if (green != nullptr) *green = color.green;
  if (blue != nullptr) *blue = color.blue;
}

std::size_t DDTTYLogger::codeIndexForColor(const LogColor& color) {
  const TerminalPalette* palette = TerminalColors::ofProcess().palette;
  return palette == nullptr ? 0 : palette->codeIndexForColor(color);
}

void DDTTYLogger::loadDefaultColorProfiles() {
  setForegroundColor_backgroundColor_forFlag(kErrorColor, std::nullopt, LogFlag::kError);
  setForegroundColor_backgroundColor_forFlag(kWarningColor, std::nullopt, LogFlag::kWarning);
}

bool DDTTYLogger::colorsEnabled() {
  bool enabled = false;
  syncBetweenMessages([&] { enabled = colorsEnabled_; });
  return enabled;
}

void DDTTYLogger::setColorsEnabled(bool enabled) {
  asyncBetweenMessages([this, enabled] {
    colorsEnabled_ = enabled;
    if (colorProfilesArray_.empty()) loadDefaultColorProfiles();
  });
}

DDTTYLogger::Profile DDTTYLogger::makeProfile(const std::optional<LogColor>& foreground,
                                              const std::optional<LogColor>& background,
                                              std::uint64_t flag, std::int64_t context) const {
  return DDTTYLoggerColorProfile::create(foreground, background, flag, context,
                                         terminal_.value_or(TerminalColors::ofProcess()));
}

void DDTTYLogger::changeProfiles(std::function<void()> change) {
  if (isOnInternalLoggerQueue()) {
    change();
  } else {
    asyncBetweenMessages(std::move(change));
  }
}

std::vector<DDTTYLogger::Profile>::iterator DDTTYLogger::findProfile(std::uint64_t flag,
                                                                     std::int64_t context) {
  return std::find_if(colorProfilesArray_.begin(), colorProfilesArray_.end(),
                      [&](const Profile& profile) {
                        return profile->mask() == flag && profile->context() == context;
                      });
}

void DDTTYLogger::setForegroundColor_backgroundColor_forFlag(
    const std::optional<LogColor>& foreground, const std::optional<LogColor>& background,
    std::uint64_t flag) {
  setForegroundColor_backgroundColor_forFlag_context(foreground, background, flag, kAnyContext);
}

void DDTTYLogger::setForegroundColor_backgroundColor_forFlag_context(
    const std::optional<LogColor>& foreground, const std::optional<LogColor>& background,
    std::uint64_t flag, std::int64_t context) {
  Profile profile = makeProfile(foreground, background, flag, context);
  if (!profile) return;
  changeProfiles([this, profile = std::move(profile)] {
    const auto place = findProfile(profile->mask(), profile->context());
    if (place != colorProfilesArray_.end()) {
      *place = profile;
    } else {
      colorProfilesArray_.push_back(profile);
    }
  });
}

void DDTTYLogger::setForegroundColor_backgroundColor_forTag(
    const std::optional<LogColor>& foreground, const std::optional<LogColor>& background,
    const LogTag& tag) {
  Profile profile = makeProfile(foreground, background, 0, 0);
  if (!profile || !tag) return;
  changeProfiles([this, profile = std::move(profile), tag] { colorProfilesDict_[tag] = profile; });
}

void DDTTYLogger::clearColorsForFlag(std::uint64_t flag) {
  clearColorsForFlag_context(flag, 0);
}

void DDTTYLogger::clearColorsForFlag_context(std::uint64_t flag, std::int64_t context) {
  changeProfiles([this, flag, context] {
    const auto place = findProfile(flag, context);
    if (place != colorProfilesArray_.end()) colorProfilesArray_.erase(place);
  });
}

void DDTTYLogger::clearColorsForTag(const LogTag& tag) {
  changeProfiles([this, tag] { colorProfilesDict_.erase(tag); });
}

void DDTTYLogger::clearColorsForAllFlags() {
  changeProfiles([this] { colorProfilesArray_.clear(); });
}

void DDTTYLogger::clearColorsForAllTags() {
  changeProfiles([this] { colorProfilesDict_.clear(); });
}

void DDTTYLogger::clearAllColors() {
  changeProfiles([this] {
    colorProfilesArray_.clear();
    colorProfilesDict_.clear();
  });
}

void DDTTYLogger::logMessage(const DDLogMessage& message) {
  DDLogFormatter* const formatter = currentFormatter();
  const LogText formatted = formatter != nullptr ? formatter->formatLogMessage(message) : nullptr;
  const bool hasText = formatter != nullptr ? formatted != nullptr : !message.isOwnText(nullptr);
  if (!hasText) return;

  // A formatter that hands the message's own text back leaves the line as it would be without one.
  const bool isCustom = formatter != nullptr && !message.isOwnText(formatted);
  const std::string_view text = formatter != nullptr ? *formatted : message.text();
  const DDTTYLoggerColorProfile* profile = colorsEnabled_ ? profileFor(message) : nullptr;
  const std::string_view foreground = profile != nullptr ? profile->fgCode() : "";
  const std::string_view background = profile != nullptr ? profile->bgCode() : "";
  const std::string_view reset = profile != nullptr ? profile->resetCode() : "";
  const std::string_view head = isCustom ? "" : lineHead(message);
  // Without a formatter the line end is always written, also after a text that has its own.
  const std::string_view lineEnd = isCustom && !appendNewline_ ? "" : "\n";
  const std::array<std::string_view, 6> pieces = {foreground, background, head,
                                                  text,       lineEnd,    reset};
  output_->write(pieces);
}

const DDTTYLoggerColorProfile* DDTTYLogger::profileFor(const DDLogMessage& message) const {
  if (message.tag() && !colorProfilesDict_.empty()) {
    const auto place = colorProfilesDict_.find(message.tag());
    if (place != colorProfilesDict_.end()) return place->second.get();
  }
  const DDTTYLoggerColorProfile* candidate = nullptr;
  for (const Profile& profile : colorProfilesArray_) {
    if ((profile->mask() & message.flag()) == 0) continue;
    if (profile->context() == message.context()) return profile.get();
    if (profile->context() == kAnyContext) candidate = profile.get();
  }
  return candidate;
}

std::string_view DDTTYLogger::lineHead(const DDLogMessage& message) {
  const double second = std::floor(message.timestamp().unixSeconds());
  if (headSecond_ != second) {
    head_.assign(renderedTime(message.timestamp())).append(appAndPid_);
    headLength_ = head_.size();
    headSecond_ = second;
  }
  head_.resize(headLength_);
  head_ += message.threadID().substr(0, kThreadLength);
  head_ += kHeadEnd;
  return head_;
}

}  // namespace kv
