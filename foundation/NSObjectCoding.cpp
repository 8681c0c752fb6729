// The defaults of encodeWithCoder: and initWithCoder: for every class that
// has no body of its own: its archive is its class name alone. They live in
// the foundation, beside the class they belong to, although the coder is a
// class of the storage layer: they never touch the coder, so the foundation
// links without it.
#include "foundation/NSObject.h"

void NSObject::encodeWithCoder_(NSCoder*) { LOG("encodeWithCoder -- abstract!"); }

// The receiver came from alloc for this call alone and nobody else holds
// it, so giving up on it means releasing it, as any failing init does.
NSObject* NSObject::initWithCoder_(NSCoder*) {
    LOG("initWithCoder -- abstract!");
    release();
    return nullptr;
}

NS_EXTEND_CLASS(NSObject, Coding)
NS_METHOD(encodeWithCoder_)
NS_METHOD(initWithCoder_)
NS_EXTEND_END
