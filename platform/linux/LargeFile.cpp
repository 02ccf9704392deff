#include "platform/linux/LargeFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <utility>

#include "platform/SerialQueue.h"
#include "platform/linux/Descriptor.h"

namespace kv {
namespace {

constexpr int kMostHeld = 16;

/// Files without a name, which the system gives back when the last descriptor is closed.
class NamelessFiles {
 public:
  /// Never destroyed, since files are removed until the very end; what is held then is the system's
  /// to close.
  static NamelessFiles& shared() {
    static NamelessFiles& files = *new NamelessFiles;
    return files;
  }

  bool isFull() const { return held_ >= kMostHeld; }

  void close(Descriptor file) {
    ++held_;
    queue_.async([this, file = std::make_shared<Descriptor>(std::move(file))]() mutable {
      file.reset();
      --held_;
    });
  }

 private:
  SerialQueue queue_{"kelvara.removedFiles"};
  std::atomic<int> held_{0};
};

}  // namespace

int removeLargeFile(const std::string& path) {
  NamelessFiles& nameless = NamelessFiles::shared();
  // Opened as a place only: that needs no right to the file and does nothing to a FIFO or a device.
  Descriptor file(nameless.isFull() ? -1 : ::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (::unlink(path.c_str()) != 0) return errno;
  if (file.isOpen()) nameless.close(std::move(file));
  return 0;
}

}  // namespace kv
