#include "app/SystemKit.h"

#include <unistd.h>

#include <QStandardPaths>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/PlatformError.h"
#include "platform/linux/DurableFile.h"
#include "platform/linux/FileTail.h"
#include "platform/linux/OthersRights.h"
#include "platform/linux/PosixFiles.h"
#include "platform/linux/ProcessTable.h"
#include "platform/linux/UserPaths.h"

namespace kv {
namespace {

constexpr double kLongestTail = 16.0 * 1024 * 1024;
constexpr char kNotificationIcon[] = "kvscheduler";

/// Nothing for what is no path.
std::optional<std::filesystem::path> absolutePath(const QString& path) {
  if (path.isEmpty() || path.contains(QChar::Null)) return std::nullopt;
  std::error_code error;
  auto absolute = std::filesystem::absolute(path.toStdString(), error);
  if (error) return std::nullopt;
  return absolute;
}

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
    for (const RunningProcess& process : processes_.running(executable.toStdString())) {
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

QJSValue SystemKit::whoElseMayChange(const QString& path) {
  return engine_.guarded([&] {
    const auto others = kv::whoElseMayChange(path.toStdString());
    return others ? QJSValue(QString::fromStdString(*others)) : QJSValue(QJSValue::NullValue);
  });
}

QJSValue SystemKit::readText(const QString& path) {
  return engine_.guarded([&] {
    const auto text = PosixFiles().read(path.toStdString(), kLongestText);
    return text ? QJSValue(QString::fromStdString(*text)) : QJSValue(QJSValue::NullValue);
  });
}

bool SystemKit::writeText(const QString& path, const QString& text) {
  return engine_.guarded([&] {
    const auto target = absolutePath(path);
    if (!environment_.writesFiles) return target.has_value();
    if (!target || !makeFolders(target->parent_path().string())) return false;
    try {
      replaceFileDurably(target->string(), text.toStdString());
      return true;
    } catch (const PlatformError&) {
      return false;
    }
  });
}

bool SystemKit::open(const QString& path) {
  return engine_.guarded([&] {
    const auto target = absolutePath(path);
    std::error_code error;
    if (!target || !std::filesystem::exists(*target, error) || !environment_.launcher) return false;
    const QString program = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
    if (program.isEmpty()) return false;
    try {
      // An absolute path begins with "/" and so is never taken for an option.
      environment_.launcher->start(program.toStdString(), {{target->string()}});
      return true;
    } catch (const PlatformError&) {
      return false;
    }
  });
}

void SystemKit::notify(const QString& summary, const QString& body, double urgency) {
  engine_.guarded([&] {
    if (!environment_.notifier) return;
    using Urgency = Notification::Urgency;
    const Urgency shown = urgency < 1   ? Urgency::kLow
                          : urgency > 1 ? Urgency::kCritical
                                        : Urgency::kNormal;
    environment_.notifier->notify(
        {summary.toStdString(), body.toStdString(), shown, kNotificationIcon});
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
