// A sort descriptor: a comparison by selector between two objects. The key
// and the direction are kept but have no effect on the comparison.
#pragma once

#include <cstdint>

#include "NSObject.h"

class NSSortDescriptor : public NSObject {
    NS_DECLARE_CLASS(NSSortDescriptor, NSObject)

public:
    // Retains the key.
    NSSortDescriptor* initWithKey_ascending_selector_(NSString* keyPath, bool ascending,
                                                      SEL selector);
    // No selector: compare: is used.
    NSSortDescriptor* initWithKey_ascending_(NSString* keyPath, bool ascending);
    // Sends the first object the selector (or compare:) with the second as
    // argument and answers its result; 0 when the first is nil.
    int compareObject_toObject_(NSObject* first, NSObject* second);

    NSString* keyPath() { return _keyPath; }
    bool ascending() { return _ascending; }
    SEL selector() { return _selector; }

protected:
    // The key goes with the destructor (dealloc releases it).
    ~NSSortDescriptor() override = default;

    Ref<NSString> _keyPath;
    uint8_t _ascending = 0;
    SEL _selector = nullptr;
};
