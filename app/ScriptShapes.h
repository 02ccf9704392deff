#pragma once

#include <QString>
#include <QStringList>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kv {

/// The kinds of values on the border to JavaScript; script/values.mjs has the same list and
/// explains the format.
enum class ValueKind : std::uint32_t {
  kAbsent,
  kNumber,
  kString,
  kTrue,
  kFalse,
  kDate,
  kData,
  kDictionary,
  kArray
};

/// Numbers the shapes of dictionaries: their keys and the kinds of their values, in order. The
/// records of a document have few shapes, and the same ones at every tick, so that a shape crosses
/// the border once and is a number from then on.
///
/// Shapes are forgotten between two trees when there are too many, or too long ones: documents must
/// not fill the memory with what they held once.
///
/// Threads    the engine's.
/// Ownership  keeps copies of the keys.
class ScriptShapes {
 public:
  /// The shapes that are new from here on belong to one tree.
  void beginTree();

  void addMember(std::string_view key, ValueKind kind);
  /// The number of the shape that has the members added since the last one.
  std::uint32_t endShape();

  /// The number that the first new shape of the tree has, or would have.
  std::uint32_t firstNew() const { return firstNew_; }
  /// For each new shape the number of its members, and their kinds.
  const std::vector<std::uint32_t>& newKinds() const { return newKinds_; }
  /// The keys of all new shapes.
  const QStringList& newKeys() const { return newKeys_; }

  void forget();

 private:
  void learn();

  std::map<std::string, std::uint32_t> numbers_;
  std::size_t bytes_ = 0;  ///< of their spellings
  std::uint32_t firstNew_ = 0;
  std::vector<std::uint32_t> newKinds_;
  QStringList newKeys_;

  struct Member {
    std::string_view key;
    ValueKind kind;
  };
  std::vector<Member> members_;  ///< of the present shape
  std::string spelling_;         ///< of the present shape: different for different members
};

}  // namespace kv
