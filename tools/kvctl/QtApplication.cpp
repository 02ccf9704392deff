#include "tools/kvctl/QtApplication.h"

#include <QLoggingCategory>
#include <clocale>

namespace kv::kvctl {

std::unique_ptr<QCoreApplication> makeQtApplication() {
  static int argumentCount = 1;  // must outlive the object
  static char name[] = "kvctl";
  static char* arguments[] = {name, nullptr};
  const auto usualHandler =
      qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
  auto application = std::make_unique<QCoreApplication>(argumentCount, arguments);
  qInstallMessageHandler(usualHandler);
  QLoggingCategory::setFilterRules("qt.qml.compiler.warning=false");
  std::setlocale(LC_ALL, "C");
  return application;
}

}  // namespace kv::kvctl
