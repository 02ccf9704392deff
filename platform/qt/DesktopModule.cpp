#include "platform/qt/DesktopModule.h"

#include <QLibrary>
#include <QString>

namespace kv {

DesktopModule* DesktopModule::load(const std::string& path, std::string& error) {
  QLibrary library(QString::fromStdString(path));
  library.setLoadHints(QLibrary::PreventUnloadHint);
  const auto entry = reinterpret_cast<DesktopModule* (*)()>(library.resolve(kEntry));
  if (entry == nullptr) {
    error = library.errorString().toStdString();
    return nullptr;
  }
  return entry();
}

}  // namespace kv
