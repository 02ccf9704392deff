#include "platform/BackgroundQueue.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <future>
#include <mutex>
#include <vector>

namespace kv::test {
namespace {

TEST(BackgroundQueue, RunsEverythingBeforeItDies) {
  std::mutex mutex;
  std::vector<int> done;
  {
    BackgroundQueue queue;
    for (int i = 0; i < 1000; ++i) {
      queue.async([&, i] {
        std::lock_guard lock(mutex);
        done.push_back(i);
      });
    }
  }
  std::sort(done.begin(), done.end());
  ASSERT_EQ(done.size(), 1000u);
  EXPECT_EQ(done.front(), 0);
  EXPECT_EQ(done.back(), 999);
}

TEST(BackgroundQueue, RunsSeveralItemsAtOnceButNoMoreThanAllowed) {
  std::promise<void> first;
  std::promise<void> second;
  {
    // Each waits for the other: both finish only when they run at the same time.
    BackgroundQueue queue(2);
    queue.async([&] {
      first.set_value();
      second.get_future().wait();
    });
    queue.async([&] {
      second.set_value();
      first.get_future().wait();
    });
  }
  std::vector<int> order;
  {
    BackgroundQueue queue(1);
    for (int i = 0; i < 100; ++i) queue.async([&order, i] { order.push_back(i); });
  }
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_EQ(order.size(), 100u);
}

TEST(BackgroundQueue, WorksAtTheLowestPriorityWithoutLoweringTheCallers) {
  std::promise<std::pair<int, int>> seen;
  BackgroundQueue queue;
  queue.async([&] {
    seen.set_value({::sched_getscheduler(0), ::getpriority(PRIO_PROCESS, id_t(::gettid()))});
  });
  EXPECT_EQ(seen.get_future().get(), std::pair(SCHED_IDLE, 19));
  EXPECT_EQ(::sched_getscheduler(0), SCHED_OTHER);
}

}  // namespace
}  // namespace kv::test
