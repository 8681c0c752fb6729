// The delegate of a window that shows sheets: when the window is resized
// the record tables follow it; the forms on the left keep their place.
// Made with initWithSheet: it serves a sheet's own window; made with init
// (no sheet) it serves the main window, whose tab view, hint line and tab
// pages it moves as well.
#pragma once

#include "foundation/NSObject.h"

class NSNotification;
class VTSheet;

class VTSheetDelegate : public NSObject {
    NS_DECLARE_CLASS(VTSheetDelegate, NSObject)

public:
    // Moves the tables (and, for the main window, its parts) by the size
    // of the window, the notification's object.
    void windowDidResize_(NSNotification* note);
    // Closing is always allowed: the window is only hidden and kept.
    bool windowShouldClose_(NSObject* window);
    void windowDidBecomeKey_(NSNotification*) {}
    // Not retained: the sheet owns its window, which owns the delegate.
    VTSheetDelegate* initWithSheet_(VTSheet* sheet);

protected:
    ~VTSheetDelegate() override = default;

private:
    VTSheet* _sheet = nullptr;  // not retained
};
