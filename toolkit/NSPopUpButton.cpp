#include "toolkit/NSPopUpButton.h"

#include "foundation/NSString.h"

NSPopUpButton* NSPopUpButton::initWithFrame_(_NSRect frame) {
    NSControl::initWithFrame_(frame);
    _items.adopt(NSMutableArray::alloc()->initWithCapacity_(10));
    return this;
}

void* NSPopUpButton::hWnd() {
    const NSNativeToolkit* native = NSNative();
    if (_hWnd || !native || !_superview) return _hWnd;
    void* parent = _superview->parentHandleForChildren();
    _hWnd = native->createComboBox(parent, _superview->nativeRectOf(_bounds), _uid,
                                   NSNativeText(_stringValue));
    if (!_hWnd) return nullptr;
    registerAndSubclass(NSNativeProc::Control, false);
    addNativeTip(parent);
    for (uint32_t i = 0, n = _items->count(); i < n; i++)
        native->comboAdd(_hWnd, NSNativeText(static_cast<NSString*>(_items->objectAtIndex_(i))));
    return _hWnd;
}

void NSPopUpButton::addItemWithTitle_(NSString* title) {
    if (_hWnd && NSNative()) NSNative()->comboAdd(_hWnd, NSNativeText(title));
    _items->addObject_(title);
}

void NSPopUpButton::removeAllItems() {
    if (_hWnd && NSNative()) {
        while (NSNative()->comboCount(_hWnd) > 0) NSNative()->comboDelete(_hWnd, 0);
    }
    _items->removeAllObjects();
}

int NSPopUpButton::indexOfSelectedItem() {
    return _hWnd && NSNative() ? NSNative()->comboSelection(_hWnd) : -1;
}

NSString* NSPopUpButton::titleOfSelectedItem() {
    int index = indexOfSelectedItem();
    if (index < 0 || static_cast<uint32_t>(index) >= _items->count()) return nullptr;
    return static_cast<NSString*>(_items->objectAtIndex_(index));
}

void NSPopUpButton::selectItemAtIndex_(int index) {
    if (_hWnd && NSNative()) NSNative()->comboSelect(_hWnd, index);
}

void NSPopUpButton::selectItemWithTitle_(NSString* title) {
    selectItemAtIndex_(_items->indexOfObject_(title));
}

NS_CLASS_BEGIN(NSPopUpButton, NSButton)
    NS_METHOD(initWithFrame_)
    NS_METHOD(hWnd)
    NS_METHOD(addItemWithTitle_)
    NS_METHOD(removeAllItems)
    NS_METHOD(titleOfSelectedItem)
    NS_METHOD(indexOfSelectedItem)
    NS_METHOD(selectItemAtIndex_)
    NS_METHOD(selectItemWithTitle_)
    NS_METHOD(items)
    NS_FIELD(_items)
NS_CLASS_END(NSPopUpButton)
