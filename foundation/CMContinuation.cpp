#include "CMContinuation.h"

CMContinuation* CMContinuation::continuationWithTarget_(NSObject* target) {
    return NSAutorelease(CMContinuation::alloc()->initWithTarget_(target));
}

CMContinuation* CMContinuation::initWithTarget_(NSObject* target) {
    NSObject::init();
    _target.set(target);
    return this;
}

NSWord CMContinuation::forward__(SEL sel, const NSArgFrame* frame) {
    _selector = sel;
    // The frame's first two words arrive as two objects. Words beyond what
    // the message sent are zero, and dummy:: looks only at as many as the
    // target's operation takes.
    performv__(NS_SEL("dummy::"), frame);
    return reinterpret_cast<NSWord>(this);
}

void CMContinuation::dummy__(NSObject* first, NSObject* second) {
    int arguments = _target ? _target->class_()->argumentCountOfMethod(_selector) : -1;
    // Copies first, then the old arguments go: a message that passes the
    // kept argument again must not see it freed before it is copied.
    Ref<NSObject> copy1 = arguments >= 1 && first ? adoptRef(first->copy()) : nullptr;
    Ref<NSObject> copy2 = arguments >= 2 && second ? adoptRef(second->copy()) : nullptr;
    _arg1 = std::move(copy1);
    _arg2 = std::move(copy2);
}

NSObject* CMContinuation::call() {
    // A continuation that has kept no message has nothing to send; sending
    // a nil selector would be a fatal fault of the performSelector: family.
    if (!_target || !_selector) return nullptr;
    return _target->performSelector_withObject_withObject_(_selector, _arg1, _arg2);
}

NSObject* CMContinuation::call_(NSObject* argument) {
    if (!_arg1) {
        _arg1.set(argument);
    } else {
        _arg2.set(argument);
    }
    return call();
}

CMContinuation* NSObject::continuation() { return CMContinuation::continuationWithTarget_(this); }

NS_CLASS_BEGIN(CMContinuation, NSObject)
    NS_CLASS_METHOD(continuationWithTarget_)
    NS_METHOD(initWithTarget_)
    NS_METHOD(call)
    NS_METHOD(call_)
    NS_METHOD(dummy__)
    NS_FIELD(_target)
    NS_FIELD(_selector)
    NS_FIELD(_arg1)
    NS_FIELD(_arg2)
NS_CLASS_END(CMContinuation)

NS_EXTEND_CLASS(NSObject, Combinators)
NS_METHOD(continuation)
NS_EXTEND_END
