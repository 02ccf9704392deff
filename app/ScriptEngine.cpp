#include "app/ScriptEngine.h"

#include <QStringList>
#include <QUrl>
#include <map>
#include <utility>

#include "app/ScriptFile.h"
#include "app/ScriptReporter.h"
#include "app/StartupError.h"

namespace kv {
namespace {

/// A script's URL, as the engine names it, to the path under which its user knows it.
std::string pathOf(const QString& url) {
  const QUrl parsed(url);
  return (parsed.isLocalFile() ? parsed.toLocalFile() : url).toStdString();
}

bool isInHostScript(const QString& url) {
  const bool hasFolder = url.contains('/');  // our own have none where they come as byte code
  return hasFolder && !url.startsWith(kScriptFiles);
}

/// The first place in a host script of a stack as QJSEngine::evaluate yields it: frames of the
/// form "function:line:column:url". It tells where even what is no Error was thrown.
std::optional<std::string> locationOfThrow(const QStringList& stack) {
  for (const QString& frame : stack) {
    const QString url = frame.section(':', 3);
    if (isInHostScript(url)) return pathOf(url) + ":" + frame.section(':', 1, 1).toStdString();
  }
  return std::nullopt;
}

}  // namespace

/// One call of a script's operation while it runs.
struct ScriptEngine::Call {
  const Operation& operation;
  Call* outer;
  int depth;
  bool failed = false;
};

/// Makes a call the innermost one for as long as the object lives.
class ScriptEngine::Calling {
 public:
  Calling(ScriptEngine& engine, const Operation& operation)
      : engine_(engine),
        call_{operation, engine.innermost_, engine.innermost_ ? engine.innermost_->depth + 1 : 1} {
    engine_.innermost_ = &call_;
  }
  ~Calling() { engine_.innermost_ = call_.outer; }
  Calling(const Calling&) = delete;
  Calling& operator=(const Calling&) = delete;

  const Call& call() const { return call_; }

 private:
  ScriptEngine& engine_;
  Call call_;
};

/// The functions that postponed calls are about, by number: only these leave the thread.
struct ScriptEngine::Postponed {
  explicit Postponed(ScriptEngine& owner) : engine(owner) {}
  ScriptEngine& engine;
  std::map<std::uint64_t, QJSValue> functions;
  std::uint64_t lastNumber = 0;
};

ScriptEngine::ScriptEngine(std::shared_ptr<SystemLog> systemLog)
    : systemLog_(systemLog),
      faults_(std::move(systemLog)),
      values_(engine_),
      postponed_(std::make_shared<Postponed>(*this)) {
  const QJSValue reporter = engine_.newQObject(new ScriptReporter(*this));
  const QJSValue calls = importScriptFile(engine_, "calls.mjs")
                             .property("connect")
                             .call({reporter, engine_.globalObject()});
  describe_ = calls.property("describe");
  invoke_ = calls.property("invoke");
  invokeFunction_ = calls.property("invokeFunction");
  readState_ = calls.property("readState");
  writeState_ = calls.property("writeState");
}

ScriptEngine::~ScriptEngine() = default;

void ScriptEngine::run(const Bundle::Script& script) {
  QStringList stack;
  const QJSValue result = engine_.evaluate(QString::fromStdString(script.text),
                                           QString::fromStdString(script.path), 1, &stack);
  afterCalls_();
  // A script may well end in an expression whose value is an Error: only a throw leaves a stack.
  if (stack.isEmpty()) return;
  const std::string location = locationOfThrow(stack).value_or(script.path);
  const std::string what = (result.isError() ? "" : "threw ") + result.toString().toStdString();
  throw StartupError(location + ": " + what);
}

void ScriptEngine::touchMemory() {
  // The engine takes memory by pieces of 64 KiB, and an object some 40 bytes of it.
  engine_.evaluate("for (let n = 0; n < 1500; ++n) ({n: n});");
  engine_.collectGarbage();
}

std::optional<QJSValue> ScriptEngine::invoke(const QJSValue& object, const Operation& operation,
                                             const QJSValue& first, const QJSValue& second) {
  return call(operation, invoke_,
              {object, QJSValue(QString::fromLatin1(operation.name)), first, second});
}

void ScriptEngine::invokeFunction(const char* name, const QJSValue& function) {
  call({.name = name, .origin = {}}, invokeFunction_, {function});
}

std::function<void()> ScriptEngine::postponed(const char* name, const QJSValue& function) {
  const std::uint64_t number = ++postponed_->lastNumber;
  postponed_->functions.emplace(number, function);
  return [weak = std::weak_ptr(postponed_), name, number] {
    const auto waiting = weak.lock();
    if (waiting == nullptr) return;
    if (const auto found = waiting->functions.extract(number)) {
      waiting->engine.invokeFunction(name, found.mapped());
    }
  };
}

int ScriptEngine::readState(const QJSValue& item) {
  const auto state = call({.name = "dbugMenu.state", .origin = {}}, readState_, {item});
  return state ? state->toInt() : 0;
}

void ScriptEngine::writeState(const QJSValue& item, int state) {
  call({.name = "dbugMenu.state", .origin = {}}, writeState_, {item, state});
}

std::optional<QJSValue> ScriptEngine::call(const Operation& operation, const QJSValue& guard,
                                           const QJSValueList& arguments) {
  auto answer = callGuarded(operation, guard, arguments);
  if (innermost_ == nullptr) afterCalls_();
  return answer;
}

std::optional<QJSValue> ScriptEngine::callGuarded(const Operation& operation, const QJSValue& guard,
                                                  const QJSValueList& arguments) {
  const Calling calling(*this, operation);
  if (calling.call().depth > kDeepestCalls) {
    operationFailed({}, "the program and the script call each other without end");
    return std::nullopt;
  }
  QJSValue answer = guard.call(arguments);
  if (answer.isError()) {
    // Either the operation's own answer or, when the engine is out of stack, the guard's failure.
    operationFailed(answer.property("stack").toString(), answer.toString().toStdString());
  } else if (operation.wantsPlainAnswer && answer.isObject()) {
    operationFailed({}, "answered an object; a boolean, number or text is wanted");
  }
  if (calling.call().failed) return std::nullopt;
  faults_.worked(operation.name);
  return answer;
}

void ScriptEngine::reportFault(const Operation& operation, const std::string& text) {
  const Calling calling(*this, operation);
  operationFailed({}, text);
}

void ScriptEngine::operationMissing() {
  if (innermost_->operation.isOptional) return;
  operationFailed({}, "the delegate has no such operation");
}

void ScriptEngine::operationFailed(const QString& stack, const std::string& text) {
  innermost_->failed = true;
  std::string location = locationInScript(stack);
  if (location.empty()) location = locationInScript(innermost_->operation.origin);
  if (location.empty()) location = "host script";
  faults_.failed(innermost_->operation.name, location, text);
}

std::optional<ScriptEngine::Place> ScriptEngine::placeInScript(const QString& stack) {
  // Lines are "function@url:line".
  for (const QString& frame : stack.split('\n')) {
    const QString place = frame.section('@', 1);
    const QString url = place.section(':', 0, -2);
    if (!isInHostScript(url)) continue;
    const QString function = frame.section('@', 0, 0);
    return Place{pathOf(url), function.startsWith('%') ? "" : function.toStdString(),
                 place.section(':', -1).toULongLong()};
  }
  return std::nullopt;
}

std::string ScriptEngine::locationInScript(const QString& stack) {
  const auto place = placeInScript(stack);
  return place ? place->file + ":" + std::to_string(place->line) : "";
}

}  // namespace kv
