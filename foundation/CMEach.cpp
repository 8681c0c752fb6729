#include "CMEach.h"

CMEach* CMEach::eachWithContainer_(NSObject* container) {
    return NSAutorelease(CMEach::alloc()->initWithContainer_(container));
}

CMEach* CMEach::initWithContainer_(NSObject* container) {
    NSObject::init();
    _container.set(container);
    return this;
}

NSWord CMEach::forward__(SEL sel, const NSArgFrame* frame) {
    CMEnumerate(_container, [&](NSObject* element) { element->performv__(sel, frame); });
    return 0;
}

CMEach* NSArray::each() { return CMEach::eachWithContainer_(this); }

NS_CLASS_BEGIN(CMEach, NSObject)
    NS_CLASS_METHOD(eachWithContainer_)
    NS_METHOD(initWithContainer_)
    NS_FIELD(_container)
NS_CLASS_END(CMEach)

NS_EXTEND_CLASS(NSArray, Combinators)
NS_METHOD(each)
NS_EXTEND_END
