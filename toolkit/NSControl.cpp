#include "toolkit/NSControl.h"

#include <cstdlib>

#include "foundation/NSString.h"
#include "toolkit/NSApplication.h"

namespace {
// Control ids count up from 1 across the process; menu items count from
// 15001, so the two meet in WM_COMMAND without a clash.
int32_t lastControlId = 0;
}  // namespace

NSControl* NSControl::initWithFrame_(_NSRect frame) {
    NSView::initWithFrame_(frame);
    _uid = ++lastControlId;
    NSApplication::sharedApplication()->addControl_(this);
    return this;
}

void NSControl::setStringValue_(NSString* value) {
    _stringValue.adopt(value ? static_cast<NSString*>(value->copy()) : nullptr);
    const NSNativeToolkit* native = NSNative();
    if (!_hWnd || !native) return;
    if (_unicode) {
        native->setText(_hWnd, NSNativeText(value));
    } else {
        native->setTextAnsi(_hWnd, value ? value->UTF8String() : "");
    }
}

NSString* NSControl::stringValue() {
    const NSNativeToolkit* native = NSNative();
    if (!_hWnd || !native) return _stringValue;
    if (_unicode) {
        std::u16string text = native->text(_hWnd);
        _stringValue.adopt(NSString::alloc()->initWithCharacters_length_(
                reinterpret_cast<const uint16_t*>(text.data()),
                static_cast<uint32_t>(text.size())));
    } else {
        // The A text's bytes are taken as UTF-8 as they stand.
        std::string text = native->textAnsi(_hWnd);
        _stringValue.adopt(NSString::alloc()->initWithUTF8String_(text.c_str()));
    }
    return _stringValue;
}

NSCell* NSControl::cell() { return NSAutorelease(NSCell::alloc()->initWithControl_(this)); }

void NSControl::setWndProc_(void*) {
    LOG("wndproc cannot be changed here!");
    std::exit(1);
}

void NSControl::setEnabled_(bool enabled) {
    _enabled = enabled;
    if (_hWnd && NSNative()) NSNative()->enable(_hWnd, enabled);
}

void NSControl::fire() { NSSend(_target, _action, this); }

void NSControl::registerAndSubclass(NSNativeProc proc, bool ansi) {
    NSApplication::sharedApplication()->registerControl_(this);
    _prevWndProc = NSNative()->subclass(_hWnd, proc, ansi);
}

void NSControl::addNativeTip(void* parent) {
    if (_toolTip && _hWnd) NSNative()->addTip(parent, _hWnd, NSNativeText(_toolTip));
}

NSCell* NSCell::initWithControl_(NSControl* control) {
    NSObject::init();
    _control = control;
    return this;
}

NS_CLASS_BEGIN(NSControl, NSView)
    NS_METHOD(initWithFrame_)
    NS_METHOD(setAction_)
    NS_METHOD(action)
    NS_METHOD(setTarget_)
    NS_METHOD(target)
    NS_METHOD(uid)
    NS_METHOD(setStringValue_)
    NS_METHOD(stringValue)
    NS_METHOD(cell)
    NS_METHOD(setWndProc_)
    NS_METHOD(prevWndProc)
    NS_METHOD(setEnabled_)
    NS_METHOD(isEnabled)
    NS_FIELD(_uid)
    NS_FIELD(_stringValue)
    NS_FIELD(_unicode)
    NS_FIELD(_enabled)
NS_CLASS_END(NSControl)

NS_CLASS_BEGIN(NSCell, NSObject)
    NS_METHOD(initWithControl_)
    NS_METHOD(stringValue)
    NS_METHOD(setStringValue_)
    NS_METHOD(setLineBreakMode_)
    NS_FIELD(_stringValue)
NS_CLASS_END(NSCell)

NS_CLASS_BEGIN(NSActionCell, NSCell)
    NS_METHOD(target)
    NS_METHOD(setTarget_)
    NS_METHOD(action)
    NS_METHOD(setAction_)
    NS_FIELD(_target)
NS_CLASS_END(NSActionCell)

NS_CLASS_BEGIN(NSDatePickerCell, NSActionCell)
NS_CLASS_END(NSDatePickerCell)
