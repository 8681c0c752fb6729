// Menus over native menus: a menu bar or a pop-up menu, and its items.
// A chosen item arrives as WM_COMMAND with the item's id at the window that
// owns the menu, which hands it to trigger: of its menu.
#pragma once

#include <cstdint>

#include "foundation/NSArray.h"

#include "foundation/NSString.h"

class NSMenuItem;

class NSMenu : public NSObject {
    NS_DECLARE_CLASS(NSMenu, NSObject)

public:
    // A menu bar.
    NSMenu* initWithTitle_(NSString* title);
    // A pop-up menu (a submenu, the tray icon's menu).
    NSMenu* initPopupMenuWithTitle_(NSString* title);
    void dealloc() override;
    void* hMenu() { return _hMenu; }
    NSMutableArray* itemArray() { return _items; }
    // Appends and inserts natively at the end; an item's submenu must be
    // set before, as it is read only here.
    void addItem_(NSMenuItem* item);
    // Sends every item of the tree with this id its target's action, and
    // goes on after a match.
    void trigger_(uint32_t itemId);

protected:
    ~NSMenu() override = default;

private:
    NSMenu* initWithTitle_popup(NSString* title, bool popup);

    Ref<NSString> _title;
    Ref<NSMutableArray> _items;
    void* _hMenu = nullptr;
};

class NSMenuItem : public NSObject {
    NS_DECLARE_CLASS(NSMenuItem, NSObject)

public:
    // The key equivalent is ignored. Takes the next item id: 15001, 15002,
    // ...
    NSMenuItem* initWithTitle_action_keyEquivalent_(NSString* title, SEL action,
                                                    NSString* keyEquivalent);
    NSString* title() { return _title; }
    uint32_t itemId() { return _itemId; }
    SEL action() { return _action; }
    NSObject* target() { return _target; }
    // Retains.
    void setTarget_(NSObject* target) { _target.set(target); }
    NSMenu* submenu() { return _submenu; }
    // Retains; has no native effect after addItem:.
    void setSubmenu_(NSMenu* submenu) { _submenu.set(submenu); }
    bool hasSubmenu() { return _submenu; }
    NSMenu* menu() { return _menu; }

protected:
    ~NSMenuItem() override = default;

private:
    Ref<NSString> _title;
    SEL _action = nullptr;
    uint32_t _itemId = 0;
    Ref<NSMenu> _submenu;
    NSMenu* _menu = nullptr;  // never set
    Ref<NSObject> _target;
};
