#include "platform/linux/InotifyFileWatcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/ForkHandlers.h"
#include "platform/ThreadFacts.h"
#include "platform/linux/Descriptor.h"

namespace kv {
namespace {

constexpr std::uint32_t kEvents = IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF;
constexpr std::uint32_t kGoneForSure = IN_MOVE_SELF | IN_DELETE_SELF | IN_UNMOUNT;

std::string descriptorPath(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

/// One watch, shared by its owner, the watching thread and the work on the queue.
struct Subscription {
  Subscription(std::string watched, std::shared_ptr<SerialQueue> target, std::function<void()> work,
               Descriptor opened)
      : path(std::move(watched)),
        queue(std::move(target)),
        handler(std::move(work)),
        file(std::move(opened)) {}

  std::string path;
  std::shared_ptr<SerialQueue> queue;
  std::function<void()> handler;
  /// A reference of our own: the watched handle's number may be another file's by the time of an
  /// event, and an inode that is referred to is not used again.
  Descriptor file;
  int number = -1;
  std::atomic<bool> hasFired = false;
  std::atomic<bool> isCancelled = false;
};

/// Whether `path` leads to the file of which `open` are the facts.
bool isNameOf(const std::string& path, const struct stat& open) {
  struct stat named {};
  if (::stat(path.c_str(), &named) == 0) {
    return named.st_dev == open.st_dev && named.st_ino == open.st_ino;
  }
  return errno != ENOENT && errno != ENOTDIR && errno != ELOOP;
}

/// Returns when no name is being removed from the folder of `path`: the system keeps a folder
/// locked for that, and lists it under the same lock.
void awaitRemovals(const std::string& path) {
  std::error_code error;
  const auto folder = std::filesystem::canonical(path, error).parent_path();
  if (!error) std::filesystem::directory_iterator(folder, error);
}

bool isGone(const Subscription& watch) {
  struct stat open {};
  if (::fstat(watch.file.number(), &open) != 0 || open.st_nlink == 0) return true;
  if (!isNameOf(watch.path, open)) return true;
  // The event for one of several names comes a moment before that stops leading to the file, and
  // no other follows.
  awaitRemovals(watch.path);
  return !isNameOf(watch.path, open);
}

void fire(const std::shared_ptr<Subscription>& watch) {
  if (watch->hasFired.exchange(true)) return;
  watch->queue->async([watch] {
    if (!watch->isCancelled) watch->handler();
  });
}

/// Of all watchers of the process, so that no fork finds it taken.
std::mutex& watchesMutex() {
  static std::mutex& mutex = []() -> std::mutex& {
    auto& made = *new std::mutex;
    callAroundFork([] { watchesMutex().lock(); }, [] { watchesMutex().unlock(); },
                   [] { watchesMutex().unlock(); });
    return made;
  }();
  return mutex;
}

}  // namespace

/// The watches by inotify's numbers, of which files have one each: two watches of one file share
/// it.
///
/// None ──first add()──► Running ──end()──► None
///
/// None     no inotify instance and no thread, save one that is about to end.
/// Running  both, with or without watches: a log that rolls often makes no thread each time. The
///          thread sleeps as long as nothing happens, and keeps this object alive.
///
/// Threads  any; nothing that may block or run foreign code is done under the lock.
class InotifyFileWatcher::Watches : public std::enable_shared_from_this<Watches> {
 public:
  bool add(const std::shared_ptr<Subscription>& watch) {
    decltype(byNumber_) parents;  // goes after the lock
    std::lock_guard lock(mutex_);
    if (instance_ && instance_->process != ::getpid()) {
      instance_.reset();
      parents.swap(byNumber_);
    }
    if (!instance_ && !begin()) return false;
    const auto path = descriptorPath(watch->file.number());
    watch->number = ::inotify_add_watch(instance_->inotify.number(), path.c_str(), kEvents);
    if (watch->number >= 0) byNumber_[watch->number].push_back(watch);
    return watch->number >= 0;
  }

  void drop(const std::shared_ptr<Subscription>& watch) {
    watch->isCancelled = true;
    std::lock_guard lock(mutex_);
    const auto found = byNumber_.find(watch->number);
    if (!instance_ || instance_->process != ::getpid() || found == byNumber_.end()) return;
    if (std::erase(found->second, watch) == 0 || !found->second.empty()) return;
    ::inotify_rm_watch(instance_->inotify.number(), watch->number);
    byNumber_.erase(found);
  }

