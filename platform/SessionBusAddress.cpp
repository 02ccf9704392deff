#include "platform/SessionBusAddress.h"

#include <fmt/format.h>

#include <cstdlib>
#include <string_view>

namespace kv {
namespace {

std::string_view variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? std::string_view() : value;
}

/// The path as a value in an address.
std::string escaped(std::string_view path) {
  constexpr std::string_view kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_/.\\*";
  std::string result;
  for (const char character : path) {
    if (kPlain.find(character) != std::string_view::npos) {
      result += character;
    } else {
      result += fmt::format("%{:02x}", static_cast<unsigned char>(character));
    }
  }
  return result;
}

}  // namespace

std::string sessionBusAddress() {
  std::string_view addresses = variable("DBUS_SESSION_BUS_ADDRESS");
  const bool isGiven = !addresses.empty();
  while (!addresses.empty()) {
    const auto end = addresses.find(';');
    const std::string_view address = addresses.substr(0, end);
    if (address.starts_with("unix:")) return std::string(address);
    addresses.remove_prefix(end == std::string_view::npos ? addresses.size() : end + 1);
  }
  const std::string_view folder = variable("XDG_RUNTIME_DIR");
  if (isGiven || !folder.starts_with('/')) return {};
  return "unix:path=" + escaped(folder) + "/bus";
}

}  // namespace kv
