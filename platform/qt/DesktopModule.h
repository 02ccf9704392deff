#pragma once

#include <QCoreApplication>
#include <functional>
#include <memory>
#include <string>

#include "platform/StatusBar.h"

namespace kv {

/// What a module for the desktop makes: everything that needs a display. The module is loaded only
/// where there is one, so that the agent of a machine without a display has none of its libraries.
///
/// Threads    main thread only.
/// Ownership  the module stays loaded until the process ends.
class DesktopModule {
 public:
  virtual ~DesktopModule() = default;

  /// Calls `answered` once, from the event loop, when the session's bus has answered; waits for
  /// that without holding anybody up, and never calls it when there is no such bus.
  using GreetBus = std::function<void(std::function<void()> answered)>;

  /// The application object, with a connection to the display where that accepts one.
  virtual std::unique_ptr<QCoreApplication> makeApplication(int& argumentCount,
                                                            char** arguments) = 0;
  /// The status bar, whose pictures lie in the folder `images` as <name>-<pixels>.png. To be made
  /// after the application object, and gone before it. Null when the display has refused.
  /// `greetBus` is called when the first icon is made.
  virtual std::shared_ptr<StatusBar> makeStatusBar(const std::string& images,
                                                   GreetBus greetBus) = 0;

  /// Loads the module at `path`. Null when it cannot be loaded; `error` says why.
  static DesktopModule* load(const std::string& path, std::string& error);

  /// The function that a module exports.
  static constexpr char kEntry[] = "kvDesktopModule";
};

}  // namespace kv
