#include "platform/qt/desktop/ImageFiles.h"

#include <QDir>
#include <QPixmap>

namespace kv {

std::shared_ptr<const Image> ImageFiles::named(const std::string& name) {
  const auto [known, isNew] = images_.try_emplace(name);
  if (!isNew) return known->second;
  QIcon icon;
  const QString prefix = QString::fromStdString(name) + '-';
  const QDir folder(QString::fromStdString(folder_));
  for (const QString& file : folder.entryList({"*.png"}, QDir::Files)) {
    if (!file.startsWith(prefix)) continue;
    const QPixmap pixels(folder.filePath(file));
    if (!pixels.isNull()) icon.addPixmap(pixels);
  }
  if (!icon.isNull()) known->second = std::make_shared<QtImage>(icon);
  return known->second;
}

}  // namespace kv
