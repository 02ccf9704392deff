#include "statusitem/TAV_StatusItemController.h"

#include <string>
#include <utility>

namespace kv {
namespace {

constexpr char kStillImage[] = "100B13";
constexpr char kFrameImages[] = "kvuA";
constexpr std::int32_t kFrames = 8;
constexpr char kToolTip[] = "KVScheduler";
constexpr double kMenuBarFontPoints = 12.0;

// Shared by all controllers. The title is always cleared, so nothing is set in them so far.
constinit Font menuBarFont;
constinit std::optional<TextAttributes> sharedAttributes;

}  // namespace

std::shared_ptr<TAV_StatusItemController> TAV_StatusItemController::create(
    Environment environment) {
  return std::shared_ptr<TAV_StatusItemController>(
      new TAV_StatusItemController(std::move(environment)));
}

TAV_StatusItemController::TAV_StatusItemController(Environment environment)
    : environment_(std::move(environment)) {}

const std::optional<TextAttributes>& TAV_StatusItemController::attributes() {
  return sharedAttributes;
}

void TAV_StatusItemController::createStatusItemWithMenu() {
  menuBarFont = Font::menuBarFontOfSize(kMenuBarFontPoints);
  sharedAttributes = TextAttributes{.font = menuBarFont, .paragraphStyle = {}};
  // Of variable length at first, square from updateDisplay() on.
  statusItem_ = environment_.statusBar->statusItemWithLength(StatusBar::kVariableLength);
  statusItem_->setHighlightMode(true);
  statusItem_->setMenu(menu);
  statusItem_->setEnabled(true);
  updateDisplay();
}

void TAV_StatusItemController::updateDisplay() {
  if (statusItem_ == nullptr) return;
  if (animationTimer_ == nullptr) {
    statusItem_->setImage(environment_.statusBar->imageNamed(kStillImage));
  }
  statusItem_->setLength(StatusBar::kSquareLength);
  statusItem_->clearAttributedTitle();
  statusItem_->setToolTip(kToolTip);
}

void TAV_StatusItemController::updateAnimation(std::int32_t mode) {
  if (mode != kStartAnimating && mode != kStopAnimating) return;
  if (statusItem_ != nullptr) {
    if (statusItem_->hasView()) statusItem_->removeView();
    statusItem_->setMenu(menu);
  }
  toggleIconAnimation(mode == kStartAnimating);
}

void TAV_StatusItemController::toggleIconAnimation(bool animates) {
  stopTimer();
  updateDisplay();
  if (!animates) return;
  updateCount_ = 1;
  showFrame(1);
  animationTimer_ = environment_.runLoop->scheduleRepeatingTimer(
      kFrameInterval, [self = shared_from_this()] { self->updateIcon(); });
}

void TAV_StatusItemController::updateIcon(const RepeatingTimer* /*timer*/) {
  showFrame(updateCount_);
  updateCount_ = updateCount_ < kFrames ? updateCount_ + 1 : 1;
}

void TAV_StatusItemController::releaseStatusItem() {
  stopTimer();
  if (statusItem_ == nullptr) return;
  environment_.statusBar->removeStatusItem(*statusItem_);
  statusItem_.reset();
}

void TAV_StatusItemController::stopTimer() {
  if (animationTimer_ == nullptr) return;
  // The timer's action may hold the last other reference to this object.
  const auto self = shared_from_this();
  std::exchange(animationTimer_, nullptr)->invalidate();
}

/// Shows a copy of the frame, so that the application's picture stays its own.
void TAV_StatusItemController::showFrame(std::int32_t number) {
  if (statusItem_ == nullptr) return;
  const auto image = environment_.statusBar->imageNamed(kFrameImages + std::to_string(number));
  statusItem_->setImage(image == nullptr ? nullptr : image->copy());
}

}  // namespace kv
