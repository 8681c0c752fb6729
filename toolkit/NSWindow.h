// A top-level window of the class "Window -- OpenStep". Its rectangle is
// given in screen pixels from the top left, outer size; its content view
// is 35 pixels lower than asked, the allowance for caption and menu bar, so
// that children are laid out the same whatever the real caption height.
// Windows are hidden, never destroyed.
#pragma once

#include "toolkit/NSResponder.h"
#include "toolkit/NSView.h"

#include "foundation/NSString.h"
class NSMenu;

class NSWindow : public NSResponder {
    NS_DECLARE_CLASS(NSWindow, NSResponder)

public:
    // The style, backing and defer arguments are ignored. The native window
    // is made here, hidden; the first window of the process becomes the
    // main window.
    NSWindow* initWithContentRect_styleMask_backing_defer_(_NSRect rect, uint32_t style,
                                                           int backing, bool defer);
    void dealloc() override;

    NSObject* delegate() { return _delegate; }
    // Retains.
    void setDelegate_(NSObject* delegate) { _delegate.set(delegate); }
    void orderFront_(NSObject* sender);
    // Hides.
    void close();
    // Back to its normal placement from minimized or maximized, shown and
    // focused.
    void restore();
    void setTitle_(NSString* title);
    NSString* title() { return _title; }
    NSView* contentView() { return _contentView; }
    // The native outer rectangle in screen pixels (x, y from the top left).
    _NSRect frame();
    void* hWnd() { return _hWnd; }
    bool isSetup() { return _setup; }
    void setSetup_(bool setup) { _setup = setup; }
    void setInitialFirstResponder_(NSView* view) { _initialFirstResponder = view; }
    NSView* initialFirstResponder() { return _initialFirstResponder; }
    // Focuses the view's native window; true.
    bool makeFirstResponder_(NSObject* responder);
    // Keeps the menu and shows it as the window's menu bar.
    void setMenu_(NSObject* menu);

protected:
    ~NSWindow() override = default;

private:
    void* _hWnd = nullptr;
    Ref<NSView> _contentView;
    bool _setup = false;
    Ref<NSString> _title;
    NSView* _initialFirstResponder = nullptr;  // not retained
    Ref<NSObject> _delegate;
};
