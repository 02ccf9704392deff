#include "app/ScriptShapes.h"

#include <utility>

namespace kv {
namespace {

constexpr std::size_t kMostShapes = 1000;
constexpr std::size_t kMostBytes = 256 * 1024;

}  // namespace

void ScriptShapes::beginTree() {
  if (numbers_.size() > kMostShapes || bytes_ > kMostBytes) forget();
  firstNew_ = static_cast<std::uint32_t>(numbers_.size());
  newKinds_.clear();
  newKeys_.clear();
}

void ScriptShapes::addMember(std::string_view key, ValueKind kind) {
  members_.push_back({key, kind});
  spelling_ += static_cast<char>(kind);
  spelling_ += std::to_string(key.size());
  spelling_ += ':';
  spelling_ += key;
}

std::uint32_t ScriptShapes::endShape() {
  const auto next = static_cast<std::uint32_t>(numbers_.size());
  const auto [known, isNew] = numbers_.try_emplace(spelling_, next);
  if (isNew) learn();
  members_.clear();
  spelling_.clear();
  return known->second;
}

void ScriptShapes::forget() {
  numbers_.clear();
  bytes_ = 0;
}

void ScriptShapes::learn() {
  bytes_ += spelling_.size();
  newKinds_.push_back(static_cast<std::uint32_t>(members_.size()));
  for (const auto& [key, kind] : members_) {
    newKinds_.push_back(static_cast<std::uint32_t>(kind));
    newKeys_.append(QString::fromUtf8(key.data(), static_cast<qsizetype>(key.size())));
  }
}

}  // namespace kv
