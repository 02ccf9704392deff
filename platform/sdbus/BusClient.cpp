#include "platform/sdbus/BusClient.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <utility>

#include "platform/sdbus/BusHandles.h"
#include "platform/sdbus/BusValues.h"

namespace kv {
namespace {

using Monotonic = std::chrono::steady_clock;

/// What has come of the call.
struct Answer {
  bool isOver = false;
  std::optional<PropertyList> value;
  std::string problem;
};

int onReply(sd_bus_message* reply, void* data, sd_bus_error*) {
  auto& answer = *static_cast<Answer*>(data);
  answer.isOver = true;
  if (sd_bus_message_is_method_error(reply, SD_BUS_ERROR_SERVICE_UNKNOWN) > 0 ||
      sd_bus_message_is_method_error(reply, SD_BUS_ERROR_NAME_HAS_NO_OWNER) > 0) {
    return 1;
  }
  if (const sd_bus_error* error = sd_bus_message_get_error(reply)) {
    answer.problem = error->message == nullptr ? error->name : error->message;
    return 1;
  }
  answer.value = readBusValue(reply);
  if (!answer.value) answer.problem = "its answer cannot be understood";
  return 1;
}

int sendCall(sd_bus* bus, const BusQuery& query, Answer& answer) {
  sd_bus_message* created = nullptr;
  int result =
      sd_bus_message_new_method_call(bus, &created, query.service.c_str(), query.path.c_str(),
                                     "org.freedesktop.DBus.Properties", "GetAll");
  const BusMessageHandle call(created);
  if (result >= 0) result = sd_bus_message_set_auto_start(created, 0);
  if (result >= 0) result = sd_bus_message_append(created, "s", query.interface.c_str());
  if (result >= 0) result = sd_bus_call_async(bus, nullptr, created, onReply, &answer, 0);
  return result;
}

/// Turns the connection's own loop until there is an answer, or no time left.
int await(sd_bus* bus, Seconds limit, const Answer& answer) {
  const auto end = Monotonic::now() + limit;
  while (!answer.isOver) {
    const int done = sd_bus_process(bus, nullptr);
    if (done < 0) return done;
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(end - Monotonic::now());
    if (left.count() <= 0) return -ETIMEDOUT;
    if (done > 0) continue;
    const int waited = sd_bus_wait(bus, static_cast<std::uint64_t>(left.count()));
    if (waited < 0 && waited != -EINTR) return waited;
  }
  return 0;
}

}  // namespace

std::optional<PropertyList::Dictionary> BusQuery::allProperties(const std::string& address,
                                                                std::string& problem) const {
  problem.clear();
  if (address.empty()) return std::nullopt;
  // Before the connection, whose end may still bring an answer.
  Answer answer;
  const BusHandle bus = beginConnection(address, problem);
  if (bus == nullptr) return std::nullopt;
  int result = sendCall(bus.get(), *this, answer);
  if (result >= 0) result = await(bus.get(), limit, answer);
  problem = result < 0 ? std::strerror(-result) : answer.problem;
  auto* values = answer.value ? answer.value->as<PropertyList::Dictionary>() : nullptr;
  if (values == nullptr) return std::nullopt;
  return std::move(*values);
}

}  // namespace kv
