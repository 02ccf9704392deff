// Semaphore, timer sources and the main queue.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <thread>
#include <vector>

#include "platform/MainQueue.h"
#include "platform/Semaphore.h"
#include "platform/TimerSource.h"
#include "tests/support/Gate.h"

namespace kv {
namespace {

using test::Event;
using test::Gate;
using testing::ElementsAre;

TEST(Semaphore, TheCallerBeyondTheLastPlaceWaitsForOne) {
  for (const int places : {1, 1000}) {
    Semaphore semaphore(places);
    for (int taken = 0; taken < places; ++taken) ASSERT_TRUE(semaphore.tryWait());
    EXPECT_FALSE(semaphore.tryWait());
    Event full;
    Event through;
    std::thread caller([&] {
      semaphore.wait([&] { full.happen(); });
      through.happen();
    });
    full.await();
    EXPECT_FALSE(through.hasHappened());
    semaphore.signal();  // a single place is enough, however many there are in all
    through.await();
    EXPECT_FALSE(semaphore.tryWait());
    caller.join();
  }
}

TEST(Semaphore, NoPlaceIsLostOrMadeUnderContention) {
  constexpr int kPlaces = 5;
  constexpr int kThreads = 4;
  Semaphore semaphore(kPlaces);
  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads * 2; ++thread) {
    threads.emplace_back([&] {
      for (int round = 0; round < 3000; ++round) {
        semaphore.wait();
        const int now = ++inside;
        for (int known = most; known < now && !most.compare_exchange_weak(known, now);) {
        }
        --inside;
        semaphore.signal();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_LE(most, kPlaces);
  for (int place = 0; place < kPlaces; ++place) EXPECT_TRUE(semaphore.tryWait());
  EXPECT_FALSE(semaphore.tryWait());
}

TEST(TimerSource, FiresOnceAsItsQueueInTheOrderOfTheDelays) {
  const auto queue = std::make_shared<SerialQueue>("timers' queue");
  std::vector<std::string> fired;
  Event last;
  const auto timers = timerSources();
  const auto note = [&](const char* name) {
    return [&fired, &last, name] {
      fired.push_back(SerialQueue::currentLabel() == "timers' queue" ? name : "elsewhere");
      if (std::string_view(name) == "last") last.happen();
    };
  };
  const double notANumber = std::numeric_limits<double>::quiet_NaN();
  Gate gate(*queue);
  const auto end = timers->fireOnce(Seconds(0.02), queue, note("last"));
  const auto never = timers->fireOnce(Seconds(1e300), queue, note("never"));
  const auto soon = timers->fireOnce(Seconds(0.001), queue, note("soon"));
  const auto past = timers->fireOnce(Seconds(-5), queue, note("past"));
  const auto odd = timers->fireOnce(Seconds(notANumber), queue, note("odd"));
  auto dropped = timers->fireOnce(Seconds(0), queue, note("dropped"));
  dropped.reset();  // before its work could run, though it was due
  gate.open();
  last.await();
  queue->sync([] {});
  EXPECT_THAT(fired, testing::UnorderedElementsAre("soon", "past", "odd", "last"));
  EXPECT_EQ(fired.back(), "last");
}

TEST(MainQueue, RunsInOrderWhenDrainedAndWakesTheEventLoop) {
  std::vector<int> done;
  int wakings = 0;
  MainQueue::async([&] { done.push_back(1); });
  MainQueue::setWaker([&] { ++wakings; });
  EXPECT_EQ(wakings, 1) << "work was waiting already";
  std::thread([&] { MainQueue::async([&] { done.push_back(2); }); }).join();
  MainQueue::async([&] {
    EXPECT_EQ(SerialQueue::currentLabel(), "main-thread");
    done.push_back(3);
    MainQueue::async([&] { done.push_back(4); });
  });
  EXPECT_TRUE(done.empty());
  EXPECT_EQ(MainQueue::drain(), 3u);
  EXPECT_THAT(done, ElementsAre(1, 2, 3));
  EXPECT_GE(wakings, 2) << "for what work put there";
  EXPECT_EQ(MainQueue::drain(), 1u);
  EXPECT_EQ(MainQueue::drain(), 0u);
  MainQueue::setWaker(nullptr);
}

}  // namespace
}  // namespace kv
