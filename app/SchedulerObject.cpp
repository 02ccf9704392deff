#include "app/SchedulerObject.h"

#include <optional>
#include <string>
#include <utility>

#include "app/ScriptMenuItem.h"
#include "scheduler/NextRun.h"

namespace kv {
namespace {

/// A text of a script that may be null; lives as long as the operation that it is passed to.
class PassedText {
 public:
  explicit PassedText(const QJSValue& text) {
    if (!text.isNull()) text_ = text.toString().toStdString();
  }
  operator OptionalText() const { return text_ ? OptionalText(*text_) : std::nullopt; }
  const std::string* pointer() const { return text_ ? &*text_ : nullptr; }

 private:
  std::optional<std::string> text_;
};

}  // namespace

SchedulerObject::SchedulerObject(ScriptEngine& engine, std::shared_ptr<KVTimer> timer)
    : engine_(engine), timer_(std::move(timer)) {}

void SchedulerObject::runTimer() {
  engine_.guarded([&] { timer_->runTimer(); });
}

void SchedulerObject::stopTimer() {
  engine_.guarded([&] { timer_->stopTimer(); });
}

void SchedulerObject::ScheduleTimer() {
  engine_.guarded([&] { timer_->ScheduleTimer(); });
}

QString SchedulerObject::getType(int type) {
  return engine_.guarded([&] { return QString::fromStdString(KVTimer::getType(type)); });
}

QJSValue SchedulerObject::getDestPathFromArray_Set(const QJSValue& list, const QJSValue& set) {
  return engine_.guarded([&] {
    const auto path = KVTimer::getDestPathFromArray_Set(toList(list), PassedText(set).pointer());
    return engine_.values().fromPropertyList(path ? &*path : nullptr);
  });
}

QList<int> SchedulerObject::sortArrayForNextBackup(const QJSValue& list) {
  return engine_.guarded([&] {
    const TaskList records = toList(list);
    QList<int> indexes;
    for (const PropertyList* record : timer_->sortArrayForNextBackup(records)) {
      indexes.append(static_cast<int>(record - records.data()));
    }
    return indexes;
  });
}

bool SchedulerObject::isTakingPart(const QJSValue& record) {
  return engine_.guarded([&] {
    const auto value = engine_.values().toPropertyList(record);
    return value && kv::isTakingPart(*value);
  });
}

QJSValue SchedulerObject::nextDue(const QJSValue& record) {
  return engine_.guarded([&] {
    const auto value = engine_.values().toPropertyList(record);
    const auto due = value ? timer_->nextDue(*value) : std::nullopt;
    const auto shown = due ? std::optional<PropertyList>(*due) : std::nullopt;
    return engine_.values().fromPropertyList(shown ? &*shown : nullptr);
  });
}

void SchedulerObject::launchKelvaraWithSet(const QJSValue& set) {
  engine_.guarded([&] {
    const auto value = engine_.values().toPropertyList(set);
    timer_->launchKelvaraWithSet(value ? &*value : nullptr);
  });
}

void SchedulerObject::launchKelvaraScriptWithSet(const QJSValue& set) {
  engine_.guarded([&] {
    const auto value = engine_.values().toPropertyList(set);
    timer_->launchKelvaraScriptWithSet(value ? &*value : nullptr);
  });
}

bool SchedulerObject::append(const QString& text) {
  return engine_.guarded([&] { return timer_->append(text.toStdString()); });
}

void SchedulerObject::logString(const QJSValue& text) {
  engine_.guarded([&] { timer_->logString(PassedText(text)); });
}

void SchedulerObject::logString_varstr(const QJSValue& text, const QJSValue& value) {
  engine_.guarded([&] { timer_->logString_varstr(PassedText(text), PassedText(value)); });
}

void SchedulerObject::logString_varnt(const QJSValue& text, int value) {
  engine_.guarded([&] { timer_->logString_varnt(PassedText(text), value); });
}

void SchedulerObject::logString_varflt(const QJSValue& text, double value) {
  engine_.guarded([&] { timer_->logString_varflt(PassedText(text), static_cast<float>(value)); });
}

QJSValue SchedulerObject::timer() {
  const auto& timer = timer_->timer();
  return timer ? QJSValue(timer->isValid()) : QJSValue(QJSValue::NullValue);
}

QJSValue SchedulerObject::indexNum() {
  const auto& index = timer_->indexNum();
  return index ? QJSValue(QString::fromStdString(*index)) : QJSValue(QJSValue::NullValue);
}

QJSValue SchedulerObject::judgedSet() {
  return engine_.values().fromPropertyList(timer_->judgedSet());
}

double SchedulerObject::ndt() {
  return timer_->ndt().unixSeconds() * 1000.0;
}

bool SchedulerObject::debugStarted() {
  return timer_->debugStarted();
}

QJSValue SchedulerObject::dbugMenu() {
  // Nothing but setDbugMenu sets the field.
  const auto* item = static_cast<const ScriptMenuItem*>(timer_->dbugMenu.get());
  return item ? item->object() : QJSValue(QJSValue::NullValue);
}

void SchedulerObject::setDbugMenu(const QJSValue& item) {
  engine_.guarded([&] {
    timer_->dbugMenu = item.isNull() ? nullptr : std::make_shared<ScriptMenuItem>(engine_, item);
  });
}

TaskList SchedulerObject::toList(const QJSValue& list) {
  auto value = engine_.values().toPropertyList(list);
  auto* records = value ? value->as<PropertyList::Array>() : nullptr;
  return records ? std::move(*records) : TaskList();
}

}  // namespace kv
