#include "storage/LXProxy.h"

LXProxy* LXProxy::initWithObject_(NSObject* object) {
    NSObject::init();
    _object.set(object);
    return this;
}

LXProxy* LXProxy::proxyWithObject_(NSObject* object) {
    return NSAutorelease(LXProxy::alloc()->initWithObject_(object));
}

LXProxy* LXProxy::initWithClass_(Class cls) {
    NSObject::init();
    _klass = cls;
    return this;
}

LXProxy* LXProxy::proxyWithClass_(Class cls) {
    return NSAutorelease(LXProxy::alloc()->initWithClass_(cls));
}

LXProxy* LXProxy::proxyWithClassSent(Class, Class cls) { return proxyWithClass_(cls); }

void LXProxy::instantiate() {
    if (_object || !_klass) return;
    NSObject* made = _klass->alloc();
    // init by name: a class may answer init with an operation of its own.
    if (made) made = NSSend<NSObject*>(made, NS_SEL("init"));
    _object.adopt(made);
}

NSWord LXProxy::forward__(SEL sel, const NSArgFrame* frame) {
    if (!_object) instantiate();
    return NSSendFrame(_object, sel, frame);
}

Class LXProxy::objectClass() { return NSSend<Class>(_object, NS_SEL("class")); }

bool LXProxy::isKindOfClass_(Class cls) {
    return NSSend<bool>(_object, NS_SEL("isKindOfClass:"), cls);
}

bool LXProxy::isMemberOfClass_(Class cls) {
    return NSSend<bool>(_object, NS_SEL("isMemberOfClass:"), cls);
}

bool LXProxy::respondsToSelector_(SEL sel) {
    return NSSend<bool>(_object, NS_SEL("respondsToSelector:"), sel);
}

bool LXProxy::conformsToProtocol_(NSString* protocol) {
    return NSSend<bool>(_object, NS_SEL("conformsToProtocol:"), protocol);
}

NS_CLASS_BEGIN(LXProxy, NSObject)
    NS_METHOD(initWithObject_)
    NS_CLASS_METHOD(proxyWithObject_)
    NS_METHOD(initWithClass_)
    NS_CLASS_METHOD_NAMED("proxyWithClass:", proxyWithClassSent)
    NS_METHOD(instantiate)
    NS_METHOD(forward__)
    NS_METHOD_NAMED("class", objectClass)
    NS_METHOD(isKindOfClass_)
    NS_METHOD(isMemberOfClass_)
    NS_METHOD(respondsToSelector_)
    NS_METHOD(conformsToProtocol_)
    // klass stays out of key access: a class is no object to retain.
    NS_FIELD(_object)
NS_CLASS_END(LXProxy)

NS_EXTEND_CLASS(NSObject, Proxy)
NS_METHOD(proxy)
NS_EXTEND_END
