// A date, or a date and a time of day, over native date-time pickers: one
// picker for the whole frame with dateOnly, otherwise a date part and a
// time part side by side, each half the width.
#pragma once

#include "toolkit/NSControl.h"

class NSDate;

class NSDatePicker : public NSControl {
    NS_DECLARE_CLASS(NSDatePicker, NSControl)

public:
    NSDatePicker* initWithFrame_(_NSRect frame);
    void* hWnd() override;
    // Enables or disables both native parts; the enabled field is left as
    // it is.
    void setEnabled_(bool enabled) override;
    // Autoreleased; with dateOnly at 00:00:00. Nil without a native window.
    NSDate* dateValue();
    void setDateValue_(NSDate* date);
    // Must come before the native window is made.
    void setDateOnly_(bool dateOnly) { _dateOnly = dateOnly; }
    bool dateOnly() { return _dateOnly; }

protected:
    ~NSDatePicker() override = default;

private:
    void* _hWnd2 = nullptr;
    bool _dateOnly = false;
};
