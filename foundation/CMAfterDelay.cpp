#include "CMAfterDelay.h"

#include "NSThread.h"

CMAfterDelay* CMAfterDelay::afterDelayWithObject_delay_(NSObject* object, double seconds) {
    return NSAutorelease(CMAfterDelay::alloc()->initWithObject_delay_(object, seconds));
}

CMAfterDelay* CMAfterDelay::initWithObject_delay_(NSObject* object, double seconds) {
    NSObject::init();
    _object.set(object);
    _timeInterval = seconds;
    return this;
}

NSWord CMAfterDelay::forward__(SEL sel, const NSArgFrame* frame) {
    NSThread::sleepForTimeInterval_(_timeInterval);
    return _object ? _object->performv__(sel, frame) : 0;
}

CMAfterDelay* NSObject::afterDelay_(double delay) {
    return CMAfterDelay::afterDelayWithObject_delay_(this, delay);
}

NS_CLASS_BEGIN(CMAfterDelay, NSObject)
    NS_CLASS_METHOD(afterDelayWithObject_delay_)
    NS_METHOD(initWithObject_delay_)
    NS_FIELD(_object)
    NS_FIELD(_timeInterval)
NS_CLASS_END(CMAfterDelay)

NS_EXTEND_CLASS(NSObject, Combinators)
NS_METHOD(afterDelay_)
NS_EXTEND_END
