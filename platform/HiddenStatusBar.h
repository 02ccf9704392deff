#pragma once

#include "platform/StatusBar.h"

namespace kv {

/// The status bar of a machine without a desktop: whatever is put there is not seen.
class HiddenStatusBar final : public StatusBar {
 public:
  std::shared_ptr<StatusItem> statusItemWithLength(double) override {
    return std::make_shared<HiddenItem>();
  }
  void removeStatusItem(const StatusItem&) override {}
  std::shared_ptr<const Image> imageNamed(const std::string&) override { return nullptr; }
  void refreshMenus() override {}

 private:
  class HiddenItem final : public StatusItem {
    void setHighlightMode(bool) override {}
    void setMenu(std::shared_ptr<Menu>) override {}
    void setEnabled(bool) override {}
    void setImage(std::shared_ptr<const Image>) override {}
    void setLength(double) override {}
    void clearAttributedTitle() override {}
    void setToolTip(const std::string&) override {}
    bool hasView() const override { return false; }
    void removeView() override {}
  };
};

}  // namespace kv
