#include <QApplication>
#include <QSessionManager>
#include <memory>
#include <utility>

#include "platform/qt/DesktopModule.h"
#include "platform/qt/desktop/QtStatusBar.h"

namespace kv {
namespace {

/// The module on Qt's widgets.
class QtDesktopModule final : public DesktopModule {
 public:
  std::unique_ptr<QCoreApplication> makeApplication(int& argumentCount, char** arguments) override {
    const bool isWayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    const QByteArray chosen = qgetenv("QT_QPA_PLATFORM");
    const QByteArray usual = isWayland ? "wayland;xcb" : "xcb";
    // When the display refuses, Qt goes on without one. Without the last it would abort.
    qputenv("QT_QPA_PLATFORM", (chosen.isEmpty() ? usual : chosen) + ";offscreen");
    auto application = std::make_unique<QApplication>(argumentCount, arguments);
    // The programs that the agent starts are to find the environment as it was.
    if (chosen.isNull()) {
      qunsetenv("QT_QPA_PLATFORM");
    } else {
      qputenv("QT_QPA_PLATFORM", chosen);
    }
    QApplication::setQuitOnLastWindowClosed(false);
    QApplication::setDesktopFileName("com.kelvara.KVScheduler");
    // The desktop starts the agent by its autostart entry, and is not to do so twice.
    QObject::connect(
        application.get(), &QApplication::saveStateRequest, application.get(),
        [](QSessionManager& session) { session.setRestartHint(QSessionManager::RestartNever); });
    return application;
  }

  std::shared_ptr<StatusBar> makeStatusBar(const std::string& images, GreetBus greetBus) override {
    if (QGuiApplication::platformName() == "offscreen") return nullptr;
    return std::make_shared<QtStatusBar>(images, std::move(greetBus));
  }
};

}  // namespace
}  // namespace kv

extern "C" __attribute__((visibility("default"))) kv::DesktopModule* kvDesktopModule() {
  static kv::QtDesktopModule module;
  return &module;
}
