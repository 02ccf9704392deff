#pragma once

#include <memory>

#include "app/LoggerObject.h"
#include "app/ScriptLogValues.h"
#include "logging/DDTTYLogger.h"

namespace kv {

/// What stands behind a script's DDTTYLogger. See LoggerObject; for the colours, ScriptLogValues.h.
class TerminalLoggerObject final : public LoggerObject {
  Q_OBJECT
 public:
  TerminalLoggerObject(ScriptEngine& engine, std::shared_ptr<DDTTYLogger> logger,
                       std::shared_ptr<ScriptTags> tags);

  Q_INVOKABLE bool colorsEnabled();
  Q_INVOKABLE void setColorsEnabled(bool enabled);
  Q_INVOKABLE void loadDefaultColorProfiles();
  Q_INVOKABLE void setForegroundColor_backgroundColor_forFlag_context(int foreground,
                                                                      int background, double flag,
                                                                      double context);
  Q_INVOKABLE void setForegroundColor_backgroundColor_forTag(int foreground, int background,
                                                             const QJSValue& tag);
  Q_INVOKABLE void clearColorsForFlag_context(double flag, double context);
  Q_INVOKABLE void clearColorsForTag(const QJSValue& tag);
  Q_INVOKABLE void clearColorsForAllFlags();
  Q_INVOKABLE void clearColorsForAllTags();
  Q_INVOKABLE void clearAllColors();
  Q_INVOKABLE bool automaticallyAppendNewlineForCustomFormatters() {
    return logger_->automaticallyAppendNewlineForCustomFormatters();
  }
  Q_INVOKABLE void setAutomaticallyAppendNewlineForCustomFormatters(bool value) {
    logger_->setAutomaticallyAppendNewlineForCustomFormatters(value);
  }

 private:
  const std::shared_ptr<DDTTYLogger> logger_;
  const std::shared_ptr<ScriptTags> tags_;
};

}  // namespace kv
