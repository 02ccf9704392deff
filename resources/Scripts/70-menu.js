// The default host: the menu of the status icon. It is made once and changed in place, and
// only where the states and words differ from what it shows.
(function (host) {
  "use strict";

  const FIRST_SET = 1; // the line of the first set, below the status

  const menu = new NSMenu("KVScheduler");
  const moreMenu = new NSMenu("More sets");
  const rows = []; // {item, backUp, showLog, state}, one for each set
  let limit = 0; // how many sets stand in the menu itself

  const items = {
    status: new NSMenuItem("Starting"),
    more: new NSMenuItem("More sets"),
    pause: new NSMenuItem("Pause scheduling", () => host.actions.resume()),
    pauseMenu: new NSMenu("Pause scheduling"),
    tracing: new NSMenuItem("Debug Tracing", () => {
      items.tracing.state = items.tracing.state === 1 ? 0 : 1;
    }),
  };

  function add(title, action) {
    return menu.addItem(new NSMenuItem(title, action));
  }

  function build() {
    items.status.enabled = false;
    items.more.submenu = moreMenu;
    menu.addItem(items.status);
    menu.addItem(NSMenuItem.separatorItem());
    for (const choice of host.actions.pauses) {
      items.pauseMenu.addItem(new NSMenuItem(choice.title, () => choice.begin()));
    }
    items.pause.submenu = items.pauseMenu;
    menu.addItem(items.pause);
    menu.addItem(items.tracing);
    add("Open trace", () => host.actions.openTrace());
    add("Open log", () => host.actions.openLog());
    menu.addItem(NSMenuItem.separatorItem());
    add("About KVScheduler", () => host.actions.about());
    add("Quit", () => host.actions.quit());
  }

  // ---- The sets ------------------------------------------------------------------------------

  function makeRow() {
    const row = { item: new NSMenuItem(""), state: null };
    row.backUp = new NSMenuItem("Back up now", () => host.actions.backUp(row.state.set));
    row.showLog = new NSMenuItem("Show last log", () => host.actions.showLog(row.state.set));
    row.item.submenu = new NSMenu("");
    row.item.submenu.addItem(row.backUp);
    row.item.submenu.addItem(row.showLog);
    return row;
  }

  function addRow() {
    const row = makeRow();
    if (rows.length < limit) menu.insertItem(row.item, FIRST_SET + rows.length);
    else moreMenu.addItem(row.item);
    rows.push(row);
  }

  function removeRow() {
    const item = rows.pop().item;
    item.menu.removeItem(item);
  }

  function fitRows(count) {
    if (limit !== host.settings.values.menuSets) {
      while (rows.length > 0) removeRow();
      limit = host.settings.values.menuSets;
    }
    while (rows.length > count) removeRow();
    while (rows.length < count) addRow();
    if (count > limit && items.more.menu === null) menu.insertItem(items.more, FIRST_SET + limit);
    if (count <= limit && items.more.menu !== null) menu.removeItem(items.more);
  }

  function showState(row, state, now) {
    row.state = state;
    row.item.title = host.texts.set(state, now);
    row.backUp.enabled = state.set !== null && host.application.found !== null;
    row.showLog.enabled = host.actions.hasLog(state.set);
  }

  host.menu = {
    menu: menu,
    moreMenu: moreMenu,
    tracing: items.tracing,
    build: build,
    status: () => items.status.title,

    // `situation` is {run, pause, hasApplication}.
    show(states, situation, now) {
      fitRows(states.length);
      states.forEach((state, index) => {
        if (rows[index].state !== state) showState(rows[index], state, now);
      });
      items.status.title = host.texts.status(states, situation, now);
      const isPaused = situation.pause !== null;
      items.pause.title = isPaused ? "Resume scheduling" : "Pause scheduling";
      items.pause.submenu = isPaused ? null : items.pauseMenu;
    },
  };
})((this.host = this.host || {}));
