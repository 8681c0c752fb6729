#include "NSIndexSet.h"

#include "NSValue.h"

NSIndexSet* NSIndexSet::init() {
    _set.adopt(NSMutableSet::alloc()->init());
    return this;
}

NSIndexSet* NSIndexSet::indexSet() { return NSAutorelease(alloc()->init()); }

uint32_t NSIndexSet::count() { return NSNil(_set.get(), &NSSet::count); }

NSNumber* NSIndexSet::numberForIndex(uint32_t index) {
    return NSNumber::numberWithInt_(static_cast<int>(index));
}

bool NSIndexSet::containsIndex_(uint32_t index) {
    return NSNil(_set.get(), &NSSet::member_, numberForIndex(index));
}

NSEnumerator* NSIndexSet::indexEnumerator() {
    if (!_set) return NSMutableArray::array()->objectEnumerator();
    return _set->objectEnumerator();
}

// ---------------------------------------------------------------------------

NSMutableIndexSet* NSMutableIndexSet::indexSet() {
    return static_cast<NSMutableIndexSet*>(NSAutorelease(alloc()->init()));
}

void NSMutableIndexSet::addIndex_(uint32_t index) {
    NSNil(_set.get(), &NSMutableSet::addObject_, numberForIndex(index));
}

NS_CLASS_BEGIN(NSIndexSet, NSObject)
    NS_METHOD(init)
    NS_CLASS_METHOD(indexSet)
    NS_METHOD(count)
    NS_METHOD(containsIndex_)
    NS_METHOD(indexEnumerator)
    NS_FIELD(_set)
NS_CLASS_END(NSIndexSet)

NS_CLASS_BEGIN(NSMutableIndexSet, NSIndexSet)
    NS_CLASS_METHOD(indexSet)
    NS_METHOD(addIndex_)
NS_CLASS_END(NSMutableIndexSet)
