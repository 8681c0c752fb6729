#include "toolkit/NSButton.h"

#include "foundation/NSString.h"
#include "toolkit/NSApplication.h"

void* NSButton::hWnd() {
    const NSNativeToolkit* native = NSNative();
    if (_hWnd || !native || !_superview) return _hWnd;
    void* parent = _superview->parentHandleForChildren();
    _hWnd = native->createButton(parent, _superview->nativeRectOf(_bounds), _uid,
                                 NSNativeText(_title));
    // Creation does not look at the flag.
    if (!_enabled) setEnabled_(false);
    return _hWnd;
}

void NSButton::setKeyEquivalent_(NSString* key) {
    _keyEquiv.set(key);
    NSApplication::sharedApplication()->registerButton_forKeyEquiv_(this, key);
}

NS_CLASS_BEGIN(NSButton, NSControl)
    NS_METHOD(hWnd)
    NS_METHOD(setBezelStyle_)
    NS_METHOD(setTitle_)
    NS_METHOD(title)
    NS_METHOD(setKeyEquivalent_)
    NS_FIELD(_title)
    NS_FIELD(_keyEquiv)
NS_CLASS_END(NSButton)
