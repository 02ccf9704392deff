#include "platform/qt/desktop/LegacyTray.h"

#include <xcb/xcb.h>

#include <QGuiApplication>
#include <cstdlib>
#include <memory>
#include <utility>

namespace kv {
namespace {

struct Free {
  void operator()(void* reply) const { std::free(reply); }
};
template <class Reply>
using ReplyPointer = std::unique_ptr<Reply, Free>;

}  // namespace

LegacyTray::LegacyTray(std::function<void()> appeared) : appeared_(std::move(appeared)) {
  auto* const x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
  if (x11 == nullptr) return;
  connection_ = x11->connection();
  // Qt shows its windows on the display's default screen, which the tray must be that of.
  selection_ = atom("_NET_SYSTEM_TRAY_S0");
  manager_ = atom("MANAGER");
  qGuiApp->installNativeEventFilter(this);
}

LegacyTray::~LegacyTray() {
  if (connection_ != nullptr) qGuiApp->removeNativeEventFilter(this);
}

std::uint32_t LegacyTray::atom(const QByteArray& name) const {
  const auto cookie =
      xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.constData());
  const ReplyPointer<xcb_intern_atom_reply_t> reply(
      xcb_intern_atom_reply(connection_, cookie, nullptr));
  return reply ? reply->atom : static_cast<std::uint32_t>(XCB_ATOM_NONE);
}

bool LegacyTray::isThere() const {
  if (connection_ == nullptr) return false;
  const auto cookie = xcb_get_selection_owner(connection_, selection_);
  const ReplyPointer<xcb_get_selection_owner_reply_t> reply(
      xcb_get_selection_owner_reply(connection_, cookie, nullptr));
  return reply && reply->owner != XCB_WINDOW_NONE;
}

bool LegacyTray::nativeEventFilter(const QByteArray& /*eventType*/, void* message,
                                   qintptr* /*result*/) {
  const auto& event = *static_cast<const xcb_generic_event_t*>(message);
  constexpr std::uint8_t kSentBySomebody = 0x80;
  if ((event.response_type & ~kSentBySomebody) != XCB_CLIENT_MESSAGE) return false;
  const auto& announced = *static_cast<const xcb_client_message_event_t*>(message);
  if (announced.type == manager_ && announced.data.data32[1] == selection_) appeared_();
  return false;
}

}  // namespace kv
