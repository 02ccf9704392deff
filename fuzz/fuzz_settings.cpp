#include <QCoreApplication>
#include <QFile>
#include <QJSEngine>
#include <cstdint>
#include <memory>
#include <string>

#include "FuzzInput.h"
#include "app/ScriptEngine.h"

// Whatever lies in settings.json: the default host's own script reads it in the real engine, every
// setting keeps a value that it allows, and what is wrong is told once, in lines of bounded length.

namespace kv {
namespace {

class Silence final : public SystemLog {
 public:
  void write(std::string_view) override {}
};

constexpr const char* kWorld = R"(
  var file = null, warnings = [];
  system = {settingsFolder: '/settings', exists: path => file !== null, readText: path => file};
  DDLog = {warn: text => warnings.push(text)};
)";

// Yields what is wrong, else nothing.
constexpr const char* kCheck = R"((function (text) {
  const settings = host.settings;
  file = null;
  settings.reload();
  warnings = [];
  file = text;
  settings.reload();
  const values = settings.values;
  if (Object.keys(values).join() !== 'notifications,statusIcon,menuSets') return 'other settings';
  if (typeof values.notifications !== 'boolean') return 'notifications';
  if (typeof values.statusIcon !== 'boolean') return 'statusIcon';
  const sets = values.menuSets;
  if (!(Number.isInteger(sets) && sets >= 1 && sets <= 100)) return 'menuSets';
  if (warnings.some(line => line.length > 400)) return 'a long warning';
  if (warnings.some(line => /[\u0000-\u001f\u007f-\u009f\u202a-\u202e]/.test(line))) {
    return 'a warning that steers a terminal';
  }
  const told = warnings.length;
  settings.reload();
  return warnings.length === told ? '' : 'told twice';
}))";

/// One engine for the process: making one costs more than thousands of inputs.
class Settings {
 public:
  Settings() : engine_(std::make_shared<Silence>()) {
    engine_.run({"world.js", kWorld});
    runPart("20-settings.js");
    runPart("62-texts.js");
    check_ = engine_.engine().evaluate(QString::fromLatin1(kCheck));
  }

  void read(const std::string& bytes) {
    const QJSValue fault = check_.call({QJSValue(QString::fromStdString(bytes))});
    require(fault.isString() && fault.toString().isEmpty(), qPrintable(fault.toString()));
  }

 private:
  void runPart(const std::string& name) {
    const std::string path = KV_SCRIPTS "/" + name;
    QFile script(QString::fromStdString(path));
    require(script.open(QIODevice::ReadOnly), "the script is there");
    engine_.run({path, script.readAll().toStdString()});
  }

  ScriptEngine engine_;
  QJSValue check_;
};

}  // namespace
}  // namespace kv

/// The engine's own heap, which it maps itself, is not searched for pointers: all that only a
/// script holds would look lost. Leaks show as growth instead, see run-short's limit of memory.
extern "C" const char* __asan_default_options() {
  return "detect_leaks=0";
}

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  static const QCoreApplication application(*argc, *argv);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static auto* const settings = new kv::Settings;  // never destroyed: the application goes first
  settings->read(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
