#include <gmock/gmock.h>

#include "statusitem/TAV_StatusItemController.h"
#include "tests/support/Fakes.h"
#include "tests/support/RecordingStatusBar.h"

namespace kv::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class NoMenu final : public Menu {
 public:
  std::vector<MenuLine> lines() override { return {}; }
  void pick(std::int64_t) override {}
};

/// A controller with a menu, whose status bar records what is done to it.
struct StatusItemWorld {
  StatusItemWorld() { controller->menu = std::make_shared<NoMenu>(); }
  ~StatusItemWorld() { runLoop->invalidateAll(); }

  /// What was done since the last time.
  std::vector<std::string> calls() { return std::exchange(bar->calls, {}); }
  /// The same while so many seconds pass.
  std::vector<std::string> callsDuring(int seconds) {
    calls();
    runLoop->advance(Seconds(seconds));
    return calls();
  }

  std::shared_ptr<RecordingStatusBar> bar = std::make_shared<RecordingStatusBar>();
  std::shared_ptr<FakeRunLoop> runLoop = std::make_shared<FakeRunLoop>();
  std::shared_ptr<TAV_StatusItemController> controller =
      TAV_StatusItemController::create({.statusBar = bar, .runLoop = runLoop});
};

TEST(StatusItemController, MakesItsItemAtVariableLengthAndSquaresIt) {
  StatusItemWorld world;
  EXPECT_EQ(world.controller->statusItem(), nullptr);
  world.controller->createStatusItemWithMenu();
  EXPECT_THAT(world.calls(),
              ElementsAre("add -1", "highlight 1", "menu", "enabled 1", "image 100B13", "length -2",
                          "no title", "tip KVScheduler"));
  EXPECT_EQ(TAV_StatusItemController::attributes()->font.points, 12.0);
  // A second one leaves the first in the bar.
  world.controller->createStatusItemWithMenu();
  EXPECT_EQ(world.bar->items.size(), 2u);
}

TEST(StatusItemController, ShowsTheFirstFrameTwice) {
  StatusItemWorld world;
  world.controller->createStatusItemWithMenu();
  world.calls();
  world.controller->updateAnimation(2);
  EXPECT_THAT(world.calls(), ElementsAre("menu", "image 100B13", "length -2", "no title",
                                         "tip KVScheduler", "image copy of kvuA1"));
  const auto frame = [](int number) { return "image copy of kvuA" + std::to_string(number); };
  EXPECT_THAT(world.callsDuring(11),
              ElementsAre(frame(1), frame(2), frame(3), frame(4), frame(5), frame(6), frame(7),
                          frame(8), frame(1), frame(2), frame(3)));
  // Once more: from the first frame on, with one timer.
  world.controller->updateAnimation(2);
  EXPECT_THAT(world.callsDuring(2), ElementsAre(frame(1), frame(2)));
  EXPECT_EQ(world.runLoop->validTimers(), 1u);

  world.controller->updateDisplay();
  EXPECT_THAT(world.calls(), ElementsAre("length -2", "no title", "tip KVScheduler"));

  world.controller->updateAnimation(1);
  EXPECT_EQ(world.calls()[1], "image 100B13");
  EXPECT_EQ(world.controller->animationTimer(), nullptr);
  EXPECT_THAT(world.callsDuring(5), IsEmpty());
}

TEST(StatusItemController, TakesAViewAwayButNothingElseForOtherModes) {
  StatusItemWorld world;
  world.controller->createStatusItemWithMenu();
  world.bar->items.front()->isViewed = true;
  for (const int mode : {0, 3, -1, 258}) {
    world.calls();
    world.controller->updateAnimation(mode);
    EXPECT_THAT(world.calls(), IsEmpty()) << mode;
  }
  world.controller->updateAnimation(1);
  EXPECT_THAT(world.calls(), ElementsAre("no view", "menu", "image 100B13", "length -2", "no title",
                                         "tip KVScheduler"));
}

TEST(StatusItemController, AnimatesAnItemThatComesLater) {
  StatusItemWorld world;
  world.controller->updateDisplay();
  world.controller->updateAnimation(2);
  EXPECT_NE(world.controller->animationTimer(), nullptr);
  EXPECT_THAT(world.callsDuring(1), IsEmpty());
  world.controller->createStatusItemWithMenu();
  EXPECT_THAT(world.calls(), testing::Not(testing::Contains("image 100B13")));
  EXPECT_THAT(world.callsDuring(1), ElementsAre("image copy of kvuA2"));
}

TEST(StatusItemController, LeavesTheBarOnReleaseOnly) {
  StatusItemWorld world;
  world.controller->createStatusItemWithMenu();
  world.controller->toggleIconAnimation(true);
  world.controller->releaseStatusItem();
  EXPECT_THAT(world.bar->items, IsEmpty());
  EXPECT_EQ(world.controller->statusItem(), nullptr);
  EXPECT_EQ(world.runLoop->validTimers(), 0u);
  world.calls();
  world.controller->releaseStatusItem();
  EXPECT_THAT(world.calls(), IsEmpty());

  world.controller->createStatusItemWithMenu();
  world.controller.reset();
  EXPECT_EQ(world.bar->items.size(), 1u);
}

TEST(StatusItemController, ShowsNoIconForAPictureThatIsNotThere) {
  StatusItemWorld world;
  world.bar->hasImages = false;
  world.controller->createStatusItemWithMenu();
  EXPECT_THAT(world.calls(), testing::Contains("no image"));
  world.controller->toggleIconAnimation(true);
  EXPECT_THAT(world.callsDuring(1), ElementsAre("no image"));
}

TEST(StatusItemController, IsKeptByItsAnimation) {
  StatusItemWorld world;
  world.controller->createStatusItemWithMenu();
  world.controller->toggleIconAnimation(true);
  const std::weak_ptr<TAV_StatusItemController> controller = world.controller;
  world.controller.reset();
  EXPECT_THAT(world.callsDuring(1), ElementsAre("image copy of kvuA1"));
  controller.lock()->toggleIconAnimation(false);
  EXPECT_TRUE(controller.expired());
}

}  // namespace
}  // namespace kv::test
