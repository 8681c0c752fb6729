#include "toolkit/NSApplication.h"

#include <cstdlib>

namespace {
NSApplication* sharedApp = nullptr;

NSMutableDictionary* newDictionary() {
    return static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(16));
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
    return this;
}

void NSApplication::terminate_(NSObject*) {
    SEL ask = NS_SEL("applicationShouldTerminate:");
    if (_delegate && _delegate->respondsToSelector_(ask) && NSSend<int>(_delegate, ask, this) == 0) return;
    std::exit(0);
}

NS_CLASS_BEGIN(NSApplication, NSResponder)
    NS_METHOD(init)
    NS_METHOD(delegate)
    NS_METHOD(setDelegate_)
    NS_METHOD(mainWindow)
    NS_METHOD(terminate_)
    NS_METHOD(addControl_)
    NS_METHOD(controls)
    NS_METHOD(windows)
    NS_METHOD(tableViews)
    NS_METHOD(tabViews)
    NS_METHOD(mapOfControls)
    NS_CLASS_METHOD(sharedApplication)
    NS_FIELD(_controls)
    NS_FIELD(_tableViews)
    NS_FIELD(_tabViews)
    NS_FIELD(_mapOfControls)
    NS_FIELD(_windows)
    NS_FIELD(_delegate)
NS_CLASS_END(NSApplication)
