#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "logging/DDLogMessage.h"
#include "logging/DDLogger.h"
#include "logging/DDLoggerNode.h"
#include "platform/Group.h"
#include "platform/QueueWork.h"

namespace kv {

/// The registrations that share a logger's queue, in their order, and the dispatcher's hold on
/// that queue.
///
/// Threads    the global queue; deliver() and writeHeldLines() as the lane's queue.
class LogLane {
 public:
  LogLane(std::shared_ptr<SerialQueue> queue, Group& group)
      : queue_(std::move(queue)), group_(group), loan_(*this) {}

  const std::shared_ptr<SerialQueue>& queue() const { return queue_; }
  QueueState& state() const { return queue_->state(); }

  void add(std::shared_ptr<DDLoggerNode> node);
  void remove(const DDLoggerNode& node);
  bool isEmpty() const { return members_.empty(); }

  bool wants(std::uint64_t flag) const { return (levels_ & flag) != 0 && !isMuted(); }

  /// The message to every logger of this lane that wants it. Inline, for the sake of synchronous
  /// messages: see SerialQueue::sync().
  [[gnu::always_inline]] void deliver(const DDLogMessage& message) {
    for (const Member& member : members_) {
      if ((message.flag() & member.node->level()) != 0) deliver(*member.node, message);
    }
  }
  /// The same to one of them.
  [[gnu::always_inline]] void deliver(const DDLoggerNode& node, const DDLogMessage& message) {
    isDelivering_ = true;
    node.logger()->logMessage(message);
    isDelivering_ = false;
  }
  /// Whether the calling work, which runs as the lane's queue, is part of that.
  bool isDelivering() const { return isDelivering_; }

  void allowHolding(bool allowed);
  bool isHolding() const;
  void writeHeldLines();

  /// Whether the dispatcher owns the queue at present, its loans included.
  bool isOwned = false;

  /// Lays the message out for the lane's worker, or with null what is held and waits only.
  void lend(const DDLogMessage* message);
  /// Whether the dispatcher has the lane again. If not, the lane is a member of the group until its
  /// worker is done.
  bool takeBack();
  /// Takes the lane back if that can be, and delivers what it was lent with.
  void finishLoan();
  /// The message as work of the lane's own queue, and the lane as a member of the group.
  void push(const DDLogMessage& message);

  /// In the child of a fork: nobody has the lane, and no worker has anything of it.
  void forgetAfterFork();

  /// The calling thread runs as the lane's queue and will not return: it ends the process. Nobody
  /// is to wait for the lane, and it gets no more messages. Any thread.
  void mute();
  bool isMuted() const { return isMuted_.load(std::memory_order_relaxed); }

 private:
  /// Runs as the lane's queue on its worker, and leaves no line held.
  class Loan final : public QueueWork {
   public:
    explicit Loan(LogLane& lane) : lane_(lane) {}
    void run() override;
    const DDLogMessage* message = nullptr;

   private:
    LogLane& lane_;
  };

  void joinGroup();
  void leaveGroup();

  struct Member {
    std::shared_ptr<DDLoggerNode> node;
    HeldLines* held;
  };

  std::shared_ptr<SerialQueue> queue_;
  Group& group_;
  std::vector<Member> members_;
  std::uint64_t levels_ = 0;
  bool isDelivering_ = false;
  bool isLent_ = false;
  /// Work that the lane's worker took: whether somebody waits for it, in the group, or it is done.
  /// The later of the two sees the other.
  enum class Handover : std::uint32_t { kOpen, kAwaited, kDone };
  std::atomic<Handover> handover_{Handover::kDone};
  std::atomic<bool> isMuted_{false};
  Loan loan_;
};

}  // namespace kv
