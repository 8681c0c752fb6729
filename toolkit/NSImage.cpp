#include "toolkit/NSImage.h"

#include "foundation/NSString.h"
#include "toolkit/NSNative.h"

namespace {
void* applicationIconHandle = nullptr;
}

NSImage* NSImage::initWithIcon_(void* icon) {
    NSObject::init();
    _icon = icon;
    return this;
}

NSImage* NSImage::imageNamed_(NSString* path) {
    void* icon = path && NSNative() ? NSNative()->loadIconFile(path->UTF8String()) : nullptr;
    return NSAutorelease(alloc()->initWithIcon_(icon));
}

NSImage* NSImage::applicationIcon() {
    return NSAutorelease(alloc()->initWithIcon_(applicationIconHandle));
}

void NSImage::setApplicationIcon_(void* icon) { applicationIconHandle = icon; }

NS_CLASS_BEGIN(NSImage, NSObject)
    NS_METHOD(initWithIcon_)
    NS_METHOD(icon)
    NS_CLASS_METHOD(imageNamed_)
    NS_CLASS_METHOD(applicationIcon)
    NS_CLASS_METHOD(setApplicationIcon_)
NS_CLASS_END(NSImage)
