// Menus and their items, as plain objects that a host script builds and reads.
(function (global) {
  'use strict';

  class NSMenuItem {
    constructor(title, action) {
      this.title = title === undefined ? '' : String(title);
      // Called with the item when the user picks it; null for none.
      this.action = action === undefined ? null : action;
      this.enabled = true;
      this.submenu = null;
      this.separator = false;
      // The menu that holds the item, kept by that menu.
      Object.defineProperty(this, 'menu', {value: null, writable: true, configurable: true});
      // 1 when checked, 0 when not.
      this.state = 0;
    }

    static separatorItem() {
      const item = new NSMenuItem();
      item.separator = true;
      item.enabled = false;
      return item;
    }
  }

  class NSMenu {
    constructor(title) {
      this.title = title === undefined ? '' : String(title);
      this.items = [];
    }

    get numberOfItems() { return this.items.length; }

    addItem(item) { return this.insertItem(item, this.items.length); }

    // Takes the item over from the menu that holds it, if any.
    insertItem(item, index) {
      if (!(item instanceof NSMenuItem)) throw new TypeError('a menu holds NSMenuItem objects');
      if (item.menu) item.menu.removeItem(item);
      this.items.splice(Math.min(Math.max(index | 0, 0), this.items.length), 0, item);
      item.menu = this;
      return item;
    }

    removeItem(item) {
      const index = this.items.indexOf(item);
      if (index < 0) return;
      this.items.splice(index, 1);
      item.menu = null;
    }

    removeAllItems() {
      for (const item of this.items) item.menu = null;
      this.items = [];
    }

    itemWithTitle(title) {
      for (const item of this.items) {
        if (item.title === title) return item;
      }
      return null;
    }
  }

  for (const type of [NSMenu, NSMenuItem]) {
    Object.defineProperty(global, type.name, {value: type, writable: true, configurable: true});
  }
})
