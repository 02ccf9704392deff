#include "platform/StandardError.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>

namespace kv {
namespace {

class DescriptorOutput final : public GatheredOutput {
 public:
  explicit DescriptorOutput(int descriptor) : descriptor_(descriptor) {}

  void write(std::span<const std::string_view> pieces) override {
    std::size_t length = 0;
    for (const std::string_view piece : pieces) length += piece.size();
    if (length <= kJoinedBytes) {
      writeJoined(pieces, length);
    } else {
      writeGathered(pieces);
    }
  }

 private:
  // A line of usual length is cheaper to copy than to gather: of 0.31 µs for writev(2) of 100 bytes
  // to /dev/null write(2) leaves 0.20, and of 0.97 µs to a file 0.64.
  static constexpr std::size_t kJoinedBytes = 1024;

  void writeJoined(std::span<const std::string_view> pieces, std::size_t length) {
    std::array<char, kJoinedBytes> line;
    char* end = line.data();
    for (const std::string_view piece : pieces) end = std::copy(piece.begin(), piece.end(), end);
    iovec whole = {line.data(), length};
    writeAll({&whole, length == 0 ? 0U : 1U});
  }

  void writeGathered(std::span<const std::string_view> pieces) {
    constexpr std::size_t kMostPieces = 16;  // far above what a line is made of
    std::array<iovec, kMostPieces> vectors;
    std::size_t count = 0;
    for (const std::string_view piece : pieces) {
      if (piece.empty()) continue;
      if (count == kMostPieces) {
        if (!writeAll(vectors)) return;
        count = 0;
      }
      // The system reads from it only; its type serves reading and writing alike.
      vectors[count++] = {const_cast<char*>(piece.data()), piece.size()};
    }
    writeAll({vectors.data(), count});
  }

  /// False when the system refused.
  bool writeAll(std::span<iovec> rest) {
    while (!rest.empty()) {
      const ssize_t result =
          rest.size() == 1 ? ::write(descriptor_, rest[0].iov_base, rest[0].iov_len)
                           : ::writev(descriptor_, rest.data(), static_cast<int>(rest.size()));
      if (result < 0 && errno == EINTR) continue;
      if (result <= 0) return false;
      rest = withoutFront(rest, static_cast<std::size_t>(result));
    }
    return true;
  }

  static std::span<iovec> withoutFront(std::span<iovec> vectors, std::size_t bytes) {
    while (!vectors.empty() && bytes >= vectors.front().iov_len) {
      bytes -= vectors.front().iov_len;
      vectors = vectors.subspan(1);
    }
    if (!vectors.empty()) {
      iovec& cut = vectors.front();
      cut = {static_cast<char*>(cut.iov_base) + bytes, cut.iov_len - bytes};
    }
    return vectors;
  }

  const int descriptor_;
};

}  // namespace

std::shared_ptr<GatheredOutput> outputToDescriptor(int descriptor) {
  return std::make_shared<DescriptorOutput>(descriptor);
}

std::shared_ptr<GatheredOutput> standardErrorOutput() {
  return outputToDescriptor(STDERR_FILENO);
}

}  // namespace kv
