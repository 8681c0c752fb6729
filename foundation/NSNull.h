// The shared null: the one instance that marks an empty slot where nil
// can't be stored. It ignores release and is never freed.
#pragma once

#include "NSObject.h"

class NSNull : public NSObject {
    NS_DECLARE_CLASS(NSNull, NSObject)

public:
    static void initialize();
    static NSNull* null();
    void release() override {}
    NSObject* retain() override { return this; }
    NSObject* autorelease() override { return this; }
    NSString* description() override;
    // Before every string, number and date, equal to itself and nil: the
    // shared null takes part in NSCompareKinds, so that a sort that meets
    // it gets the same answer from either side.
    int compare_(NSObject* other);
    // Archiving (storage/ValueCoding.cpp).
    void encodeWithCoder_(NSCoder* coder) override;
};
