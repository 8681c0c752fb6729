#include "NSNull.h"

#include "NSString.h"

namespace {
NSNull* sharedNull = nullptr;
}

void NSNull::initialize() { sharedNull = new NSNull(); }

NSNull* NSNull::null() {
    classObject()->ensureInitialized();
    return sharedNull;
}

NSString* NSNull::description() { return "<NSNull>"_ns; }

int NSNull::compare_(NSObject* other) { return NSCompareKinds(this, other); }

NS_CLASS_BEGIN(NSNull, NSObject)
    NS_METHOD(release)
    NS_METHOD(retain)
    NS_METHOD(autorelease)
    NS_METHOD(description)
    NS_METHOD(compare_)
    NS_CLASS_METHOD(null)
NS_CLASS_END(NSNull)
