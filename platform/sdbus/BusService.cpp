#include "platform/sdbus/BusService.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/sdbus/BusValues.h"

namespace kv {
namespace {

constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
constexpr const char* kIntrospectable = "org.freedesktop.DBus.Introspectable";

/// Calls that are taken up at one turn of the loop; a flood must not keep timers from firing.
constexpr int kMostAtOnce = 100;

constexpr const char* kIntrospectionBegin =
    R"(<!DOCTYPE node PUBLIC "-//freedesktop//DTD D-BUS Object Introspection 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd">
<node>
 <interface name="org.freedesktop.DBus.Introspectable">
  <method name="Introspect"><arg type="s" direction="out"/></method>
 </interface>
 <interface name="org.freedesktop.DBus.Properties">
  <method name="Get">
   <arg name="interface" type="s" direction="in"/>
   <arg name="property" type="s" direction="in"/>
   <arg name="value" type="v" direction="out"/>
  </method>
  <method name="GetAll">
   <arg name="interface" type="s" direction="in"/>
   <arg name="values" type="a{sv}" direction="out"/>
  </method>
 </interface>
)";

int refuse(sd_bus_message* call, const char* name, const std::string& reason) {
  return sd_bus_reply_method_errorf(call, name, "%s", reason.c_str());
}

int send(sd_bus_message* reply) {
  return sd_bus_send(nullptr, reply, nullptr);
}

}  // namespace

/// A call whose caller is not known yet.
struct BusService::Waiting {
  Waiting(BusService& owner, sd_bus_message* message)
      : service(owner), call(sd_bus_message_ref(message)) {
    ++service.waiting_;
  }
  ~Waiting() { --service.waiting_; }
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

  BusService& service;
  BusMessageHandle call;
};

BusService::BusService(Names names, Environment environment)
    : names_(std::move(names)), environment_(std::move(environment)) {}

BusService::~BusService() {
  watch_.reset();
  bus_.reset();  // and with it who waits there
}

void BusService::attend() {
  if (bus_ == nullptr) {
    open();
  } else {
    process();
  }
}

void BusService::open() {
  const std::string address = environment_.address();
  if (address.empty()) return;
  std::string error;
  bus_ = beginConnection(address, error);
  hasChanged_ = false;
  if (bus_ == nullptr) {
    close(error);
    return;
  }
  const auto onCall = [](sd_bus_message* call, void* service, sd_bus_error*) {
    // What is no call of a method goes its usual way.
    if (sd_bus_message_is_method_call(call, nullptr, nullptr) <= 0) return 0;
    static_cast<BusService*>(service)->received(call);
    return 1;
  };
  // Where another agent has the name already, this one may have it afterwards.
  const auto onName = [](sd_bus_message*, void*, sd_bus_error*) { return 1; };
  int result = sd_bus_add_object(bus_.get(), nullptr, names_.path.c_str(), onCall, this);
  if (result >= 0) {
    result = sd_bus_request_name_async(bus_.get(), nullptr, names_.service.c_str(),
                                       SD_BUS_NAME_QUEUE, onName, this);
  }
  if (result < 0) {
    close(std::strerror(-result));
    return;
  }
  watch_ = environment_.watcher->watch(sd_bus_get_fd(bus_.get()), [this] { process(); });
  process();
}

void BusService::close(const std::string& reason) {
  watch_.reset();
  bus_.reset();
  if (reason.empty() || std::exchange(isSilent_, true)) return;
  environment_.systemLog->write("warning: the session bus cannot be used (" + reason +
                                "); kvctl learns less of this agent then");
}

void BusService::process() {
  int result = 1;
  for (int count = 0; result > 0 && count < kMostAtOnce; ++count) {
    result = sd_bus_process(bus_.get(), nullptr);
  }
  if (result >= 0 && sd_bus_is_ready(bus_.get()) > 0) {
    isSilent_ = true;  // that a bus ends some day is the usual end of a session
    sendChange();
  }
  const int events = result < 0 ? result : sd_bus_get_events(bus_.get());
  if (events < 0) {
    close(std::strerror(-events));
    return;
  }
  const bool hasMore = result > 0;
  watch_->setWanted((events & POLLIN) != 0, (events & POLLOUT) != 0 || hasMore || hasChanged_);
}

void BusService::sendChange() {
  // While the bus takes nothing, the changes wait as one.
  if (!hasChanged_ || (sd_bus_get_events(bus_.get()) & POLLOUT) != 0) return;
  hasChanged_ = false;
  sd_bus_emit_signal(bus_.get(), names_.path.c_str(), names_.interface.c_str(), "Changed", "");
}

void BusService::noteChange() {
  if (bus_ == nullptr || sd_bus_is_ready(bus_.get()) <= 0) return;
  hasChanged_ = true;
  watch_->setWanted(true, true);
}

