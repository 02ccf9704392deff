#pragma once

#include <QObject>
#include <memory>
#include <utility>

#include "logging/DDLogFormatter.h"

namespace kv {

/// What stands behind a script's formatter (script/logging.mjs).
/// Threads: the engine's. Belongs to the engine; loggers hold the formatter itself.
class FormatterObject final : public QObject {
  Q_OBJECT
 public:
  explicit FormatterObject(std::shared_ptr<DDLogFormatter> formatter)
      : formatter_(std::move(formatter)) {}

  const std::shared_ptr<DDLogFormatter>& formatter() const { return formatter_; }

 private:
  const std::shared_ptr<DDLogFormatter> formatter_;
};

}  // namespace kv
