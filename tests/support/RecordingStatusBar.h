#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/StatusBar.h"

namespace kv::test {

/// A status bar that lists what is done to it and its items, in words.
class RecordingStatusBar final : public StatusBar {
 public:
  class Item;

  std::shared_ptr<StatusItem> statusItemWithLength(double length) override {
    calls.push_back("add " + number(length));
    items.push_back(std::make_shared<Item>(*this));
    return items.back();
  }
  void removeStatusItem(const StatusItem& item) override {
    calls.push_back("remove");
    std::erase_if(items, [&](const auto& known) { return known.get() == &item; });
  }
  std::shared_ptr<const Image> imageNamed(const std::string& name) override {
    return hasImages ? std::make_shared<Picture>(name) : nullptr;
  }
  void refreshMenus() override { ++refreshes; }

  std::vector<std::string> calls;
  std::vector<std::shared_ptr<Item>> items;
  bool hasImages = true;
  int refreshes = 0;

 private:
  struct Picture final : Image {
    explicit Picture(std::string title) : name(std::move(title)) {}
    std::shared_ptr<const Image> copy() const override {
      return std::make_shared<Picture>("copy of " + name);
    }
    std::string name;
  };

  static std::string number(double value) { return std::to_string(static_cast<int>(value)); }

 public:
  class Item final : public StatusItem {
   public:
    explicit Item(RecordingStatusBar& bar) : bar_(bar) {}
    void setHighlightMode(bool highlights) override { note("highlight " + number(highlights)); }
    void setMenu(std::shared_ptr<Menu> shown) override {
      menu = std::move(shown);
      note(menu ? "menu" : "no menu");
    }
    void setEnabled(bool isEnabled) override { note("enabled " + number(isEnabled)); }
    void setImage(std::shared_ptr<const Image> image) override {
      note(image ? "image " + static_cast<const Picture&>(*image).name : "no image");
    }
    void setLength(double length) override { note("length " + number(length)); }
    void clearAttributedTitle() override { note("no title"); }
    void setToolTip(const std::string& text) override { note("tip " + text); }
    bool hasView() const override { return isViewed; }
    void removeView() override { note("no view"); }

    std::shared_ptr<Menu> menu;
    bool isViewed = false;

   private:
    void note(std::string call) { bar_.calls.push_back(std::move(call)); }
    RecordingStatusBar& bar_;
  };
};

}  // namespace kv::test
