#include "sync/LXDeltaRepository.h"

#include "foundation/NSArray.h"
#include "foundation/NSString.h"
#include "sync/LXDelta.h"

LXDeltaRepository* LXDeltaRepository::init() {
    NSObject::init();
    _container.adopt(LXContainer::alloc()->initWithName_("_deltas_"_ns));
    return this;
}

LXDeltaRepository* LXDeltaRepository::deltaRepository() {
    return NSAutorelease(LXDeltaRepository::alloc()->init());
}

void LXDeltaRepository::addDelta_(LXDelta* delta) { _container->set_(delta); }

LXDelta* LXDeltaRepository::firstDelta() {
    NSArray* ids = sortedIds();
    return ids->count() ? deltaWithId_(static_cast<NSString*>(ids->objectAtIndex_(0))) : nullptr;
}

NSArray* LXDeltaRepository::sortedIds() {
    NSArray* ids = _container->idsForClass_(LXDelta::classObject());
    if (!ids) return NSMutableArray::array();
    // String order on purpose: the ids are the index's id strings, and the
    // sending order is the text order of those, not the order of posting.
    return ids->sortedArrayUsingSelector_(NS_SEL("compare:"));
}

LXDelta* LXDeltaRepository::deltaWithId_(NSString* identifier) {
    return static_cast<LXDelta*>(
            _container->queryById_class_(identifier->intValue(), LXDelta::classObject()));
}

void LXDeltaRepository::removeDelta_(LXDelta* delta) { _container->delete_(delta); }

uint32_t LXDeltaRepository::count() { return _container->count_(LXDelta::classObject()); }

NS_CLASS_BEGIN(LXDeltaRepository, NSObject)
    NS_METHOD(init)
    NS_CLASS_METHOD(deltaRepository)
    NS_METHOD(addDelta_)
    NS_METHOD(firstDelta)
    NS_METHOD(removeDelta_)
    NS_METHOD(count)
    NS_FIELD(_container)
NS_CLASS_END(LXDeltaRepository)
