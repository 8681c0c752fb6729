// One line of text over a native edit control, subclassed so that Tab,
// Shift+Tab, Enter and Escape work the toolkit's way.
//
// In a text field `editable` and `enabled` are one stored flag. Disabling a
// field that has a native window greys it; the same call before creation
// gives a read-only field, as creation reads the flag as read-only state.
#pragma once

#include "toolkit/NSControl.h"

class NSTextField : public NSControl {
    NS_DECLARE_CLASS(NSTextField, NSControl)

public:
    NSTextField* initWithFrame_(_NSRect frame);
    void* hWnd() override;
    // With a native window, replaces it by a plain edit without the toolkit's
    // keyboard handling (no tab stop, not subclassed): the road of read-only
    // labels set up after addSubview:.
    void setBordered_(bool bordered);
    bool isEditable() { return _editable; }
    void setEditable_(bool editable);
    void setEnabled_(bool enabled) override;
    bool isEnabled() override { return _editable; }

protected:
    ~NSTextField() override = default;

    // Creates the native edit of the given kind, with the common steps.
    void* makeEdit(NSNativeEdit kind, int id);

    bool _editable = true;
    bool _bordered = true;
};

// A password field: the ANSI edit of the system, so its text goes as bytes
// of the system's code page and is read back as such.
class NSSecureTextField : public NSTextField {
    NS_DECLARE_CLASS(NSSecureTextField, NSTextField)

public:
    void* hWnd() override;

protected:
    ~NSSecureTextField() override = default;
};
