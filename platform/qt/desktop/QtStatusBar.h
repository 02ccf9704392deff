#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/StatusBar.h"
#include "platform/qt/DesktopModule.h"
#include "platform/qt/desktop/ImageFiles.h"
#include "platform/qt/desktop/QtStatusItem.h"
#include "platform/qt/desktop/TrayWatch.h"

namespace kv {

/// The desktop's tray. Items are shown from the moment on when there is somebody to show them.
///
/// Threads    main thread only.
/// Ownership  holds its items until they are removed.
class QtStatusBar final : public StatusBar {
 public:
  QtStatusBar(std::string images, DesktopModule::GreetBus greetBus);
  ~QtStatusBar() override;
  QtStatusBar(const QtStatusBar&) = delete;
  QtStatusBar& operator=(const QtStatusBar&) = delete;

  std::shared_ptr<StatusItem> statusItemWithLength(double length) override;
  void removeStatusItem(const StatusItem& item) override;
  std::shared_ptr<const Image> imageNamed(const std::string& name) override;
  void refreshMenus() override;

 private:
  ImageFiles images_;
  const DesktopModule::GreetBus greetBus_;
  std::vector<std::shared_ptr<QtStatusItem>> items_;
  std::optional<TrayWatch::Road> road_;
  std::optional<TrayWatch> watch_;
};

}  // namespace kv
