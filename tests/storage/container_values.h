// Containers of the storage tests: objects holding one text under the key
// "value", and that text read back by id.
#pragma once

#include <string>

#include "foundation/Foundation.h"
#include "storage/LXContainer.h"
#include "storage/LXManagedObject.h"

namespace container_values {

inline NSString* ns(const std::string& text) {
    return NSString::stringWithUTF8String_(text.c_str());
}

// Autoreleased.
inline LXManagedObject* object(const std::string& value) {
    LXManagedObject* o = LXManagedObject::managedObject();
    o->setObject_forKeyPath_(ns(value), "value"_ns);
    return o;
}

// "<none>" when the container holds no such object or it has no value.
inline std::string valueOf(LXContainer* container, int identifier) {
    LXManagedObject* o = container->objectWithId_(identifier);
    NSObject* value = o ? o->objectForKeyPath_("value"_ns) : nullptr;
    return value ? static_cast<NSString*>(value)->UTF8String() : "<none>";
}

}  // namespace container_values
