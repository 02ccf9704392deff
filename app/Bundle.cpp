#include "app/Bundle.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "app/StartupError.h"
#include "platform/PropertyListReader.h"
#include "platform/linux/Descriptor.h"
#include "platform/linux/OthersRights.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLargestFile = 16u << 20;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string absolutePath(const std::string& path) {
  std::error_code error;
  std::string absolute = fs::absolute(path, error).lexically_normal().string();
  if (absolute.size() > 1 && absolute.ends_with('/')) absolute.pop_back();
  return absolute;
}

void refuse(const std::string& path, const std::string& fault) {
  throw StartupError(path + ": " + fault + ": a bundle whose scripts others may change is not run");
}

void checkFolder(const std::string& path) {
  if (const auto fault = whoElseMayChange(path)) refuse(path, *fault);
}

std::string readFile(Files& files, const std::string& path, Bundle::Origin origin) {
  // Held open and read through the descriptor: the file that is judged is the one that is read.
  const Descriptor judged(::open(path.c_str(), O_PATH | O_CLOEXEC));
  if (origin == Bundle::Origin::kElsewhere) {
    if (const auto fault = whoElseMayChange(judged.number())) refuse(path, *fault);
  }
  auto text = files.read(fmt::format("/proc/self/fd/{}", judged.number()), kLargestFile);
  if (!text) throw StartupError(path + ": cannot be read");
  return *std::move(text);
}

std::optional<std::string> readIdentifier(Files& files, const std::string& path,
                                          Bundle::Origin origin) {
  std::error_code error;
  if (!fs::exists(path, error)) return std::nullopt;
  const std::string bytes = readFile(files, path, origin);
  const auto document = readPropertyList(bytes);
  const auto* entries = document ? document->as<PropertyList::Dictionary>() : nullptr;
  if (!entries) throw StartupError(path + ": is no property list with a dictionary at its root");
  const auto* identifier = entries->find("CFBundleIdentifier");
  const auto* text = identifier ? identifier->as<PropertyList::String>() : nullptr;
  return text ? std::optional(*text) : std::nullopt;
}

/// Hidden files are left out: editors keep their unfinished copies in such.
std::vector<std::string> scriptPaths(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    std::string name = entry->path().filename().string();
    if (name.ends_with(".js") && !name.starts_with('.')) names.push_back(std::move(name));
  }
  if (error) throw StartupError(folder + ": " + error.message());
  if (names.empty()) throw StartupError(folder + ": holds no host script (*.js)");
  std::sort(names.begin(), names.end());
  for (std::string& name : names) name.insert(0, folder + "/");
  return names;
}

Bundle::Script readScript(Files& files, const std::string& path, Bundle::Origin origin) {
  std::string text = readFile(files, path, origin);
  if (text.starts_with(kByteOrderMark)) text.erase(0, kByteOrderMark.size());
  return {path, std::move(text)};
}

}  // namespace

Bundle Bundle::load(Files& files, const std::string& path, Origin origin) {
  Bundle bundle;
  bundle.path = absolutePath(path);
  std::error_code error;
  if (bundle.path.empty() || !fs::is_directory(bundle.path, error)) {
    throw StartupError("no bundle at \"" + path + "\": there is no such folder");
  }
  const std::string scripts = bundle.path + "/Scripts";
  if (origin == Origin::kElsewhere) {
    checkFolder(bundle.path);
    checkFolder(scripts);
  }
  bundle.identifier = readIdentifier(files, bundle.path + "/Info.plist", origin);
  for (const std::string& script : scriptPaths(scripts)) {
    bundle.scripts.push_back(readScript(files, script, origin));
  }
  return bundle;
}

}  // namespace kv
