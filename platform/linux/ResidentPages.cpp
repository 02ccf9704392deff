#include "platform/linux/ResidentPages.h"

#include <malloc.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string_view>

namespace kv {
namespace {

/// One entry of /proc/self/smaps, as far as it has been read.
struct Mapping {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
  bool isReadOnlyFile = false;
};

/// Reads the first line of an entry: "begin-end permissions offset device inode path".
bool readHeader(const char* line, Mapping& mapping) {
  unsigned long begin = 0;
  unsigned long end = 0;
  unsigned long inode = 0;
  char permissions[5] = "";
  if (std::sscanf(line, "%lx-%lx %4s %*x %*s %lu", &begin, &end, permissions, &inode) != 4) {
    return false;
  }
  const std::string_view access = permissions;
  mapping = {begin, end, inode != 0 && (access == "r--p" || access == "r-xp")};
  return true;
}

}  // namespace

void releaseStartupPages() {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> table(std::fopen("/proc/self/smaps", "re"),
                                                              &std::fclose);
  if (!table) return;
  Mapping mapping;
  char line[512];
  while (std::fgets(line, sizeof line, table.get())) {
    unsigned long changedKilobytes = 0;
    if (readHeader(line, mapping)) continue;
    if (std::sscanf(line, "Anonymous: %lu kB", &changedKilobytes) != 1) continue;
    if (!mapping.isReadOnlyFile || changedKilobytes != 0) continue;
    madvise(reinterpret_cast<void*>(mapping.begin), mapping.end - mapping.begin, MADV_DONTNEED);
  }
}

void releaseFreeMemory() {
  ::malloc_trim(0);
}

}  // namespace kv
