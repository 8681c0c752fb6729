#include "toolkit/NSView.h"

#include "foundation/CMContinuation.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "toolkit/NSControl.h"
#include "toolkit/NSWindow.h"

NSView* NSView::initWithFrame_(_NSRect frame) {
    NSResponder::init();
    _bounds = frame;
    return this;
}

NSView* NSView::initWithHWnd_(void* handle) {
    NSResponder::init();
    _hWnd = handle;
    // Such a view is a tab page: its controls wait for the page's timer.
    _awaited.adopt(NSMutableArray::alloc()->initWithCapacity_(10));
    _async = true;
    views()->setObject_forKey_(
            this,
            NSNumber::numberWithDouble_(static_cast<double>(reinterpret_cast<uintptr_t>(handle))));
    return this;
}

NSMutableDictionary* NSView::views() {
    static NSMutableDictionary* all =
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10));
    return all;
}

void NSView::moveNativeTo(NSNativeRect rect) {
    if (_hWnd && NSNative()) NSNative()->moveWindow(_hWnd, rect);
}

void NSView::setHidden_(bool hidden) {
    _hidden = hidden;
    if (_hWnd && NSNative()) NSNative()->showWindow(_hWnd, !hidden);
}

void NSView::addSubview_(NSView* child) {
    if (!child) return;
    child->setSuperview_(this);
    child->setWindow_(_window);
    if (!child->isKindOfClass_(NSControl::classObject())) return;
    if (_async) {
        // The continuation catches the hWnd message; the tab page's timer
        // calls it when the page's controls are due.
        NSObject* later = child->continuation();
        NSSend(later, NS_SEL("hWnd"));
        addAwaited_(later);
        return;
    }
    child->hWnd();
}

void NSView::addAwaited_(NSObject* continuation) {
    if (!_awaited) _awaited.adopt(NSMutableArray::alloc()->initWithCapacity_(16));
    _awaited->addObject_(continuation);
}

void NSView::setToolTip_(NSString* tip) { _toolTip.set(tip); }

NSNativeRect NSView::nativeRectOf(_NSRect frame) {
    NSNativeRect rect;
    rect.left = static_cast<int>(frame.origin.x);
    rect.top = static_cast<int>(_bounds.size.height - frame.origin.y - frame.size.height);
    rect.width = static_cast<int>(frame.size.width);
    rect.height = static_cast<int>(frame.size.height);
    return rect;
}

void* NSView::parentHandleForChildren() {
    void* handle = hWnd();
    if (!handle && _window) handle = _window->hWnd();
    return handle;
}

// bounds answers a rectangle, wider than a result word: called from C++ only.
NS_CLASS_BEGIN(NSView, NSResponder)
    NS_METHOD(initWithFrame_)
    NS_METHOD(initWithHWnd_)
    NS_METHOD(hWnd)
    NS_METHOD(currentHWnd)
    NS_METHOD(setBounds_)
    NS_METHOD(isAsync)
    NS_METHOD(setAsync_)
    NS_METHOD(isHidden)
    NS_METHOD(setHidden_)
    NS_METHOD(addSubview_)
    NS_METHOD(awaited)
    NS_METHOD(addAwaited_)
    NS_METHOD(window)
    NS_METHOD(superview)
    NS_METHOD(setWindow_)
    NS_METHOD(setSuperview_)
    NS_METHOD(setToolTip_)
    NS_METHOD(toolTip)
    NS_CLASS_METHOD(views)
    NS_FIELD(_hidden)
    NS_FIELD(_async)
    NS_FIELD(_awaited)
    NS_FIELD(_toolTip)
NS_CLASS_END(NSView)
