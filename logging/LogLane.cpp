#include "logging/LogLane.h"

#include <algorithm>
#include <utility>

namespace kv {

void LogLane::add(std::shared_ptr<DDLoggerNode> node) {
  levels_ |= node->level();
  HeldLines* const held = node->logger()->heldLines();
  members_.push_back({std::move(node), held});
}

void LogLane::remove(const DDLoggerNode& node) {
  std::erase_if(members_, [&node](const Member& member) { return member.node.get() == &node; });
  levels_ = 0;
  for (const Member& member : members_) levels_ |= member.node->level();
}

void LogLane::allowHolding(bool allowed) {
  for (const Member& member : members_) {
    if (member.held != nullptr) member.held->allowHolding(allowed);
  }
}

bool LogLane::isHolding() const {
  return std::any_of(members_.begin(), members_.end(), [](const Member& member) {
    return member.held != nullptr && member.held->count() > 0;
  });
}

void LogLane::writeHeldLines() {
  for (const Member& member : members_) {
    if (member.held != nullptr && member.held->count() > 0) member.held->write();
  }
}

void LogLane::leaveGroup() {
  if (handover_.exchange(Handover::kDone, std::memory_order_seq_cst) == Handover::kAwaited) {
    group_.leave();
  }
}

void LogLane::lend(const DDLogMessage* message) {
  loan_.message = message;
  handover_.store(Handover::kOpen, std::memory_order_relaxed);
  isLent_ = true;
  state().lend(loan_);
}

bool LogLane::takeBack() {
  if (std::exchange(isLent_, false)) {
    isOwned = state().takeBack();
    if (!isOwned) joinGroup();
  }
  return isOwned;
}

void LogLane::joinGroup() {
  group_.enter();
  auto expected = Handover::kOpen;
  if (!handover_.compare_exchange_strong(expected, Handover::kAwaited)) group_.leave();
}

void LogLane::push(const DDLogMessage& message) {
  loan_.message = &message;
  handover_.store(Handover::kOpen, std::memory_order_relaxed);
  joinGroup();
  state().push(loan_);
  // Who muted the lane since it was chosen may have come before there was anybody to release.
  if (isMuted_.load(std::memory_order_seq_cst)) leaveGroup();
}

void LogLane::finishLoan() {
  if (!isLent_ || !takeBack() || loan_.message == nullptr) return;
  const QueueState::Running running(state());
  deliver(*loan_.message);
}

void LogLane::forgetAfterFork() {
  isOwned = false;
  isLent_ = false;
  handover_.store(Handover::kDone, std::memory_order_relaxed);
}

void LogLane::mute() {
  isMuted_.store(true, std::memory_order_seq_cst);
  writeHeldLines();
  leaveGroup();
}

void LogLane::Loan::run() {
  if (message != nullptr) lane_.deliver(*message);
  lane_.writeHeldLines();
  lane_.allowHolding(false);
  lane_.leaveGroup();
}

}  // namespace kv
