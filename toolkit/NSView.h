// A rectangle in its parent, with the frame's origin at the parent's
// bottom left, in floats. A plain view has no native window of its own; the
// controls derived from it make theirs lazily, at the first hWnd.
#pragma once

#include "foundation/NSArray.h"
#include "foundation/NSDictionary.h"
#include "toolkit/NSNative.h"
#include "toolkit/NSResponder.h"

#include "foundation/NSString.h"
class NSWindow;

class NSView : public NSResponder {
    NS_DECLARE_CLASS(NSView, NSResponder)

public:
    NSView* initWithFrame_(_NSRect frame);
    // A view over a native window made elsewhere (a tab page); entered in
    // views, and async.
    NSView* initWithHWnd_(void* handle);
    // The process-wide map from handle number to the views of initWithHWnd:.
    static NSMutableDictionary* views();

    // The native window, made on the first call by each control; a plain
    // view answers what it was given (nil for initWithFrame:).
    virtual void* hWnd() { return _hWnd; }
    // The native window as it is, without making it.
    void* currentHWnd() { return _hWnd; }
    _NSRect bounds() { return _bounds; }
    void setBounds_(_NSRect bounds) { _bounds = bounds; }
    bool isAsync() { return _async; }
    void setAsync_(bool async) { _async = async; }
    bool isHidden() { return _hidden; }
    // Stores the flag; with a native window shows or hides it.
    void setHidden_(bool hidden);
    // Moves the native window to the rectangle (parent pixels, top left)
    // and repaints; nothing without a native window. The frame stays as
    // it was given.
    void moveNativeTo(NSNativeRect rect);
    // Makes the child's native window now, or, in an async view, records
    // the hWnd message for later (awaited).
    void addSubview_(NSView* child);
    NSMutableArray* awaited() { return _awaited; }
    void addAwaited_(NSObject* continuation);
    NSWindow* window() { return _window; }
    NSView* superview() { return _superview; }
    void setWindow_(NSWindow* window) { _window = window; }
    void setSuperview_(NSView* superview) { _superview = superview; }
    // Retains. After creation it changes only what the hint line shows.
    void setToolTip_(NSString* tip);
    NSString* toolTip() { return _toolTip; }

    // The native rectangle of a child of the given frame inside this view:
    // y counted down from the top, all truncated to integers.
    NSNativeRect nativeRectOf(_NSRect frame);
    // The handle a child's native window is made in: this view's, or its
    // window's for a content view.
    void* parentHandleForChildren();

protected:
    ~NSView() override = default;

    _NSRect _bounds = {};
    NSWindow* _window = nullptr;   // not retained
    NSView* _superview = nullptr;  // not retained
    void* _hWnd = nullptr;
    bool _hidden = false;
    bool _async = false;
    Ref<NSMutableArray> _awaited;
    Ref<NSString> _toolTip;
};
