#include "platform/linux/OthersRights.h"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace kv {
namespace {

constexpr gid_t kGroupOfRoot = 0;

/// An entry of one of the system's databases, with the texts that it points to.
template <class Entry>
struct Looked {
  std::vector<char> texts = std::vector<char>(1024);
  Entry entry{};
  Entry* found = nullptr;

  template <class Key>
  Looked(int (*look)(Key, Entry*, char*, std::size_t, Entry**), Key key) {
    while (look(key, &entry, texts.data(), texts.size(), &found) == ERANGE) {
      texts.resize(texts.size() * 2);
    }
  }
};

bool isOwnGroup(gid_t identifier) {
  if (identifier == kGroupOfRoot) return true;
  const Looked<passwd> user(::getpwuid_r, ::geteuid());
  const Looked<group> members(::getgrgid_r, identifier);
  if (user.found == nullptr || members.found == nullptr) return identifier == ::getegid();
  // Others can have it as their first group, which only its name tells without a look at them all.
  const std::string name = user.entry.pw_name;
  if (user.entry.pw_gid != identifier || name != members.entry.gr_name) return false;
  for (char** member = members.entry.gr_mem; *member != nullptr; ++member) {
    if (name != *member) return false;
  }
  return true;
}

std::optional<std::string> judged(const struct stat& facts) {
  if (facts.st_uid != ::geteuid() && facts.st_uid != 0) {
    const Looked<passwd> owner(::getpwuid_r, facts.st_uid);
    return fmt::format("belongs to the user {}",
                       owner.found != nullptr ? owner.entry.pw_name : std::to_string(facts.st_uid));
  }
  if ((facts.st_mode & S_IWOTH) != 0) return "may be changed by everybody";
  if ((facts.st_mode & S_IWGRP) != 0 && !isOwnGroup(facts.st_gid)) {
    const Looked<group> owner(::getgrgid_r, facts.st_gid);
    return fmt::format("may be changed by the group {}",
                       owner.found != nullptr ? owner.entry.gr_name : std::to_string(facts.st_gid));
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> whoElseMayChange(const std::string& path) {
  struct stat facts {};
  return ::stat(path.c_str(), &facts) == 0 ? judged(facts) : std::nullopt;
}

std::optional<std::string> whoElseMayChange(int descriptor) {
  struct stat facts {};
  return ::fstat(descriptor, &facts) == 0 ? judged(facts) : std::nullopt;
}

}  // namespace kv
