#include "app/SystemKit.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/linux/FileTail.h"
#include "platform/linux/ProcessTable.h"

namespace kv {
namespace {

constexpr double kLongestTail = 16.0 * 1024 * 1024;

}  // namespace

SystemKit::SystemKit(ScriptEngine& engine, Environment environment)
    : engine_(engine), environment_(std::move(environment)) {}

bool SystemKit::exists(const QString& path) {
  return engine_.guarded([&] {
    std::error_code error;
    return std::filesystem::exists(path.toStdString(), error);
  });
}

QString SystemKit::mountPoint(const QString& path) {
  return engine_.guarded(
      [&] { return QString::fromStdString(mountPointOf(path.toStdString(), mountTable())); });
}

bool SystemKit::destinationPresent(const QString& path) {
  return engine_.guarded([&] {
    return destinationState(path.toStdString(), mountTable()) == DestinationState::kPresent;
  });
}

QJSValue SystemKit::processesRunning(const QString& executable) {
  return engine_.guarded([&] {
    PropertyList::Array processes;
    for (const RunningProcess& process : kv::processesRunning(executable.toStdString())) {
      PropertyList::Array arguments(process.arguments.begin(), process.arguments.end());
      processes.push_back(
          PropertyList::Dictionary{{"pid", process.pid}, {"arguments", std::move(arguments)}});
    }
    return engine_.values().fromList(processes);
  });
}

QJSValue SystemKit::environment(const QString& name) {
  return engine_.guarded([&] {
    const char* value = std::getenv(name.toStdString().c_str());
    return value ? QJSValue(QString::fromUtf8(value)) : QJSValue(QJSValue::NullValue);
  });
}

QJSValue SystemKit::readTail(const QString& path, double maxBytes) {
  return engine_.guarded([&] {
    const double limit = std::isnan(maxBytes) ? 0.0 : std::clamp(maxBytes, 0.0, kLongestTail);
    const auto text = kv::readTail(path.toStdString(), static_cast<std::size_t>(limit));
    return text ? QJSValue(QString::fromStdString(*text)) : QJSValue(QJSValue::NullValue);
  });
}

void SystemKit::after(double seconds, const QJSValue& action) {
  engine_.guarded([&] {
    // The run loop knows repeating timers only; this one ends with its first firing.
    auto timer = std::make_shared<std::weak_ptr<RepeatingTimer>>();
    const Seconds wait(std::isnan(seconds) ? 0.0 : std::max(seconds, 0.0));
    *timer = environment_.runLoop->scheduleRepeatingTimer(wait, [timer, action, &engine = engine_] {
      if (const auto firing = timer->lock()) firing->invalidate();
      engine.invokeFunction("system.after", action);
    });
  });
}

bool SystemKit::isTerminal() {
  return ::isatty(STDERR_FILENO) == 1;
}

const MountTable& SystemKit::mountTable() {
  const Date now = environment_.clock->now();
  const double age = std::abs((now - mountTableRead_).count());  // the clock may be set back
  if (!mountTable_ || age >= kMountTableAge.count()) {
    mountTable_ = MountTable::read();
    mountTableRead_ = now;
  }
  return *mountTable_;
}

}  // namespace kv
