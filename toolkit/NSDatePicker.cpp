#include "toolkit/NSDatePicker.h"

#include "foundation/NSDate.h"

NSDatePicker* NSDatePicker::initWithFrame_(_NSRect frame) {
    NSControl::initWithFrame_(frame);
    _unicode = false;
    return this;
}

void* NSDatePicker::hWnd() {
    const NSNativeToolkit* native = NSNative();
    if (_hWnd || !native || !_superview) return _hWnd;
    void* parent = _superview->parentHandleForChildren();
    NSNativeRect frame = _superview->nativeRectOf(_bounds);
    if (_dateOnly) {
        _hWnd = native->createDatePicker(parent, frame, false);
    } else {
        NSNativeRect half = frame;
        half.width = static_cast<int>(_bounds.size.width / 2);
        _hWnd = native->createDatePicker(parent, half, false);
        half.left = static_cast<int>(_bounds.origin.x + _bounds.size.width / 2);
        _hWnd2 = native->createDatePicker(parent, half, true);
    }
    addNativeTip(parent);
    return _hWnd;
}

void NSDatePicker::setEnabled_(bool enabled) {
    if (!NSNative()) return;
    if (_hWnd) NSNative()->enable(_hWnd, enabled);
    if (_hWnd2) NSNative()->enable(_hWnd2, enabled);
}

NSDate* NSDatePicker::dateValue() {
    if (!_hWnd || !NSNative()) return nullptr;
    VTSystemTime time = NSNative()->dateOf(_hWnd);
    if (_dateOnly || !_hWnd2) {
        time.hour = time.minute = time.second = 0;
    } else {
        VTSystemTime clock = NSNative()->dateOf(_hWnd2);
        time.hour = clock.hour;
        time.minute = clock.minute;
        time.second = clock.second;
    }
    return NSAutorelease(NSDate::alloc()->initWithSystemTime_(time));
}

void NSDatePicker::setDateValue_(NSDate* date) {
    if (!date || !_hWnd || !NSNative()) return;
    VTSystemTime time = date->systemTime();
    NSNative()->setDate(_hWnd, time);
    if (!_dateOnly && _hWnd2) NSNative()->setDate(_hWnd2, time);
}

NS_CLASS_BEGIN(NSDatePicker, NSControl)
    NS_METHOD(initWithFrame_)
    NS_METHOD(hWnd)
    NS_METHOD(setEnabled_)
    NS_METHOD(dateValue)
    NS_METHOD(setDateValue_)
    NS_METHOD(setDateOnly_)
    NS_METHOD(dateOnly)
    NS_FIELD(_dateOnly)
NS_CLASS_END(NSDatePicker)
