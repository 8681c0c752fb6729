// A sort pair: an object and the value it sorts by. The matrix resolves
// each record's sort value once and sorts the pairs, so that a reference is
// not resolved again for every comparison.
#pragma once

#include "foundation/NSObject.h"

class VTWrapper : public NSObject {
    NS_DECLARE_CLASS(VTWrapper, NSObject)

public:
    // Retains both.
    VTWrapper* initWithObject_value_(NSObject* object, NSObject* value);
    NSObject* object() { return _object; }
    NSObject* value() { return _value; }
    // The value's.
    NSString* description() override;
    // compare: of this value with the other's value, sent by selector so
    // that strings, dates and numbers each use their own order.
    int compareWithWrapper_(VTWrapper* other);

protected:
    ~VTWrapper() override = default;

private:
    Ref<NSObject> _object;
    Ref<NSObject> _value;
};
