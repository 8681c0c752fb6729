// LXProxy stands in for an object that may not exist yet: it wraps an
// object, or records a class and makes the object (alloc, init) at the
// first message that it doesn't implement itself, which it then passes on
// with the same arguments, answering the object's result.
//
// class, isKindOfClass:, isMemberOfClass:, respondsToSelector: and
// conformsToProtocol: pass straight to the object without making it, so
// that until then they answer nil or false. They do so when sent by name
// or called on an LXProxy*; the C++ virtual class_() stays the proxy's own,
// since the runtime dispatches every message by it.
#pragma once

#include "foundation/NSObject.h"

class LXProxy : public NSObject {
    NS_DECLARE_CLASS(LXProxy, NSObject)

public:
    // Retains the object.
    LXProxy* initWithObject_(NSObject* object);
    static LXProxy* proxyWithObject_(NSObject* object);
    // Records the class only.
    LXProxy* initWithClass_(Class cls);
    static LXProxy* proxyWithClass_(Class cls);
    // Makes the object with alloc and init on the class. An object that is
    // already there stays: replacing it would drop a wrapped object (or one
    // made before) and every state it holds.
    void instantiate();
    NSWord forward__(SEL sel, const NSArgFrame* frame) override;

    // The object's answers; nil or false while there is no object.
    Class objectClass();  // registered as "class"
    bool isKindOfClass_(Class cls);
    bool isMemberOfClass_(Class cls);
    bool respondsToSelector_(SEL sel);
    bool conformsToProtocol_(NSString* protocol);

    NSObject* object() { return _object; }
    Class klass() { return _klass; }

protected:
    ~LXProxy() override = default;

private:
    // proxyWithClass: as sent by name: the runtime hands a class operation
    // whose first parameter is a Class the receiving class first.
    static LXProxy* proxyWithClassSent(Class receiver, Class cls);

    Ref<NSObject> _object;
    Class _klass = nullptr;
};