void BusService::received(sd_bus_message* call) {
  const char* const sender = sd_bus_message_get_sender(call);
  if (sender == nullptr || waiting_ >= kMostWaiting) {
    refuse(call, SD_BUS_ERROR_LIMITS_EXCEEDED, "too many calls at once; ask again later");
    return;
  }
  const auto onUser = [](sd_bus_message* reply, void* data, sd_bus_error*) {
    const auto& waiting = *static_cast<const Waiting*>(data);
    std::uint32_t user = 0;
    if (sd_bus_message_is_method_error(reply, nullptr) > 0) return 1;  // the caller has gone
    const bool isOwn = sd_bus_message_read(reply, "u", &user) > 0 && user == ::geteuid();
    const int result =
        isOwn ? waiting.service.answer(waiting.call.get())
              : refuse(waiting.call.get(), SD_BUS_ERROR_ACCESS_DENIED, "not for other users");
    if (result < 0) {
      refuse(waiting.call.get(), SD_BUS_ERROR_INVALID_ARGS, "the arguments make no sense");
    }
    return 1;
  };
  auto waiting = std::make_unique<Waiting>(*this, call);
  sd_bus_slot* slot = nullptr;
  const int result = sd_bus_call_method_async(
      bus_.get(), &slot, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "GetConnectionUnixUser", onUser, waiting.get(), "s", sender);
  if (result < 0) return;
  // The bus keeps it until there is an answer, or the bus ends.
  sd_bus_slot_set_destroy_callback(slot, [](void* data) { delete static_cast<Waiting*>(data); });
  waiting.release();
  sd_bus_slot_set_floating(slot, 1);
  sd_bus_slot_unref(slot);
}

int BusService::answer(sd_bus_message* call) const {
  const auto is = [call](const char* interface, const char* member) {
    return sd_bus_message_is_method_call(call, interface, member) > 0;
  };
  if (is(kIntrospectable, "Introspect")) {
    return sd_bus_reply_method_return(call, "s", introspection().c_str());
  }
  if (is(kProperties, "GetAll")) return answerAll(call);
  if (is(kProperties, "Get")) return answerOne(call);
  if (is(kProperties, "Set")) {
    return refuse(call, SD_BUS_ERROR_PROPERTY_READ_ONLY, "all properties can only be read");
  }
  return refuse(call, SD_BUS_ERROR_UNKNOWN_METHOD, "there is no such method");
}

bool BusService::isOurs(const char* interface) const {
  return *interface == '\0' || names_.interface == interface;
}

int BusService::answerOne(sd_bus_message* call) const {
  const char* interface = nullptr;
  const char* name = nullptr;
  const int read = sd_bus_message_read(call, "ss", &interface, &name);
  if (read < 0) return read;
  for (const Property& property : names_.properties) {
    if (!isOurs(interface) || std::string_view(property.name) != name) continue;
    const auto values = environment_.values();
    const PropertyList* const value = values.find(name);
    if (value == nullptr) break;
    sd_bus_message* created = nullptr;
    int result = sd_bus_message_new_method_return(call, &created);
    const BusMessageHandle reply(created);
    if (result >= 0) result = appendBusVariant(created, property.type, *value);
    return result < 0 ? result : send(created);
  }
  return refuse(call, SD_BUS_ERROR_UNKNOWN_PROPERTY, "there is no such property at present");
}

int BusService::answerAll(sd_bus_message* call) const {
  const char* interface = nullptr;
  const int read = sd_bus_message_read(call, "s", &interface);
  if (read < 0) return read;
  sd_bus_message* created = nullptr;
  int result = sd_bus_message_new_method_return(call, &created);
  const BusMessageHandle reply(created);
  if (result >= 0) result = sd_bus_message_open_container(created, SD_BUS_TYPE_ARRAY, "{sv}");
  const auto values = isOurs(interface) ? environment_.values() : PropertyList::Dictionary();
  for (const Property& property : names_.properties) {
    const PropertyList* const value = values.find(property.name);
    if (result < 0 || value == nullptr) continue;
    result = sd_bus_message_open_container(created, SD_BUS_TYPE_DICT_ENTRY, "sv");
    if (result >= 0) result = sd_bus_message_append(created, "s", property.name);
    if (result >= 0) result = appendBusVariant(created, property.type, *value);
    if (result >= 0) result = sd_bus_message_close_container(created);
  }
  if (result >= 0) result = sd_bus_message_close_container(created);
  return result < 0 ? result : send(created);
}

std::string BusService::introspection() const {
  std::string text = kIntrospectionBegin;
  text += fmt::format(" <interface name=\"{}\">\n", names_.interface);
  for (const Property& property : names_.properties) {
    text += fmt::format(
        "  <property name=\"{}\" type=\"{}\" access=\"read\"><annotation "
        "name=\"org.freedesktop.DBus.Property.EmitsChangedSignal\" value=\"false\"/></property>\n",
        property.name, property.type);
  }
  return text + "  <signal name=\"Changed\"/>\n </interface>\n</node>\n";
}

}  // namespace kv
