#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "platform/Font.h"
#include "platform/Menu.h"
#include "platform/RunLoop.h"
#include "platform/StatusBar.h"

namespace kv {

/// The agent's icon in the status bar: still, or going through eight frames while a backup runs.
///
///            createStatusItemWithMenu          updateAnimation(2)
///   No item ──────────────────────────► Still ────────────────────► Animating
///      ▲                                  ▲  ◄────────────────────      │
///      └──────── releaseStatusItem ───────┴─── updateAnimation(1)       │
///      └──────────────── releaseStatusItem ─────────────────────────────┘
///
/// No item    calls have no visible effect. An animation may be started, and shows as soon as
///            there is an item.
/// Still      "100B13"; there is no timer.
/// Animating  the timer shows "kvuA1" to "kvuA8" in turn, one a second. Frame 1 is shown at the
///            start and again by the first firing: it stays for two seconds.
///
/// Threads    main thread only, timer callbacks included; nothing is locked.
/// Ownership  the host owns it, and an animation holds it too. Its end does not take the item out
///            of the bar; releaseStatusItem() does.
/// Units      seconds.
/// Errors     none: a picture that the application does not have shows no icon.
class TAV_StatusItemController final
    : public std::enable_shared_from_this<TAV_StatusItemController> {
 public:
  struct Environment {
    std::shared_ptr<StatusBar> statusBar;
    std::shared_ptr<RunLoop> runLoop;
  };

  static constexpr Seconds kFrameInterval{1.0};
  static constexpr std::int32_t kStopAnimating = 1;
  static constexpr std::int32_t kStartAnimating = 2;

  static std::shared_ptr<TAV_StatusItemController> create(Environment environment);

  /// Puts a new item with `menu` into the bar. An earlier one stays there, out of reach.
  void createStatusItemWithMenu();
  /// The still icon, unless the item animates; the item's length, title and tool tip in any case.
  void updateDisplay();
  /// 2 starts the animation, at its first frame even while it runs; 1 stops it; other modes do
  /// nothing.
  void updateAnimation(std::int32_t mode);
  void toggleIconAnimation(bool animates);
  /// The next frame. The timer is not looked at.
  void updateIcon(const RepeatingTimer* timer = nullptr);
  /// Takes the item out of the bar.
  void releaseStatusItem();

  const std::shared_ptr<StatusItem>& statusItem() const { return statusItem_; }
  /// Present exactly while the icon animates.
  const std::shared_ptr<RepeatingTimer>& animationTimer() const { return animationTimer_; }
  /// The number of the frame that comes next, 1 to 8; 0 before the first animation.
  std::int32_t updateCount() const { return updateCount_; }

  /// The item's menu, to be set before the item is made.
  std::shared_ptr<Menu> menu;
  /// A second menu of the host, which is only kept here.
  std::shared_ptr<Menu> dynmenu;

  /// The text attributes that all controllers share; absent before the first item.
  static const std::optional<TextAttributes>& attributes();

 private:
  explicit TAV_StatusItemController(Environment environment);

  void stopTimer();
  void showFrame(std::int32_t number);

  const Environment environment_;
  std::shared_ptr<StatusItem> statusItem_;
  std::shared_ptr<RepeatingTimer> animationTimer_;
  std::int32_t updateCount_ = 0;
};

}  // namespace kv
