#include "platform/qt/QtMainQueue.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QThread>
#include <thread>

#include "platform/MainQueue.h"

namespace kv::test {
namespace {

TEST(QtMainQueue, RunsTheMainQueueInTheEventLoopWhileItLives) {
  QEventLoop loop;
  int ran = 0;
  MainQueue::async([&] { ++ran; });  // before it
  {
    const QtMainQueue queue;
    EXPECT_EQ(ran, 0);
    std::thread([&] {
      MainQueue::async([&] {
        EXPECT_TRUE(QThread::currentThread() == QCoreApplication::instance()->thread());
        ++ran;
        MainQueue::async([&] { loop.quit(); });
      });
    }).join();
    loop.exec();
    EXPECT_EQ(ran, 2);
    MainQueue::async([&] { ++ran; });  // its wake-up comes too late
  }
  QCoreApplication::processEvents();
  EXPECT_EQ(ran, 2);
  EXPECT_EQ(MainQueue::drain(), 1u);
}

}  // namespace
}  // namespace kv::test
