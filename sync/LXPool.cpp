#include "sync/LXPool.h"

#include "foundation/NSCoder.h"
#include "sync/LXTransceiver.h"

LXPool* LXPool::initWithName_(NSString* name) {
    init();
    _name.set(name);
    return this;
}

LXPool* LXPool::poolWithName_(NSString* name) {
    return NSAutorelease(LXPool::alloc()->initWithName_(name));
}

void LXPool::setDelegate_(NSObject* delegate) {
    if (delegate != _delegate.get()) _delegate.set(delegate);
}

void LXPool::post_to_(LXDelta* delta, LXUser* user) {
    LXTransceiver::defaultTransceiver()->post_to_(delta, user);
}

bool LXPool::isEqual_(NSObject* other) {
    if (!other || !other->isKindOfClass_(LXPool::classObject())) return false;
    NSString* otherName = static_cast<LXPool*>(other)->_name;
    if (!_name || !otherName) return _name.get() == otherName;
    return _name->isEqual_(otherName);
}

uint32_t LXPool::hash() { return _name ? _name->hash() : 0; }

// A pool without a name is written as the empty name, so that the archive
// stays aligned (a nil writes no bytes at all).
void LXPool::encodeWithCoder_(NSCoder* coder) { coder->encodeObject_(_name ? _name.get() : ""_ns); }

NSObject* LXPool::initWithCoder_(NSCoder* coder) {
    init();
    NSObject* name = coder->decodeObject();
    if (coder->decodingFailed()) {
        release();
        return nullptr;
    }
    if (name && !name->isKindOfClass_(NSString::classObject())) {
        coder->failDecoding("pool name that is not a string");
        release();
        return nullptr;
    }
    _name.set(static_cast<NSString*>(name));
    return this;
}

NS_CLASS_BEGIN(LXPool, NSObject)
    NS_METHOD(initWithName_)
    NS_CLASS_METHOD(poolWithName_)
    NS_METHOD(setDelegate_)
    NS_METHOD(delegate)
    NS_METHOD(poolName)
    NS_METHOD(post_to_)
    NS_METHOD(isEqual_)
    NS_METHOD(hash)
    NS_METHOD(encodeWithCoder_)
    NS_METHOD(initWithCoder_)
    NS_FIELD(_name)
    NS_FIELD(_delegate)
NS_CLASS_END(LXPool)
