// The default host: the status icon, which is animated while a backup runs.
(function (host) {
  "use strict";

  const START = 2, STOP = 1;

  let controller = null; // while the icon is wanted
  let isAnimated = false;

  host.icon = {
    show(menu, dynmenu) {
      controller = new TAV_StatusItemController();
      controller.menu = menu;
      controller.dynmenu = dynmenu;
      controller.createStatusItemWithMenu();
      if (isAnimated) controller.updateAnimation(START);
    },

    hide() {
      if (controller !== null) controller.releaseStatusItem();
      controller = null;
    },

    isShown: () => controller !== null,

    // To start an animation again would begin it anew, so it is told changes only.
    animate(on) {
      if (on === isAnimated) return;
      isAnimated = on;
      if (controller !== null) controller.updateAnimation(on ? START : STOP);
    },
  };
})((this.host = this.host || {}));
