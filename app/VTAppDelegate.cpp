#include "app/VTAppDelegate.h"

#include "app/VTClient.h"
#include "foundation/platform/Platform.h"

int VTAppDelegate::applicationShouldTerminate_(NSObject*) {
    _statusItem = nullptr;
    vtRemoveFile(kVTLockFile);
    return 1;
}

NS_CLASS_BEGIN(VTAppDelegate, NSObject)
    NS_METHOD(applicationShouldTerminate_)
    NS_METHOD(statusItemClicked_)
    NS_METHOD(setStatusItem_)
NS_CLASS_END(VTAppDelegate)
