#include "sync/LXRefusedDeltas.h"

#include <algorithm>
#include <vector>

#include "foundation/NSArray.h"
#include "foundation/NSData.h"
#include "sync/LXDelta.h"

LXRefusedDelta* LXRefusedDelta::initWithDelta_archive_reason_(LXDelta* delta, NSData* archive,
                                                              NSString* reason) {
    init();
    _reason.set(reason);
    _refused.set(NSDate::date());
    _delta.set(delta);
    _archive.set(archive);
    return this;
}

NSArray* LXRefusedDelta::attributeKeys() {
    static NSArray* keys = [] {
        NSMutableArray* list = NSMutableArray::alloc()->initWithCapacity_(4);
        list->addObject_("reason"_ns);
        list->addObject_("refused"_ns);
        list->addObject_("delta"_ns);
        list->addObject_("archive"_ns);
        return list;
    }();
    return keys;
}

NS_CLASS_BEGIN(LXRefusedDelta, NSObject)
    NS_METHOD(initWithDelta_archive_reason_)
    NS_METHOD(delta)
    NS_METHOD(archive)
    NS_METHOD(reason)
    NS_METHOD(refused)
    NS_METHOD(attributeKeys)
    NS_FIELD(_reason)
    NS_FIELD(_refused)
    NS_FIELD(_delta)
    NS_FIELD(_archive)
NS_CLASS_END(LXRefusedDelta)

LXRefusedDeltas* LXRefusedDeltas::init() {
    NSObject::init();
    _container.adopt(
            LXContainer::alloc()->initWithName_(NSString::stringWithUTF8String_(kContainerName)));
    return this;
}

bool LXRefusedDeltas::addDelta_archive_reason_(LXDelta* delta, NSData* archive, NSString* reason) {
    LXRefusedDelta* entry =
            LXRefusedDelta::alloc()->initWithDelta_archive_reason_(delta, archive, reason);
    bool stored = _container->set_(entry) >= 0;
    entry->release();
    return stored;
}

NSArray* LXRefusedDeltas::sortedIds() {
    // Numeric order: ids grow with each store, so this is the order of
    // refusal.
    NSArray* ids = _container->idsForClass_(LXRefusedDelta::classObject());
    std::vector<int> order;
    for (uint32_t i = 0, n = ids ? ids->count() : 0; i < n; i++) {
        order.push_back(static_cast<NSString*>(ids->objectAtIndex_(i))->intValue());
    }
    std::sort(order.begin(), order.end());
    NSMutableArray* sorted =
            NSMutableArray::arrayWithCapacity_(static_cast<uint32_t>(order.size()) + 1);
    for (int identifier : order) sorted->addObject_(NSString::stringWithFormat_("%d", identifier));
    return sorted;
}

LXRefusedDelta* LXRefusedDeltas::refusedDeltaWithId_(NSString* identifier) {
    return static_cast<LXRefusedDelta*>(
            _container->queryById_class_(identifier->intValue(), LXRefusedDelta::classObject()));
}

uint32_t LXRefusedDeltas::count() { return _container->count_(LXRefusedDelta::classObject()); }

NS_CLASS_BEGIN(LXRefusedDeltas, NSObject)
    NS_METHOD(init)
    NS_METHOD(addDelta_archive_reason_)
    NS_METHOD(sortedIds)
    NS_METHOD(count)
    NS_FIELD(_container)
NS_CLASS_END(LXRefusedDeltas)
