#include "toolkit/NSMenu.h"

#include "foundation/NSString.h"
#include "toolkit/NSNative.h"

namespace {
// Counted up before use, so the first item is 15001: far above the control
// ids, which share WM_COMMAND with menu items.
uint32_t lastItemId = 15000;
}  // namespace

NSMenu* NSMenu::initWithTitle_popup(NSString* title, bool popup) {
    NSObject::init();
    _title.set(title);
    _items.adopt(NSMutableArray::alloc()->initWithCapacity_(10));
    if (NSNative()) _hMenu = NSNative()->createMenu(popup);
    return this;
}

NSMenu* NSMenu::initWithTitle_(NSString* title) { return initWithTitle_popup(title, false); }

NSMenu* NSMenu::initPopupMenuWithTitle_(NSString* title) {
    return initWithTitle_popup(title, true);
}

void NSMenu::dealloc() {
    if (_hMenu && NSNative()) NSNative()->destroyMenu(_hMenu);
    NSObject::dealloc();
}

void NSMenu::addItem_(NSMenuItem* item) {
    if (!item) return;
    _items->addObject_(item);
    if (!_hMenu || !NSNative()) return;
    NSMenu* submenu = item->submenu();
    NSNative()->insertMenuItem(_hMenu, _items->count(), NSNativeText(item->title()), item->itemId(),
                               submenu ? submenu->hMenu() : nullptr);
}

void NSMenu::trigger_(uint32_t itemId) {
    for (uint32_t i = 0, n = _items->count(); i < n; i++) {
        auto* item = static_cast<NSMenuItem*>(_items->objectAtIndex_(i));
        if (item->hasSubmenu()) {
            item->submenu()->trigger_(itemId);
        } else if (item->itemId() == itemId) {
            NSSend(item->target(), item->action(), item);
        }
    }
}

NSMenuItem* NSMenuItem::initWithTitle_action_keyEquivalent_(NSString* title, SEL action,
                                                            NSString*) {
    NSObject::init();
    _title.set(title);
    _action = action;
    _itemId = ++lastItemId;
    return this;
}

NS_CLASS_BEGIN(NSMenu, NSObject)
    NS_METHOD(initWithTitle_)
    NS_METHOD(initPopupMenuWithTitle_)
    NS_METHOD(hMenu)
    NS_METHOD(itemArray)
    NS_METHOD(addItem_)
    NS_METHOD(trigger_)
    NS_FIELD(_title)
    NS_FIELD(_items)
NS_CLASS_END(NSMenu)

NS_CLASS_BEGIN(NSMenuItem, NSObject)
    NS_METHOD(initWithTitle_action_keyEquivalent_)
    NS_METHOD(title)
    NS_METHOD(itemId)
    NS_METHOD(action)
    NS_METHOD(target)
    NS_METHOD(setTarget_)
    NS_METHOD(submenu)
    NS_METHOD(setSubmenu_)
    NS_METHOD(hasSubmenu)
    NS_FIELD(_title)
    NS_FIELD(_itemId)
    NS_FIELD(_submenu)
    NS_FIELD(_target)
NS_CLASS_END(NSMenuItem)
