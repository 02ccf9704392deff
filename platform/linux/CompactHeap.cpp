#include "platform/linux/CompactHeap.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace kv {
namespace {

constexpr const char* kVariable = "GLIBC_TUNABLES";

/// Behind what the user has set there; the colon tells it from a setting of the user's own.
constexpr std::string_view kSetting = ":glibc.malloc.tcache_count=0";

void restore(const std::optional<std::string>& value) {
  if (value) {
    setenv(kVariable, value->c_str(), 1);
  } else {
    unsetenv(kVariable);
  }
}

}  // namespace

void restartWithCompactHeap(char** argv) {
  const char* const found = std::getenv(kVariable);
  std::optional<std::string> settings;
  if (found != nullptr) settings = found;
  if (settings && settings->ends_with(kSetting)) {
    settings->resize(settings->size() - kSetting.size());
    restore(settings->empty() ? std::nullopt : settings);
    return;
  }
  // By its own path: the process is named after the last part of it.
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) return;
  setenv(kVariable, settings.value_or("").append(kSetting).c_str(), 1);
  ::execv(program.c_str(), argv);
  restore(settings);
}

}  // namespace kv