  /// The watcher goes: its watches end with it.
  void end() {
    std::lock_guard lock(mutex_);
    if (instance_ && instance_->process == ::getpid()) {
      ::eventfd_write(instance_->ending.number(), 1);
    }
    instance_.reset();
  }

 private:
  struct Instance {
    Descriptor inotify{::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
    Descriptor ending{::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)};
    pid_t process = ::getpid();
  };
  using Subscriptions = std::vector<std::shared_ptr<Subscription>>;

  bool begin() {
    auto instance = std::make_shared<Instance>();
    if (!instance->inotify.isOpen() || !instance->ending.isOpen()) return false;
    try {
      std::thread([self = shared_from_this(), instance] { self->run(instance); }).detach();
    } catch (const std::system_error&) {
      return false;
    }
    instance_ = std::move(instance);
    return true;
  }

  void run(const std::shared_ptr<Instance>& instance) {
    nameThisThread("file-watch");
    leaveSignalsToOtherThreads();
    std::array<pollfd, 2> ready{
        {{instance->inotify.number(), POLLIN, 0}, {instance->ending.number(), POLLIN, 0}}};
    for (;;) {
      if (::poll(ready.data(), ready.size(), -1) < 0) {
        if (errno == EINTR) continue;
        return;
      }
      if (ready[1].revents != 0 || (ready[0].revents & POLLIN) == 0) return;
      takeEvents(instance);
    }
  }

  void takeEvents(const std::shared_ptr<Instance>& instance) {
    alignas(inotify_event) std::array<char, 4096> buffer;
    const ssize_t length = ::read(instance->inotify.number(), buffer.data(), buffer.size());
    for (ssize_t at = 0; at < length;) {
      const auto& event = *reinterpret_cast<const inotify_event*>(&buffer[std::size_t(at)]);
      at += static_cast<ssize_t>(sizeof(inotify_event) + event.len);
      if ((event.mask & IN_IGNORED) != 0) continue;
      for (const auto& watch : concernedBy(event, instance)) {
        if ((event.mask & kGoneForSure) != 0 || isGone(*watch)) fire(watch);
      }
    }
  }

  Subscriptions concernedBy(const inotify_event& event, const std::shared_ptr<Instance>& instance) {
    std::lock_guard lock(mutex_);
    if (instance_ != instance) return {};  // numbers of an instance that has ended
    if ((event.mask & IN_Q_OVERFLOW) == 0) {
      const auto found = byNumber_.find(event.wd);
      return found == byNumber_.end() ? Subscriptions() : found->second;
    }
    Subscriptions all;  // events were lost: everything has to be looked at
    for (const auto& [number, watches] : byNumber_) {
      all.insert(all.end(), watches.begin(), watches.end());
    }
    return all;
  }

  std::mutex& mutex_ = watchesMutex();
  std::shared_ptr<Instance> instance_;
  std::map<int, Subscriptions> byNumber_;
};

class InotifyFileWatcher::Watch final : public FileWatch {
 public:
  Watch(std::shared_ptr<Watches> watches, std::shared_ptr<Subscription> subscription)
      : watches_(std::move(watches)), subscription_(std::move(subscription)) {
    isWatching_ = subscription_->file.isOpen() && watches_->add(subscription_);
    // The file may have gone between its opening and now.
    if (isWatching_ && isGone(*subscription_)) fire(subscription_);
  }
  ~Watch() override { watches_->drop(subscription_); }
  bool isWatching() const override { return isWatching_; }

 private:
  const std::shared_ptr<Watches> watches_;
  const std::shared_ptr<Subscription> subscription_;
  bool isWatching_ = false;
};

InotifyFileWatcher::InotifyFileWatcher() : watches_(std::make_shared<Watches>()) {}
InotifyFileWatcher::~InotifyFileWatcher() {
  watches_->end();
}

std::unique_ptr<FileWatch> InotifyFileWatcher::watch(const std::string& path, int descriptor,
                                                     std::shared_ptr<SerialQueue> queue,
                                                     std::function<void()> handler) {
  Descriptor file(::open(descriptorPath(descriptor).c_str(), O_PATH | O_CLOEXEC));
  auto subscription =
      std::make_shared<Subscription>(path, std::move(queue), std::move(handler), std::move(file));
  return std::make_unique<Watch>(watches_, std::move(subscription));
}

}  // namespace kv
