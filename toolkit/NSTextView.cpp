#include "toolkit/NSTextView.h"

#include "toolkit/NSApplication.h"

NSTextView* NSTextView::initWithFrame_(_NSRect frame) {
    NSControl::initWithFrame_(frame);
    return this;
}

void* NSTextView::hWnd() {
    const NSNativeToolkit* native = NSNative();
    if (_hWnd || !native || !_superview) return _hWnd;
    void* parent = _superview->parentHandleForChildren();
    _hWnd = native->createEdit(parent, _superview->nativeRectOf(_bounds), _uid,
                               NSNativeEdit::Multiline, true, u"", "");
    if (!_hWnd) return nullptr;
    // Registered so that the window procedures find it, but it keeps the
    // native procedure: Tab and Enter belong to the text.
    NSApplication::sharedApplication()->registerControl_(this);
    addNativeTip(parent);
    return _hWnd;
}

// selectedRange answers a range, wider than a result word on 32-bit
// Windows: called from C++ only.
NS_CLASS_BEGIN(NSText, NSControl)
    NS_METHOD(string)
    NS_METHOD(setString_)
    NS_METHOD(setSelectedRange_)
    NS_METHOD(scrollRangeToVisible_)
NS_CLASS_END(NSText)

NS_CLASS_BEGIN(NSTextView, NSText)
    NS_METHOD(initWithFrame_)
    NS_METHOD(hWnd)
NS_CLASS_END(NSTextView)
