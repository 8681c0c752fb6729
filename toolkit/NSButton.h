// A push button. Its click reaches the window procedure of its parent as
// WM_COMMAND with the button's uid, which sends the target its action.
#pragma once

#include "toolkit/NSControl.h"

class NSButton : public NSControl {
    NS_DECLARE_CLASS(NSButton, NSControl)

public:
    void* hWnd() override;
    void setBezelStyle_(int) {}
    // Stores only: a title set after the native button exists does not
    // change its caption.
    void setTitle_(NSString* title) { _title.set(title); }
    NSString* title() { return _title; }
    // Stores and enters the button in the application's key-equivalent
    // registry: "\r" for Enter, "\x1b" for Escape in a text field of the
    // same window.
    void setKeyEquivalent_(NSString* key);

protected:
    ~NSButton() override = default;

    Ref<NSString> _title;
    Ref<NSString> _keyEquiv;
};
