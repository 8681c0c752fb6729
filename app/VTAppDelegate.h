// The application's delegate: the last word before the process ends.
#pragma once

#include "foundation/NSObject.h"

class VTAppDelegate : public NSObject {
    NS_DECLARE_CLASS(VTAppDelegate, NSObject)

public:
    // Lets the status item go (its end removes the tray icon), removes
    // this process's vantor.lock (a missing file is no error) and answers
    // 1.
    int applicationShouldTerminate_(NSObject* application);
    // The action of the status item; nothing to do.
    void statusItemClicked_(NSObject*) {}
    // The tray icon's owner, released at the end.
    void setStatusItem_(NSObject* item) { _statusItem.set(item); }

protected:
    ~VTAppDelegate() override = default;

private:
    Ref<NSObject> _statusItem;
};
