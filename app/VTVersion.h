// The client's version texts.
#pragma once

#include "foundation/NSObject.h"

class VTVersion : public NSObject {
    NS_DECLARE_CLASS(VTVersion, NSObject)

public:
    // "3.0"
    static NSString* version();
};

class VTVersionExt : public NSObject {
    NS_DECLARE_CLASS(VTVersionExt, NSObject)

public:
    // "1.0"
    static NSString* APIVersion();
};
