#pragma once

#include <QJSEngine>
#include <QJSValue>
#include <QString>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "app/Bundle.h"
#include "app/ScriptFaults.h"
#include "app/ScriptValues.h"
#include "platform/SystemLog.h"

namespace kv {

class ScriptReporter;

/// The JavaScript engine, and the one way in which the program calls what a script defines.
///
/// Threads    the thread of the application object.
/// Ownership  values and wrapped objects belong to the engine and must not be used after it.
/// Errors     a call never fails towards C++: see invoke(). No C++ exception crosses the engine:
///            what a script calls goes through guarded().
class ScriptEngine {
 public:
  explicit ScriptEngine(std::shared_ptr<SystemLog> systemLog);
  ~ScriptEngine();
  ScriptEngine(const ScriptEngine&) = delete;
  ScriptEngine& operator=(const ScriptEngine&) = delete;

  QJSEngine& engine() { return engine_; }
  ScriptValues& values() { return values_; }

  /// Runs a host script. Throws StartupError ("file:line: what") when it cannot be parsed or
  /// throws.
  void run(const Bundle::Script& script);

  /// Touches the memory that the engine's garbage takes in turn. Else it would be touched page by
  /// page in the ticks of the first hours, and look like a leak.
  void touchMemory();

  /// An operation of a script's object: its name, and where a fault lies when nothing else tells.
  struct Operation {
    const char* name;
    /// The stack at which the object came to the program, as Error.stack has it.
    QString origin;
    /// Missing is no fault.
    bool isOptional = false;
    /// An object is no answer: a Promise, say, would otherwise count as true.
    bool wantsPlainAnswer = false;
  };

  /// Calls `object`'s operation and yields its answer. Nothing when it is missing or throws, when
  /// it answers an Error or what is not wanted, or when calls are nested beyond kDeepestCalls; the
  /// system log then says which operation, file and line.
  std::optional<QJSValue> invoke(const QJSValue& object, const Operation& operation,
                                 const QJSValue& first = {}, const QJSValue& second = {});

  /// Calls a function of a script, which goes by `name` in the log.
  void invokeFunction(const char* name, const QJSValue& function);

  /// A call of a script's function that other threads may hold and drop. It is to be made on the
  /// engine's thread, once, and does nothing when the engine has gone.
  std::function<void()> postponed(const char* name, const QJSValue& function);

  /// Calls `action` whenever the script is done: after a script was run, and after each call that
  /// the program made on its own. It must not call the script.
  void setAfterCalls(std::function<void()> action) { afterCalls_ = std::move(action); }

  /// The check mark of a script's menu item: any object with a `state`.
  int readState(const QJSValue& item);
  void writeState(const QJSValue& item, int state);

  /// Reports what went wrong between the program and an operation, outside of the script's code.
  void reportFault(const Operation& operation, const std::string& text);

  SystemLog& systemLog() { return *systemLog_; }

  /// Runs what a script asked for. A C++ exception becomes a JavaScript one, and the result is
  /// then a value that nobody sees.
  template <class Work>
  auto guarded(Work&& work) -> decltype(work()) {
    try {
      return work();
    } catch (const std::exception& error) {
      engine_.throwError(QJSValue::GenericError, QString::fromUtf8(error.what()));
    }
    return decltype(work())();
  }

  /// A place in a host script.
  struct Place {
    std::string file;
    /// Empty for code outside of functions.
    std::string function;
    std::uint64_t line = 0;
  };
  /// The first place of a stack, as Error.stack has it, that lies in a host script.
  static std::optional<Place> placeInScript(const QString& stack);
  /// The same as "file:line"; empty for none.
  static std::string locationInScript(const QString& stack);

  /// The function of calls.mjs that shows any value as the console does.
  const QJSValue& describe() const { return describe_; }

  /// A script's operation may call the program and be called again from there; this often.
  static constexpr int kDeepestCalls = 16;

 private:
  friend class ScriptReporter;
  struct Call;
  class Calling;
  struct Postponed;

  std::optional<QJSValue> call(const Operation& operation, const QJSValue& guard,
                               const QJSValueList& arguments);
  std::optional<QJSValue> callGuarded(const Operation& operation, const QJSValue& guard,
                                      const QJSValueList& arguments);
  void operationMissing();
  void operationFailed(const QString& stack, const std::string& text);

  std::shared_ptr<SystemLog> systemLog_;
  ScriptFaults faults_;
  QJSEngine engine_;
  ScriptValues values_;
  QJSValue describe_;
  QJSValue invoke_;
  QJSValue invokeFunction_;
  QJSValue readState_;
  QJSValue writeState_;
  /// Dies before the engine, with the functions that it holds.
  std::shared_ptr<Postponed> postponed_;
  /// The innermost call that runs now; null outside of calls.
  Call* innermost_ = nullptr;
  std::function<void()> afterCalls_ = [] {};
};

}  // namespace kv
