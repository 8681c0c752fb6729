#include "toolkit/NSTextField.h"

#include "foundation/NSString.h"
#include "toolkit/NSWindow.h"

NSTextField* NSTextField::initWithFrame_(_NSRect frame) {
    NSControl::initWithFrame_(frame);
    return this;
}

void* NSTextField::makeEdit(NSNativeEdit kind, int id) {
    const NSNativeToolkit* native = NSNative();
    void* parent = _superview->parentHandleForChildren();
    bool ansi = kind == NSNativeEdit::Password;
    _unicode = !ansi;
    _hWnd = native->createEdit(parent, _superview->nativeRectOf(_bounds), id, kind, _bordered,
                               NSNativeText(_stringValue),
                               _stringValue ? _stringValue->UTF8String() : "");
    if (!_hWnd) return nullptr;
    registerAndSubclass(NSNativeProc::Keyed, ansi);
    if (!ansi) addNativeTip(parent);
    native->setReadOnly(_hWnd, !_editable);
    return _hWnd;
}

void* NSTextField::hWnd() {
    if (_hWnd || !NSNative() || !_superview) return _hWnd;
    return makeEdit(NSNativeEdit::Field, 0);
}

void NSTextField::setBordered_(bool bordered) {
    _bordered = bordered;
    const NSNativeToolkit* native = NSNative();
    if (!_hWnd || !native || !_window || !_superview) return;
    NSString* text = stringValue();
    native->destroy(_hWnd);
    _hWnd = native->createEdit(_window->hWnd(), _superview->nativeRectOf(_bounds), _uid,
                               NSNativeEdit::Label, bordered, NSNativeText(text),
                               text ? text->UTF8String() : "");
    _unicode = true;
    if (!isEditable()) setEditable_(false);
}

void NSTextField::setEditable_(bool editable) {
    _editable = editable;
    if (_hWnd && NSNative()) NSNative()->setReadOnly(_hWnd, !editable);
}

void NSTextField::setEnabled_(bool enabled) {
    _editable = enabled;
    if (_hWnd && NSNative()) NSNative()->enable(_hWnd, enabled);
}

void* NSSecureTextField::hWnd() {
    if (_hWnd || !NSNative() || !_superview) return _hWnd;
    return makeEdit(NSNativeEdit::Password, _uid);
}

NS_CLASS_BEGIN(NSTextField, NSControl)
    NS_METHOD(initWithFrame_)
    NS_METHOD(hWnd)
    NS_METHOD(setBordered_)
    NS_METHOD(isEditable)
    NS_METHOD(setEditable_)
    NS_METHOD(setEnabled_)
    NS_METHOD(isEnabled)
    NS_FIELD(_editable)
    NS_FIELD(_bordered)
NS_CLASS_END(NSTextField)

NS_CLASS_BEGIN(NSSecureTextField, NSTextField)
    NS_METHOD(hWnd)
NS_CLASS_END(NSSecureTextField)
