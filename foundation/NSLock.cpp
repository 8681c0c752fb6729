#include "NSLock.h"

#include "NSString.h"
#include "platform/Platform.h"

NSLock* NSLock::init() {
    NSObject::init();
    if (!_cs) _cs = vtLockCreate();
    return this;
}

// A lock that was never sent init makes its critical section at first use,
// as an allocated instance is meant to be usable at zero.
void NSLock::lock() {
    if (!_cs) init();
    vtLockEnter(_cs);
    __atomic_store_n(&_locked, 1, __ATOMIC_RELEASE);
}

void NSLock::unlock() {
    if (!_cs) return;
    __atomic_store_n(&_locked, 0, __ATOMIC_RELEASE);
    vtLockLeave(_cs);
}

bool NSLock::tryLock() {
    if (!_cs) init();
    if (!vtLockTryEnter(_cs)) return false;
    __atomic_store_n(&_locked, 1, __ATOMIC_RELEASE);
    return true;
}

void NSLock::dealloc() {
    vtLockDestroy(_cs);
    _cs = nullptr;
    NSObject::dealloc();
}

NSRecursiveLock* NSRecursiveLock::initWithName_(NSString* name) {
    init();
    _name.set(name);
    return this;
}

// The platform lock is re-entrant already; count only tracks the depth so
// that the owner can tell.
void NSRecursiveLock::lock() {
    NSLock::lock();
    _count++;
}

void NSRecursiveLock::unlock() {
    // An unlock without a lock would leave a critical section that this
    // thread doesn't hold: ignored.
    if (_count <= 0) return;
    _count--;
    NSLock::unlock();
}

bool NSRecursiveLock::tryLock() {
    LOG("unsupported tryLock");
    return false;
}

NS_CLASS_BEGIN(NSLock, NSObject)
    NS_METHOD(init)
    NS_METHOD(lock)
    NS_METHOD(unlock)
    NS_METHOD(tryLock)
    NS_METHOD(isLocked)
    NS_METHOD(dealloc)
    NS_FIELD(_locked)
NS_CLASS_END(NSLock)

NS_CLASS_BEGIN(NSRecursiveLock, NSLock)
    NS_METHOD(initWithName_)
    NS_METHOD(lock)
    NS_METHOD(unlock)
    NS_METHOD(tryLock)
    NS_FIELD(_count)
    NS_FIELD(_name)
NS_CLASS_END(NSRecursiveLock)
