#include "app/VTAppDelegate.h"

#include "app/VTClient.h"

int VTAppDelegate::applicationShouldTerminate_(NSObject*) {
    _statusItem = nullptr;
    VTReleaseLock();
    return 1;
}

NS_CLASS_BEGIN(VTAppDelegate, NSObject)
    NS_METHOD(applicationShouldTerminate_)
    NS_METHOD(statusItemClicked_)
    NS_METHOD(setStatusItem_)
NS_CLASS_END(VTAppDelegate)
