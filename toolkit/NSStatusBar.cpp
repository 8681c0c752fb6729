#include "toolkit/NSStatusBar.h"

#include <algorithm>

#include "foundation/NSString.h"
#include "toolkit/NSApplication.h"
#include "toolkit/NSWindow.h"

namespace {
constexpr uint32_t kTrayMessage = 0x84D2;
// The size of the shell's record as the shell of the 32-bit client knows
// it; the native side fills in its own size for its structure.
constexpr uint32_t kNotifyIconSize = 152;
constexpr uint32_t kNotifyMessageAndIcon = 3;  // NIF_MESSAGE | NIF_ICON
}  // namespace

NSStatusBar* NSStatusBar::systemStatusBar() {
    static NSStatusBar* bar = static_cast<NSStatusBar*>(alloc()->init());
    return bar;
}

NSStatusBar* NSStatusBar::init() {
    NSObject::init();
    _items.reserve(10);
    return this;
}

NSStatusItem* NSStatusBar::statusItemWithLength_(float) {
    auto* item = static_cast<NSStatusItem*>(NSStatusItem::alloc()->init());
    _items.push_back(item);
    return NSAutorelease(item);
}

void NSStatusBar::removeStatusItem_(NSStatusItem* item) {
    if (!item || !NSNative()) return;
    NSNativeNotifyIcon record = item->notifyIconData();
    NSNative()->notifyIcon(false, &record);
}

NSMutableArray* NSStatusBar::items() {
    NSMutableArray* all = NSMutableArray::arrayWithCapacity_(10);
    for (NSStatusItem* item : _items) all->addObject_(item);
    return all;
}

void NSStatusBar::forgetStatusItem(NSStatusItem* item) {
    _items.erase(std::remove(_items.begin(), _items.end(), item), _items.end());
}

NS_CLASS_BEGIN(NSStatusBar, NSObject)
    NS_METHOD(init)
    NS_METHOD(statusItemWithLength_)
    NS_METHOD(removeStatusItem_)
    NS_METHOD(items)
    NS_CLASS_METHOD(systemStatusBar)
NS_CLASS_END(NSStatusBar)

uint32_t NSStatusItem::trayMessage() { return kTrayMessage; }

NSStatusItem* NSStatusItem::init() {
    NSObject::init();
    _uid = kTrayMessage;
    return this;
}

void NSStatusItem::dealloc() {
    NSStatusBar* bar = NSStatusBar::systemStatusBar();
    bar->removeStatusItem_(this);
    bar->forgetStatusItem(this);
    NSObject::dealloc();
}

void NSStatusItem::setImage_(NSImage* image) {
    _image.set(image);
    _notifyIconData = NSNativeNotifyIcon{};
    _notifyIconData.cbSize = kNotifyIconSize;
    _notifyIconData.uID = _uid;
    NSWindow* main = NSApplication::sharedApplication()->mainWindow();
    _notifyIconData.hWnd = main ? main->hWnd() : nullptr;
    _notifyIconData.hIcon = image ? image->icon() : nullptr;
    _notifyIconData.uCallbackMessage = kTrayMessage;
    // No NIF_TIP: the shell shows no tip, though the record carries one.
    _notifyIconData.uFlags = kNotifyMessageAndIcon;
    const char16_t* tip = NSNativeText(_title);
    const size_t room = sizeof _notifyIconData.szTip / sizeof _notifyIconData.szTip[0];
    for (size_t i = 0; i + 1 < room && tip[i]; i++) _notifyIconData.szTip[i] = tip[i];
    if (NSNative()) NSNative()->notifyIcon(true, &_notifyIconData);
}

void NSStatusItem::setMenu_(NSMenu* menu) { _menu.set(menu); }

NS_CLASS_BEGIN(NSStatusItem, NSObject)
    NS_METHOD(init)
    NS_METHOD(dealloc)
    NS_METHOD(setTitle_)
    NS_METHOD(title)
    NS_METHOD(setImage_)
    NS_METHOD(image)
    NS_METHOD(uid)
    NS_METHOD(setTarget_)
    NS_METHOD(target)
    NS_METHOD(setAction_)
    NS_METHOD(action)
    NS_METHOD(setMenu_)
    NS_METHOD(menu)
    NS_CLASS_METHOD(trayMessage)
    NS_FIELD(_image)
    NS_FIELD(_title)
    NS_FIELD(_uid)
    NS_FIELD(_target)
    NS_FIELD(_menu)
NS_CLASS_END(NSStatusItem)
