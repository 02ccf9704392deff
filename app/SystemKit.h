#pragma once

#include <QJSValue>
#include <QObject>
#include <QString>
#include <memory>
#include <optional>
#include <string>

#include "app/ScriptEngine.h"
#include "platform/Clock.h"
#include "platform/Notifier.h"
#include "platform/ProcessLauncher.h"
#include "platform/RunLoop.h"
#include "platform/linux/ProcessTable.h"
#include "platform/linux/Volumes.h"

namespace kv {

/// What stands behind a script's `system` (script/globals.mjs): what a host must know of the
/// machine to answer the scheduler, and what it tells the user.
///
/// Threads    the engine's.
/// Ownership  belongs to the engine.
/// Errors     a C++ exception becomes a JavaScript one; what is not there is null or false.
class SystemKit final : public QObject {
  Q_OBJECT
 public:
  struct Environment {
    std::shared_ptr<const Clock> clock;
    std::shared_ptr<RunLoop> runLoop;
    std::string programFolder;
    std::string homeFolder;
    std::string stateFolder;
    std::string historyFile;
    std::string settingsFolder;
    /// Null where the desktop opens no files.
    std::shared_ptr<ProcessLauncher> launcher;
    /// Null where nobody is to be told.
    std::shared_ptr<Notifier> notifier;
    /// Whether writeText() writes; else it only says that it has.
    bool writesFiles = true;
  };

  /// The mount table is read again when it is older: a script asks for a destination once or twice
  /// per task, a thousand times in a tick.
  static constexpr Seconds kMountTableAge{1.0};

  static constexpr std::size_t kLongestText = std::size_t{1} << 20;

  SystemKit(ScriptEngine& engine, Environment environment);

  Q_INVOKABLE bool exists(const QString& path);
  Q_INVOKABLE QString mountPoint(const QString& path);
  Q_INVOKABLE bool destinationPresent(const QString& path);
  Q_INVOKABLE QJSValue processesRunning(const QString& executable);
  Q_INVOKABLE QJSValue environment(const QString& name);
  Q_INVOKABLE QJSValue readTail(const QString& path, double maxBytes);
  /// Who besides the user and root may change what stands there, as a text; null for nobody.
  Q_INVOKABLE QJSValue whoElseMayChange(const QString& path);
  /// The whole of a regular file, unless it is larger than kLongestText.
  Q_INVOKABLE QJSValue readText(const QString& path);
  /// Replaces a file in one step, so that no reader ever finds a part; the folders above it are
  /// made. False when it could not be written.
  Q_INVOKABLE bool writeText(const QString& path, const QString& text);
  /// Has the desktop open a file or folder. False when it is not there, or nothing opens it.
  Q_INVOKABLE bool open(const QString& path);
  /// `urgency` is 0, 1 or 2; anything else counts as the nearest of them.
  Q_INVOKABLE void notify(const QString& summary, const QString& body, double urgency);
  /// Calls `action` once, `seconds` from now.
  Q_INVOKABLE void after(double seconds, const QJSValue& action);

  /// Whether standard error is a terminal.
  Q_INVOKABLE bool isTerminal();

  Q_INVOKABLE QString programFolder() { return QString::fromStdString(environment_.programFolder); }
  Q_INVOKABLE QString homeFolder() { return QString::fromStdString(environment_.homeFolder); }
  Q_INVOKABLE QString stateFolder() { return QString::fromStdString(environment_.stateFolder); }
  Q_INVOKABLE QString settingsFolder() {
    return QString::fromStdString(environment_.settingsFolder);
  }
  Q_INVOKABLE QString historyFile() { return QString::fromStdString(environment_.historyFile); }

 private:
  const MountTable& mountTable();

  ScriptEngine& engine_;
  Environment environment_;
  ProcessTable processes_;
  std::optional<MountTable> mountTable_;
  Date mountTableRead_;
};

}  // namespace kv
