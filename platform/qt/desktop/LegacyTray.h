#pragma once

#include <QAbstractNativeEventFilter>
#include <QByteArray>
#include <cstdint>
#include <functional>

struct xcb_connection_t;

namespace kv {

/// Whether the X display has a tray of the old kind, into which programs put windows.
///
/// Threads    main thread only.
/// Errors     none: without an X display there is no such tray.
class LegacyTray final : public QAbstractNativeEventFilter {
 public:
  /// `appeared` is called each time when such a tray announces itself.
  explicit LegacyTray(std::function<void()> appeared);
  ~LegacyTray() override;

  bool isThere() const;

  bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

 private:
  std::uint32_t atom(const QByteArray& name) const;

  std::function<void()> appeared_;
  xcb_connection_t* connection_ = nullptr;
  std::uint32_t selection_ = 0;
  std::uint32_t manager_ = 0;
};

}  // namespace kv
