#pragma once

#include <QIcon>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "platform/StatusBar.h"

namespace kv {

/// A picture at all its sizes; copies share the pixels.
class QtImage final : public Image {
 public:
  explicit QtImage(QIcon icon) : icon_(std::move(icon)) {}
  std::shared_ptr<const Image> copy() const override { return std::make_shared<QtImage>(icon_); }
  const QIcon& icon() const { return icon_; }

 private:
  QIcon icon_;
};

/// The pictures of a folder: <name>-<pixels>.png, square, in any sizes.
///
/// Threads    main thread only.
/// Ownership  keeps every picture that was asked for: each is made once.
/// Errors     none: a picture without files is null.
class ImageFiles {
 public:
  explicit ImageFiles(std::string folder) : folder_(std::move(folder)) {}
  std::shared_ptr<const Image> named(const std::string& name);

 private:
  const std::string folder_;
  std::map<std::string, std::shared_ptr<const Image>> images_;
};

}  // namespace kv
