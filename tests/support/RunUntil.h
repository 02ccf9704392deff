#pragma once

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>
#include <functional>

namespace kv::test {

/// Runs the event loop until `done`; false when that takes too long.
inline bool runUntil(const std::function<bool()>& done, int patienceMilliseconds = 30'000) {
  QTimer limit;
  limit.setSingleShot(true);
  limit.start(patienceMilliseconds);
  while (!done() && limit.isActive()) {
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  }
  return done();
}

}  // namespace kv::test
