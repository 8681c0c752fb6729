// Index sets: a set of NSNumber objects made by numberWithInt:, in a table
// of 10 buckets. A number hashes to its value, so indices enumerate by
// index modulo 10, then in the order they were added: 11, 2, 20 give
// 20, 11, 2. Not ascending.
#pragma once

#include <cstdint>

#include "NSSet.h"

class NSNumber;

class NSIndexSet : public NSObject {
    NS_DECLARE_CLASS(NSIndexSet, NSObject)

public:
    // 10 buckets.
    NSIndexSet* init() override;
    // Autoreleased.
    static NSIndexSet* indexSet();
    uint32_t count();
    bool containsIndex_(uint32_t index);
    // Autoreleased; gives NSNumber objects in the set's enumeration order.
    NSEnumerator* indexEnumerator();

protected:
    ~NSIndexSet() override = default;
    // An index is kept as numberWithInt: of it; indices beyond INT32_MAX
    // wrap to negative numbers, as that conversion does.
    static NSNumber* numberForIndex(uint32_t index);

    Ref<NSMutableSet> _set;
};

class NSMutableIndexSet : public NSIndexSet {
    NS_DECLARE_CLASS(NSMutableIndexSet, NSIndexSet)

public:
    // Autoreleased.
    static NSMutableIndexSet* indexSet();
    void addIndex_(uint32_t index);
};
