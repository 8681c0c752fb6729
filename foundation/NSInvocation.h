// A message kept as an object: the signature carries only the selector, the
// invocation a target and an argument frame that is valid only while the
// send that produced it is running.
#pragma once

#include "NSObject.h"

class NSMethodSignature : public NSObject {
    NS_DECLARE_CLASS(NSMethodSignature, NSObject)

public:
    NSMethodSignature* initWithSelector_(SEL sel);
    SEL selector() { return _selector; }
    void setSelector_(SEL sel) { _selector = sel; }

private:
    SEL _selector = nullptr;
};

class NSInvocation : public NSObject {
    NS_DECLARE_CLASS(NSInvocation, NSObject)

public:
    static NSInvocation* invocationWithMethodSignature_(NSMethodSignature* signature);
    void setArguments_(const NSArgFrame* frame) { _args = frame; }
    void setTarget_(NSObject* target) { _target = target; }
    // With no frame: performSelector: on the target. With one: replays it.
    // The result is not kept.
    void invoke();
    // As invoke, on the given target; a replayed frame's result is kept.
    void invokeWithTarget_(NSObject* target);
    void getReturnValue_(NSWord* out) { *out = _returnValue; }
    void setReturnValue_(NSWord* in) { _returnValue = *in; }
    SEL selector();

protected:
    ~NSInvocation() override = default;

private:
    Ref<NSMethodSignature> _signature;
    const NSArgFrame* _args = nullptr;
    NSObject* _target = nullptr;  // not retained
    NSWord _returnValue = 0;
};
