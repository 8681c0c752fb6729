#include "toolkit/NSTabView.h"

#include "foundation/NSString.h"
#include "toolkit/NSApplication.h"

NSTabViewItem* NSTabViewItem::initWithIdentifier_(NSObject* identifier) {
    NSObject::init();
    _identifier.set(identifier);
    if (NSNative()) {
        NSString* title = identifier ? identifier->description() : nullptr;
        _tie = NSNative()->createTabItem(NSNativeText(title));
    }
    return this;
}

void NSTabViewItem::dealloc() {
    if (_tie && NSNative()) NSNative()->destroyTabItem(_tie);
    _tie = nullptr;
    NSObject::dealloc();
}

NS_CLASS_BEGIN(NSTabViewItem, NSObject)
    NS_METHOD(initWithIdentifier_)
    NS_METHOD(dealloc)
    NS_METHOD(identifier)
    NS_METHOD(view)
    NS_METHOD(setView_)
    NS_METHOD(nativeItem)
    NS_FIELD(_identifier)
    NS_FIELD(_view)
NS_CLASS_END(NSTabViewItem)

void NSTabView::initialize() {
    if (NSNative()) NSNative()->registerTabPageClass();
}

NSTabView* NSTabView::initWithFrame_(_NSRect frame) {
    NSControl::initWithFrame_(frame);
    _items.adopt(NSMutableArray::alloc()->initWithCapacity_(10));
    return this;
}

void* NSTabView::hWnd() {
    const NSNativeToolkit* native = NSNative();
    if (_hWnd || !native || !_superview) return _hWnd;
    void* parent = _superview->parentHandleForChildren();
    _hWnd = native->createTabControl(parent, _superview->nativeRectOf(_bounds), _uid,
                                     NSNativeText(_stringValue));
    if (_hWnd) NSApplication::sharedApplication()->registerTabView_(this);
    return _hWnd;
}

void NSTabView::addTabViewItem_(NSTabViewItem* item) {
    if (!item) return;
    const NSNativeToolkit* native = NSNative();
    int32_t index = static_cast<int32_t>(_items->count());
    if (!native || !hWnd()) {
        _items->addObject_(item);
        return;
    }
    native->tabInsertItem(_hWnd, index, item->nativeItem());
    _items->addObject_(item);
    // Logged by the native side when it fails; the page view then has no
    // native window and its controls none either.
    void* page = native->createTabPage(_hWnd);
    NSNativeRect tab = native->windowRect(_hWnd);
    Ref<NSView> view = adoptRef(NSView::alloc()->initWithHWnd_(page));
    // Only the size matters to the controls inside.
    view->setBounds_(NSMakeRect(static_cast<float>(tab.left + 2), static_cast<float>(tab.top + 24),
                                static_cast<float>(tab.width - 4),
                                static_cast<float>(tab.height - 26)));
    item->setView_(view);
    if (index == 0 && page) native->showWindow(page, true);
}

NSTabViewItem* NSTabView::tabViewItemAtIndex_(int32_t index) {
    if (index < 0 || static_cast<uint32_t>(index) >= _items->count()) return nullptr;
    return static_cast<NSTabViewItem*>(_items->objectAtIndex_(static_cast<uint32_t>(index)));
}

int32_t NSTabView::numberOfTabViewItems() { return static_cast<int32_t>(_items->count()); }

NS_CLASS_BEGIN(NSTabView, NSControl)
    NS_METHOD(initWithFrame_)
    NS_METHOD(hWnd)
    NS_METHOD(addTabViewItem_)
    NS_METHOD(tabViewItemAtIndex_)
    NS_METHOD(numberOfTabViewItems)
    NS_METHOD(items)
    NS_CLASS_METHOD(initialize)
    NS_FIELD(_items)
NS_CLASS_END(NSTabView)
