// A view over one native control. Until its native window exists the
// control keeps text, enabled state and the rest in fields; hWnd of each
// concrete class makes the native window from them, once.
#pragma once

#include <cstdint>

#include "toolkit/NSView.h"

class NSCell;

class NSControl : public NSView {
    NS_DECLARE_CLASS(NSControl, NSView)

public:
    // Takes the next control id (1, 2, ...) and registers with the
    // application's controls.
    NSControl* initWithFrame_(_NSRect frame);

    void setAction_(SEL action) { _action = action; }
    SEL action() { return _action; }
    // Not retained.
    void setTarget_(NSObject* target) { _target = target; }
    NSObject* target() { return _target; }
    int32_t uid() { return _uid; }
    // Keeps a copy; with a native window also sets its text.
    virtual void setStringValue_(NSString* value);
    // The field without a native window; else the native text, kept.
    virtual NSString* stringValue();
    // A new autoreleased cell of this control.
    NSCell* cell();
    // Never allowed: logs and exits with status 1.
    void setWndProc_(void* procedure);
    void* prevWndProc() { return _prevWndProc; }
    virtual void setEnabled_(bool enabled);
    virtual bool isEnabled() { return _enabled; }

    // Sends the target the action with the control as argument, as a
    // click of a button does. Nothing without a target.
    void fire();

protected:
    ~NSControl() override = default;

    // Steps after a native control is made (the native side has set the
    // stock font already): enter it in the handle map, then run it in the
    // toolkit's procedure; the order matters, as the procedure looks the
    // control up at once.
    void registerAndSubclass(NSNativeProc proc, bool ansi);
    // A native balloon tip when the control has a tip at its creation.
    void addNativeTip(void* parent);

    SEL _action = nullptr;
    NSObject* _target = nullptr;  // not retained
    int32_t _uid = 0;
    Ref<NSString> _stringValue;
    void* _prevWndProc = nullptr;
    bool _unicode = true;
    bool _enabled = true;
};

class NSCell : public NSObject {
    NS_DECLARE_CLASS(NSCell, NSObject)

public:
    NSCell* initWithControl_(NSControl* control);
    NSControl* control() { return _control; }
    NSString* stringValue() { return _stringValue; }
    void setStringValue_(NSString* value) { _stringValue.set(value); }
    void setLineBreakMode_(int) {}

protected:
    ~NSCell() override = default;

private:
    NSControl* _control = nullptr;  // not retained: the control outlives its cells
    Ref<NSString> _stringValue;
};

class NSActionCell : public NSCell {
    NS_DECLARE_CLASS(NSActionCell, NSCell)

public:
    NSObject* target() { return _target; }
    // Retains.
    void setTarget_(NSObject* target) { _target.set(target); }
    SEL action() { return _action; }
    void setAction_(SEL action) { _action = action; }

protected:
    ~NSActionCell() override = default;

private:
    Ref<NSObject> _target;
    SEL _action = nullptr;
};

class NSDatePickerCell : public NSActionCell {
    NS_DECLARE_CLASS(NSDatePickerCell, NSActionCell)
};
