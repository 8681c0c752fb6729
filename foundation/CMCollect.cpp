#include "CMCollect.h"

#include "CMEach.h"

CMCollect* CMCollect::collectWithContainer_(NSObject* container) {
    return NSAutorelease(CMCollect::alloc()->initWithContainer_(container));
}

CMCollect* CMCollect::initWithContainer_(NSObject* container) {
    NSObject::init();
    _container.set(container);
    return this;
}

NSWord CMCollect::forward__(SEL sel, const NSArgFrame* frame) {
    uint32_t capacity = NSSend<uint32_t>(_container, NS_SEL("count"));
    NSMutableArray* results = NSMutableArray::arrayWithCapacity_(capacity);
    CMEnumerate(_container, [&](NSObject* element) {
        results->addObject_(reinterpret_cast<NSObject*>(element->performv__(sel, frame)));
    });
    return reinterpret_cast<NSWord>(results);
}

CMCollect* NSArray::collect() { return CMCollect::collectWithContainer_(this); }

NS_CLASS_BEGIN(CMCollect, NSObject)
    NS_CLASS_METHOD(collectWithContainer_)
    NS_METHOD(initWithContainer_)
    NS_FIELD(_container)
NS_CLASS_END(CMCollect)

NS_EXTEND_CLASS(NSArray, Combinators)
NS_METHOD(collect)
NS_EXTEND_END
