#include "app/VTVersion.h"

#include "foundation/NSString.h"

NSString* VTVersion::version() { return "3.0"_ns; }

NSString* VTVersionExt::APIVersion() { return "1.0"_ns; }

NS_CLASS_BEGIN(VTVersion, NSObject)
    NS_CLASS_METHOD(version)
NS_CLASS_END(VTVersion)

NS_CLASS_BEGIN(VTVersionExt, NSObject)
    NS_CLASS_METHOD(APIVersion)
NS_CLASS_END(VTVersionExt)
