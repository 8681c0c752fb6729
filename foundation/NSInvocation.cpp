#include "NSInvocation.h"

NSMethodSignature* NSMethodSignature::initWithSelector_(SEL sel) {
    _selector = sel;
    return this;
}

NSInvocation* NSInvocation::invocationWithMethodSignature_(NSMethodSignature* signature) {
    NSInvocation* invocation = alloc();
    invocation->_signature.set(signature);
    return NSAutorelease(invocation);
}

SEL NSInvocation::selector() { return _signature ? _signature->selector() : nullptr; }

void NSInvocation::invoke() {
    if (!_target) return;
    if (!_args) {
        _target->performSelector_(selector());
    } else {
        _target->performv__(selector(), _args);
    }
}

void NSInvocation::invokeWithTarget_(NSObject* target) {
    if (!target) return;
    if (!_args) {
        target->performSelector_(selector());
    } else {
        _returnValue = target->performv__(selector(), _args);
    }
}

NS_CLASS_BEGIN(NSMethodSignature, NSObject)
    NS_METHOD(initWithSelector_)
    NS_METHOD(selector)
    NS_METHOD(setSelector_)
    NS_FIELD(_selector)
NS_CLASS_END(NSMethodSignature)

NS_CLASS_BEGIN(NSInvocation, NSObject)
    NS_METHOD(setArguments_)
    NS_METHOD(setTarget_)
    NS_METHOD(invoke)
    NS_METHOD(invokeWithTarget_)
    NS_METHOD(getReturnValue_)
    NS_METHOD(setReturnValue_)
    NS_METHOD(selector)
    NS_FIELD(_signature)
    NS_FIELD(_target)
    NS_FIELD(_returnValue)
NS_CLASS_END(NSInvocation)
