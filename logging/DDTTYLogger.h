#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "logging/DDAbstractLogger.h"
#include "logging/DDTTYLoggerColorProfile.h"
#include "logging/LogColor.h"
#include "logging/TerminalColors.h"
#include "platform/ProcessFacts.h"
#include "platform/StandardError.h"

namespace kv {

/// Writes messages to standard error, a line each, in colours where the terminal has them:
///
///     14:07- KVScheduler[512:1a03] text
///
/// What a formatter made anew is written as it is, without the part before the text.
///
/// Threads    any. What changes colours is done at once by work that runs as the logger's queue;
///            from elsewhere it takes its place behind the messages that were logged before.
///            colorsEnabled() waits for that place and must not be called from the logger's queue
///            or the global logging queue.
/// Ownership  the shared instance lives as long as the process. A process has one such logger: once
///            that exists, no other can be made.
/// Errors     none; a line that the system does not take is lost.
class DDTTYLogger final : public DDAbstractLogger {
 public:
  /// The context that stands for all of them.
  static constexpr std::int64_t kAnyContext = DDTTYLoggerColorProfile::kAnyContext;

  struct Environment {
    std::shared_ptr<GatheredOutput> output = standardErrorOutput();
    std::string processName = ProcessFacts::current().name;
    int pid = ProcessFacts::current().pid;
    /// Absent: the process's, as they are when a colour is set.
    std::optional<TerminalColors> terminal = std::nullopt;
  };

  /// The process's own logger. The first call settles which colours the terminal has, for good.
  static std::shared_ptr<DDTTYLogger> sharedInstance();

  /// A logger before there is a shared one; null afterwards, and when memory is short.
  static std::shared_ptr<DDTTYLogger> create();
  static std::shared_ptr<DDTTYLogger> create(Environment environment);

  /// Chooses the process's palette, unless it has one.
  static void initialize_colors_16();
  static void initialize_colors_256();
  /// The components of a colour. Each pointer may be null.
  static void getRed_green_blue_fromColor(double* red, double* green, double* blue,
                                          const LogColor& color);
  /// The nearest entry of the process's palette; 0 when it has none.
  static std::size_t codeIndexForColor(const LogColor& color);

  /// Red for errors and orange for warnings, whatever their context.
  void loadDefaultColorProfiles();

  /// Off at first. Setting it, be it to off, loads the default profiles when no flag has one.
  bool colorsEnabled();
  void setColorsEnabled(bool enabled);

  /// Colours for the messages whose flag has a bit in common with `flag`, of any context. Colours
  /// that were set for the same flag and context are replaced.
  void setForegroundColor_backgroundColor_forFlag(const std::optional<LogColor>& foreground,
                                                  const std::optional<LogColor>& background,
                                                  std::uint64_t flag);
  /// The same for one context, which goes before those for any.
  void setForegroundColor_backgroundColor_forFlag_context(const std::optional<LogColor>& foreground,
                                                          const std::optional<LogColor>& background,
                                                          std::uint64_t flag, std::int64_t context);
  /// Colours for the messages with this tag, whatever their flag. No tag is no key: nothing is set.
  void setForegroundColor_backgroundColor_forTag(const std::optional<LogColor>& foreground,
                                                 const std::optional<LogColor>& background,
                                                 const LogTag& tag);

  /// Clears what was set for context 0; kAnyContext must be named to clear what was set for any.
  void clearColorsForFlag(std::uint64_t flag);
  void clearColorsForFlag_context(std::uint64_t flag, std::int64_t context);
  void clearColorsForTag(const LogTag& tag);
  void clearColorsForAllFlags();
  void clearColorsForAllTags();
  void clearAllColors();

  void logMessage(const DDLogMessage& message) override;
  std::string loggerName() const override { return "kelvara.logging.ttyLogger"; }

  /// Whether a line end follows what a formatter made. On at first.
  bool automaticallyAppendNewlineForCustomFormatters() const { return appendNewline_; }
  void setAutomaticallyAppendNewlineForCustomFormatters(bool append) { appendNewline_ = append; }

 private:
  using Profile = std::shared_ptr<const DDTTYLoggerColorProfile>;

  explicit DDTTYLogger(Environment environment);

  Profile makeProfile(const std::optional<LogColor>& foreground,
                      const std::optional<LogColor>& background, std::uint64_t flag,
                      std::int64_t context) const;
  /// Runs `change` as the logger's queue: at once when that is the present one.
  void changeProfiles(std::function<void()> change);
  std::vector<Profile>::iterator findProfile(std::uint64_t flag, std::int64_t context);

  // The rest runs as the logger's queue.
  const DDTTYLoggerColorProfile* profileFor(const DDLogMessage& message) const;
  /// What stands before the text; valid until the next call.
  std::string_view lineHead(const DDLogMessage& message);

  const std::shared_ptr<GatheredOutput> output_;
  const std::optional<TerminalColors> terminal_;
  /// " KVScheduler[512:"
  const std::string appAndPid_;
  std::atomic<bool> appendNewline_ = true;

  bool colorsEnabled_ = false;
  std::vector<Profile> colorProfilesArray_;
  std::unordered_map<LogTag, Profile> colorProfilesDict_;

  /// The head of the last line: its first `headLength_` bytes are the same for all lines of
  /// `headSecond_`. Its memory is used again for each line.
  std::string head_;
  std::size_t headLength_ = 0;
  std::optional<double> headSecond_;
};

}  // namespace kv
