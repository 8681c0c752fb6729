#include "toolkit/NSApplication.h"

#include <cstdlib>

#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "structures/VTKeyedArrays.h"
#include "toolkit/NSButton.h"
#include "toolkit/NSNative.h"
#include "toolkit/NSTextField.h"
#include "toolkit/NSWindow.h"

namespace {
NSApplication* sharedApp = nullptr;
bool shiftDown = false;
NSTextField* hint = nullptr;

NSMutableDictionary* newDictionary() {
    return static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(16));
}

// Controls and windows are keyed by the handle as a pointer, table and tab
// views by the handle as a number, as their notifications carry it.
NSObject* pointerKey(void* handle) { return NSValue::valueWithPointer_(handle); }
NSObject* numberKey(void* handle) {
    return NSNumber::numberWithDouble_(static_cast<double>(reinterpret_cast<uintptr_t>(handle)));
}
}  // namespace

NSApplication* NSApplication::sharedApplication() {
    if (!sharedApp) sharedApp = static_cast<NSApplication*>(alloc()->init());
    return sharedApp;
}

NSApplication* NSApplication::init() {
    NSResponder::init();
    _controls.adopt(NSMutableArray::alloc()->initWithCapacity_(16));
    _tableViews.adopt(newDictionary());
    _tabViews.adopt(newDictionary());
    _mapOfControls.adopt(newDictionary());
    _windows.adopt(newDictionary());
    _keyEquivalents.adopt(static_cast<VTKeyedArrays*>(VTKeyedArrays::alloc()->init()));
    return this;
}

void NSApplication::run() {
    const NSNativeToolkit* native = NSNative();
    if (!native) return;
    NSNativeMessage message;
    while (native->getMessage(&message)) {
        // Everything a window procedure autoreleases ends with its message.
        NSAutoreleasePoolScope pool;
        native->dispatchMessage(&message);
    }
}

void NSApplication::terminate_(NSObject*) {
    SEL ask = NS_SEL("applicationShouldTerminate:");
    if (_delegate && _delegate->respondsToSelector_(ask) && NSSend<int>(_delegate, ask, this) == 0)
        return;
    std::exit(0);
}

void NSApplication::registerControl_(NSView* control) {
    if (control) _mapOfControls->setObject_forKey_(control, pointerKey(control->currentHWnd()));
}

void NSApplication::registerWindow_(NSWindow* window) {
    if (window) _windows->setObject_forKey_(window, pointerKey(window->hWnd()));
}

void NSApplication::registerTableView_(NSObject* view) {
    if (view) _tableViews->setObject_forKey_(view, numberKey(NSSend<void*>(view, NS_SEL("hWnd"))));
}

void NSApplication::registerTabView_(NSObject* view) {
    if (view) _tabViews->setObject_forKey_(view, numberKey(NSSend<void*>(view, NS_SEL("hWnd"))));
}

void NSApplication::registerButton_forKeyEquiv_(NSButton* button, NSString* key) {
    _keyEquivalents->addObject_forKey_(button, key);
}

NSControl* NSApplication::controlForHandle(void* handle) {
    return static_cast<NSControl*>(_mapOfControls->objectForKey_(pointerKey(handle)));
}

NSWindow* NSApplication::windowForHandle(void* handle) {
    return static_cast<NSWindow*>(_windows->objectForKey_(pointerKey(handle)));
}

NSObject* NSApplication::tableViewForHandle(void* handle) {
    return _tableViews->objectForKey_(numberKey(handle));
}

NSObject* NSApplication::tabViewForHandle(void* handle) {
    return _tabViews->objectForKey_(numberKey(handle));
}

NSMutableArray* NSApplication::buttonsForKeyEquiv(NSString* key) {
    return _keyEquivalents->objectsForKey_(key);
}

bool NSApplication::shiftFlag() { return shiftDown; }

void NSApplication::setShiftFlag(bool down) { shiftDown = down; }

NSTextField* NSApplication::hintLine() { return hint; }

void NSApplication::setHintLine(NSTextField* field) { hint = field; }

NS_CLASS_BEGIN(NSApplication, NSResponder)
    NS_METHOD(init)
    NS_METHOD(delegate)
    NS_METHOD(setDelegate_)
    NS_METHOD(mainWindow)
    NS_METHOD(run)
    NS_METHOD(terminate_)
    NS_METHOD(addControl_)
    NS_METHOD(controls)
    NS_METHOD(windows)
    NS_METHOD(tableViews)
    NS_METHOD(tabViews)
    NS_METHOD(mapOfControls)
    NS_METHOD(registerControl_)
    NS_METHOD(registerWindow_)
    NS_METHOD(registerTableView_)
    NS_METHOD(registerTabView_)
    NS_METHOD(registerButton_forKeyEquiv_)
    NS_CLASS_METHOD(sharedApplication)
    NS_FIELD(_controls)
    NS_FIELD(_tableViews)
    NS_FIELD(_tabViews)
    NS_FIELD(_mapOfControls)
    NS_FIELD(_windows)
    NS_FIELD(_delegate)
NS_CLASS_END(NSApplication)
