// Several lines of text over a native multi-line edit. NSText holds the
// text operations; NSTextView makes the native window.
#pragma once

#include "toolkit/NSControl.h"

class NSText : public NSControl {
    NS_DECLARE_CLASS(NSText, NSControl)

public:
    NSString* string() { return stringValue(); }
    void setString_(NSString* text) { setStringValue_(text); }
    // No selection is kept: always location 0, length 0.
    _NSRange selectedRange() { return NSMakeRange(0, 0); }
    void setSelectedRange_(_NSRange) {}
    void scrollRangeToVisible_(_NSRange) {}

protected:
    ~NSText() override = default;
};

class NSTextView : public NSText {
    NS_DECLARE_CLASS(NSTextView, NSText)

public:
    NSTextView* initWithFrame_(_NSRect frame);
    // The native edit starts empty: text set before it exists is kept in
    // the field (stringValue answers it) but not shown.
    void* hWnd() override;

protected:
    ~NSTextView() override = default;
};
