// Menus and their items: what a host script builds, and how the program reads it.
//
// `notice` is the program's side: it is told of every change, so that a menu that is shown is read
// again when the script is done.
export function connect(notice, global) {
  const DEEPEST = 8; // levels of submenus that are shown
  const MOST_LINES = 1000; // lines of one menu that are shown
  const LONGEST_TITLE = 500; // characters of a title that are shown

  const fieldsKey = Symbol('fields');
  let lastId = 0;

  // A property whose changes the program is told of; what is set goes through `convert`.
  function defineField(type, name, convert) {
    Object.defineProperty(type.prototype, name, {
      get() { return this[fieldsKey][name]; },
      set(value) {
        const fields = this[fieldsKey];
        const converted = convert(value);
        if (Object.is(fields[name], converted)) return;
        fields[name] = converted;
        notice.changed();
      },
      enumerable: true,
      configurable: true
    });
  }

  const asText = value => value === undefined || value === null ? '' : String(value);
  const asItIs = value => value === undefined ? null : value;

  function asMenu(value) {
    if (value === undefined || value === null) return null;
    if (!(value instanceof NSMenu)) throw new TypeError('a submenu is an NSMenu');
    return value;
  }

  class NSMenuItem {
    constructor(title, action) {
      this[fieldsKey] = {
        id: ++lastId,
        title: asText(title),
        // Called with the item when the user picks it; null for none.
        action: asItIs(action),
        enabled: true,
        submenu: null,
        separator: false,
        state: 0, // 1 when checked, 0 when not
        menu: null
      };
    }

    // The menu that holds the item, kept by that menu.
    get menu() { return this[fieldsKey].menu; }

    static separatorItem() {
      const item = new NSMenuItem();
      item.separator = true;
      item.enabled = false;
      return item;
    }
  }

  defineField(NSMenuItem, 'title', asText);
  defineField(NSMenuItem, 'action', asItIs);
  defineField(NSMenuItem, 'enabled', Boolean);
  defineField(NSMenuItem, 'submenu', asMenu);
  defineField(NSMenuItem, 'separator', Boolean);
  defineField(NSMenuItem, 'state', asItIs);

  function release(item) {
    if (item instanceof NSMenuItem) item[fieldsKey].menu = null;  // else put there behind our back
  }

  class NSMenu {
    constructor(title) {
      this.title = asText(title);
      this.items = [];
    }

    get numberOfItems() { return this.items.length; }

    addItem(item) { return this.insertItem(item, this.items.length); }

    // Takes the item over from the menu that holds it, if any.
    insertItem(item, index) {
      if (!(item instanceof NSMenuItem)) throw new TypeError('a menu holds NSMenuItem objects');
      if (item.menu) item.menu.removeItem(item);
      this.items.splice(Math.min(Math.max(index | 0, 0), this.items.length), 0, item);
      item[fieldsKey].menu = this;
      notice.changed();
      return item;
    }

    removeItem(item) {
      const index = this.items.indexOf(item);
      if (index < 0) return;
      this.items.splice(index, 1);
      release(item);
      notice.changed();
    }

    removeAllItems() {
      if (this.items.length === 0) return;
      this.items.forEach(release);
      this.items = [];
      notice.changed();
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

  function isChecked(state) {
    try {
      return (Number(state) | 0) !== 0;
    } catch (thrown) {
      return false; // no number
    }
  }

  // The lines of a menu: [id, title, checked, enabled, separator, lines of the submenu or null].
  function linesOf(menu, depth) {
    const lines = [];
    for (const item of menu.items) {
      if (!(item instanceof NSMenuItem)) continue; // put there behind the menu's back
      if (lines.length === MOST_LINES) break;
      const fields = item[fieldsKey];
      const title = fields.title.slice(0, LONGEST_TITLE).replace(/[\u0000-\u001f\u007f]+/g, ' ');
      let submenu = null;
      if (fields.submenu !== null) submenu = depth < DEEPEST ? linesOf(fields.submenu, depth + 1) : [];
      lines.push([fields.id, title, isChecked(fields.state), fields.enabled, fields.separator, submenu]);
    }
    return lines;
  }

  function itemWithId(menu, id, depth) {
    for (const item of menu.items) {
      if (!(item instanceof NSMenuItem)) continue;
      const fields = item[fieldsKey];
      if (fields.id === id) return item;
      if (fields.submenu === null || depth >= DEEPEST) continue;
      const found = itemWithId(fields.submenu, id, depth + 1);
      if (found !== null) return found;
    }
    return null;
  }

  return {
    isMenu: value => value instanceof NSMenu,
    linesOf: menu => linesOf(menu, 1),
    // What picking the line does; null for nothing.
    actionOf(menu, id) {
      const item = itemWithId(menu, id, 1);
      if (item === null || !item.enabled || typeof item.action !== 'function') return null;
      return () => item.action(item);
    }
  };
}
