// A holder of a native icon handle, and the application icon that the
// first window class registration loaded (icon group 101 of the program).
#pragma once

#include "foundation/NSObject.h"

class NSString;

class NSImage : public NSObject {
    NS_DECLARE_CLASS(NSImage, NSObject)

public:
    NSImage* initWithIcon_(void* icon);
    // The icon file at the path (not a resource), autoreleased; an image
    // without icon if it cannot be loaded.
    static NSImage* imageNamed_(NSString* path);
    // A new autoreleased image of the application icon.
    static NSImage* applicationIcon();
    static void setApplicationIcon_(void* icon);
    void* icon() { return _icon; }

protected:
    ~NSImage() override = default;

private:
    void* _icon = nullptr;
};
