#pragma once

#include <QByteArray>
#include <QProcess>
#include <QStringList>
#include <string>

#include "tests/support/TemporaryFolder.h"

namespace kv::test {

/// A bus of the test's own at FOLDER/bus, which starts no services and admits everybody.
class PrivateBus {
 public:
  /// `wrapper` is a command that runs the one behind it.
  explicit PrivateBus(const std::string& folder, QStringList wrapper = {}) {
    writeFile(folder + "/bus.conf", "<busconfig><type>session</type><listen>unix:path=" + folder +
                                        "/bus</listen><policy context='default'>"
                                        "<allow user='*'/>"
                                        "<allow send_destination='*' eavesdrop='true'/>"
                                        "<allow eavesdrop='true'/><allow own='*'/>"
                                        "</policy></busconfig>");
    wrapper << "dbus-daemon"
            << "--config-file=" + QString::fromStdString(folder) + "/bus.conf"
            << "--nofork"
            << "--nopidfile"
            << "--print-address";
    daemon_.start(wrapper.takeFirst(), wrapper);
    while (!daemon_.canReadLine() && daemon_.waitForReadyRead()) {
    }
    address = daemon_.readLine().trimmed();
  }
  ~PrivateBus() {
    daemon_.kill();
    daemon_.waitForFinished();
  }

  QByteArray address;

 private:
  QProcess daemon_;
};

}  // namespace kv::test
