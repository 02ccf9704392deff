#include "app/TerminalLoggerObject.h"

#include <cstdint>

namespace kv {

TerminalLoggerObject::TerminalLoggerObject(ScriptEngine& engine,
                                           std::shared_ptr<DDTTYLogger> logger,
                                           std::shared_ptr<ScriptTags> tags)
    : LoggerObject(engine, logger), logger_(std::move(logger)), tags_(std::move(tags)) {}

bool TerminalLoggerObject::colorsEnabled() {
  return engine_.guarded([&] { return logger_->colorsEnabled(); });
}

void TerminalLoggerObject::setColorsEnabled(bool enabled) {
  engine_.guarded([&] { logger_->setColorsEnabled(enabled); });
}

void TerminalLoggerObject::loadDefaultColorProfiles() {
  engine_.guarded([&] { logger_->loadDefaultColorProfiles(); });
}

void TerminalLoggerObject::setForegroundColor_backgroundColor_forFlag_context(int foreground,
                                                                              int background,
                                                                              double flag,
                                                                              double context) {
  engine_.guarded([&] {
    logger_->setForegroundColor_backgroundColor_forFlag_context(
        colorFromScript(foreground), colorFromScript(background), maskFromScript(flag),
        static_cast<std::int64_t>(context));
  });
}

void TerminalLoggerObject::setForegroundColor_backgroundColor_forTag(int foreground, int background,
                                                                     const QJSValue& tag) {
  engine_.guarded([&] {
    logger_->setForegroundColor_backgroundColor_forTag(
        colorFromScript(foreground), colorFromScript(background), tags_->tagFor(tag));
  });
}

void TerminalLoggerObject::clearColorsForFlag_context(double flag, double context) {
  engine_.guarded([&] {
    logger_->clearColorsForFlag_context(maskFromScript(flag), static_cast<std::int64_t>(context));
  });
}

void TerminalLoggerObject::clearColorsForTag(const QJSValue& tag) {
  engine_.guarded([&] { logger_->clearColorsForTag(tags_->tagFor(tag)); });
}

void TerminalLoggerObject::clearColorsForAllFlags() {
  engine_.guarded([&] { logger_->clearColorsForAllFlags(); });
}

void TerminalLoggerObject::clearColorsForAllTags() {
  engine_.guarded([&] { logger_->clearColorsForAllTags(); });
}

void TerminalLoggerObject::clearAllColors() {
  engine_.guarded([&] { logger_->clearAllColors(); });
}

}  // namespace kv
