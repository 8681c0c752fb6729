// The notification area of the taskbar (NSStatusBar, one per process) and
// the icon the application puts there (NSStatusItem). A click on the icon
// reaches the main window as the tray message, where the top-level window
// procedure sends the item's action and shows its menu.
#pragma once

#include <cstdint>
#include <vector>

#include "foundation/NSArray.h"
#include "toolkit/NSImage.h"
#include "toolkit/NSMenu.h"
#include "toolkit/NSNative.h"

class NSStatusItem;

class NSStatusBar : public NSObject {
    NS_DECLARE_CLASS(NSStatusBar, NSObject)

public:
    // The one status bar, made on the first call.
    static NSStatusBar* systemStatusBar();
    NSStatusBar* init() override;
    // A new item, entered in items and answered autoreleased: items does
    // not keep it alive, the caller must retain it. The length is ignored.
    NSStatusItem* statusItemWithLength_(float length);
    // Takes the item's icon out of the notification area; items is left
    // as it is.
    void removeStatusItem_(NSStatusItem* item);
    // The items made and not yet ended, in order of making. Autoreleased.
    NSMutableArray* items();
    // Called by an item's dealloc, so that items never answers an ended
    // item.
    void forgetStatusItem(NSStatusItem* item);

protected:
    ~NSStatusBar() override = default;

private:
    // Not retained: an item lives as long as its maker keeps it.
    std::vector<NSStatusItem*> _items;
};

class NSStatusItem : public NSObject {
    NS_DECLARE_CLASS(NSStatusItem, NSObject)

public:
    // The message the shell sends the main window for a click on the icon;
    // also the id of every icon.
    static uint32_t trayMessage();
    // The id is the tray message, so at most one item can be told apart.
    NSStatusItem* init() override;
    // Removes the icon from the notification area.
    void dealloc() override;
    // Stored only; the tip text is taken at setImage:.
    void setTitle_(NSString* title) { _title.set(title); }
    NSString* title() { return _title; }
    // Retains the image and adds the icon to the notification area, owned
    // by the main window of this moment: the item must be complete, and
    // the final main window in place, before this call.
    void setImage_(NSImage* image);
    NSImage* image() { return _image; }
    uint32_t uid() { return _uid; }
    // A copy of the record given to the shell.
    NSNativeNotifyIcon notifyIconData() { return _notifyIconData; }
    // Retains.
    void setTarget_(NSObject* target) { _target.set(target); }
    NSObject* target() { return _target; }
    void setAction_(SEL action) { _action = action; }
    SEL action() { return _action; }
    // Retains.
    void setMenu_(NSMenu* menu);
    NSMenu* menu() { return _menu; }

protected:
    ~NSStatusItem() override = default;

private:
    Ref<NSImage> _image;
    Ref<NSString> _title;
    uint32_t _uid = 0;
    NSNativeNotifyIcon _notifyIconData = {};
    Ref<NSObject> _target;
    SEL _action = nullptr;
    Ref<NSMenu> _menu;
};
