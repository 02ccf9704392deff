#include "platform/SerialQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/Group.h"
#include "tests/support/Gate.h"

namespace kv {
namespace {

using test::Event;
using test::Gate;
using testing::ElementsAre;

TEST(SerialQueue, RunsWorkOfEachThreadInOrderAndOneAtATime) {
  constexpr int kThreads = 4;
  constexpr int kEach = 5000;
  SerialQueue queue("order");
  std::vector<int> next(kThreads, 0);  // written as the queue only: no lock
  bool isRunning = false;
  int disorder = 0;
  const auto work = [&](int thread, int number) {
    if (isRunning || next[static_cast<std::size_t>(thread)]++ != number) ++disorder;
    isRunning = true;
    isRunning = false;
  };
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int number = 0; number < kEach; ++number) {
        const auto piece = [&work, thread, number] { work(thread, number); };
        // Some wait for their work, so that the queue is owned by callers too.
        number % 16 == thread ? queue.sync(piece) : queue.async(piece);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  queue.sync([] {});
  EXPECT_EQ(disorder, 0);
  EXPECT_THAT(next, ElementsAre(kEach, kEach, kEach, kEach));
}

TEST(SerialQueue, SyncReturnsAfterItsWorkAndAllBeforeIt) {
  SerialQueue queue;
  std::vector<int> done;
  Gate gate(queue);
  queue.async([&] { done.push_back(1); });
  std::thread opener([&] { gate.open(); });
  queue.sync([&] { done.push_back(2); });
  EXPECT_THAT(done, ElementsAre(1, 2));
  opener.join();
}

TEST(SerialQueue, IdleQueueRunsSyncWorkOnTheCallersThreadAsItself) {
  SerialQueue outer("outer");
  SerialQueue inner("inner");
  int key = 0;
  int value = 0;
  outer.setSpecific(&key, &value);
  EXPECT_EQ(SerialQueue::currentLabel(), "main-thread");
  EXPECT_EQ(SerialQueue::currentSpecific(&key), nullptr);
  outer.sync([&] {
    EXPECT_EQ(SerialQueue::currentLabel(), "outer");
    EXPECT_EQ(SerialQueue::currentSpecific(&key), &value);
    inner.sync([&] {
      EXPECT_EQ(SerialQueue::currentLabel(), "inner");
      EXPECT_EQ(SerialQueue::currentSpecific(&key), nullptr) << "a value of another queue";
      EXPECT_TRUE(inner.isCurrent());
      EXPECT_FALSE(outer.isCurrent());
    });
    EXPECT_TRUE(outer.isCurrent());
  });
  EXPECT_FALSE(outer.isCurrent());
  outer.setSpecific(&key, nullptr);
  outer.sync([&] { EXPECT_EQ(SerialQueue::currentSpecific(&key), nullptr); });
}

TEST(SerialQueue, AsyncWorkOnItsOwnThreadIsNobodyElses) {
  SerialQueue queue("own thread");
  std::string label = "none";
  std::thread::id thread;
  Event done;
  queue.async([&] {
    label = SerialQueue::currentLabel();
    thread = std::this_thread::get_id();
    done.happen();
  });
  done.await();
  EXPECT_EQ(label, "own thread");
  EXPECT_NE(thread, std::this_thread::get_id());
  std::string elsewhere = "unset";
  std::thread([&] { elsewhere = SerialQueue::currentLabel(); }).join();
  EXPECT_EQ(elsewhere, "");
}

TEST(SerialQueue, WhatWasPutThereRunsAfterTheLastHandleIsGone) {
  Event done;
  {
    auto queue = std::make_shared<SerialQueue>("dropped");
    Gate gate(*queue);
    // The last handle goes on the queue's own thread: nobody may wait for that thread there.
    queue->async([queue, &done]() mutable {
      queue.reset();
      done.happen();
    });
    queue.reset();
  }
  done.await();
  EXPECT_TRUE(done.hasHappened());
}

TEST(SerialQueueDeathTest, SyncOnTheQueueItRunsAsStopsWithAMessage) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  SerialQueue queue("mine");
  SerialQueue other("other");
  EXPECT_DEATH(queue.sync([&] { other.sync([&] { queue.sync([] {}); }); }),
               "sync on queue \"mine\".*wait for itself");
}

TEST(Group, WaitReturnsWhenAllMembersAreDone) {
  for (int round = 0; round < 200; ++round) {
    SerialQueue first("first");
    SerialQueue second("second");
    std::atomic<int> done{0};
    Group group;  // gone as soon as wait() returns
    for (int member = 0; member < 3; ++member) {
      group.async(first, [&] { ++done; });
      group.async(second, [&] { ++done; });
    }
    group.wait();
    ASSERT_EQ(done, 6);
  }
}

class CountedLoan final : public QueueWork {
 public:
  explicit CountedLoan(QueueState& queue) : queue_(queue) {}
  void run() override {
    ranAsQueue = QueueState::current() == &queue_;
    ran.happen();
  }
  Event ran;
  bool ranAsQueue = false;

 private:
  QueueState& queue_;
};

/// The worker that ran the last work may still be about to let go.
void ownSoon(QueueState& state) {
  while (!state.tryOwn()) std::this_thread::yield();
}

TEST(QueueState, ALoanIsTakenBackOrRunByTheWorkerBeforeWhatWaits) {
  SerialQueue queue("lent");
  QueueState& state = queue.state();

  ownSoon(state);
  CountedLoan taken(state);
  state.lend(taken);
  if (state.takeBack()) {  // the worker may have been quicker, but not without running it
    EXPECT_FALSE(taken.ran.hasHappened());
    state.release();
  } else {
    taken.ran.await();
  }
  queue.sync([] {});

  ownSoon(state);
  CountedLoan forgotten(state);
  state.lend(forgotten);
  forgotten.ran.await();  // the owner has other things to do: the worker finds it again
  EXPECT_TRUE(forgotten.ranAsQueue);
  EXPECT_FALSE(state.takeBack());
  queue.sync([] {});

  ownSoon(state);
  CountedLoan wanted(state);
  bool loanCameFirst = false;
  Event done;
  state.lend(wanted);
  queue.async([&] {
    loanCameFirst = wanted.ran.hasHappened();
    done.happen();
  });
  done.await();
  EXPECT_TRUE(loanCameFirst);
}

TEST(QueueState, AnOwnedQueueMakesEverybodyWaitAndIsNotOwnedWhileWorkWaits) {
  SerialQueue queue;
  QueueState& state = queue.state();
  ASSERT_TRUE(state.tryOwn());
  EXPECT_FALSE(state.tryOwn());
  Event done;
  queue.async([&] { done.happen(); });
  EXPECT_TRUE(state.hasPending());
  EXPECT_FALSE(done.hasHappened());
  state.release();
  done.await();
  Gate gate(queue);
  EXPECT_FALSE(state.tryOwn());
}

}  // namespace
}  // namespace kv
