// Locks. NSLock has the semantics of a critical section: the thread that
// holds it passes lock again and must unlock as often. The thread table
// depends on that (a thread's pool ends under the thread lock, and the
// pool's end asks currentThread, which takes the same lock).
#pragma once

#include <cstdint>

#include "NSObject.h"

struct VTLock;

class NSLock : public NSObject {
    NS_DECLARE_CLASS(NSLock, NSObject)

public:
    NSLock* init() override;
    // Enters, waiting for another holder to leave; sets locked.
    virtual void lock();
    // Clears locked and leaves once.
    virtual void unlock();
    // Enters without waiting; true (and locked set) on success.
    virtual bool tryLock();
    // A hint only: the first unlock clears it, although a thread that
    // locked twice still holds the lock.
    bool isLocked() { return __atomic_load_n(&_locked, __ATOMIC_ACQUIRE) != 0; }
    void dealloc() override;

protected:
    ~NSLock() override = default;

    VTLock* _cs = nullptr;  // owned; the platform's critical section
    uint8_t _locked = 0;
};

// Holds a lock for one C++ scope: locks on construction, unlocks at the end
// of the scope, on every way out.
class NSLockScope {
public:
    explicit NSLockScope(NSLock* lock) : _lock(lock) { _lock->lock(); }
    ~NSLockScope() { _lock->unlock(); }
    NSLockScope(const NSLockScope&) = delete;
    NSLockScope& operator=(const NSLockScope&) = delete;

private:
    NSLock* _lock;
};

// Counts its own depth. Nothing in the system uses it.
class NSRecursiveLock : public NSLock {
    NS_DECLARE_CLASS(NSRecursiveLock, NSLock)

public:
    NSRecursiveLock* initWithName_(NSString* name);
    void lock() override;
    // The lock is free for other threads once count is back at 0.
    void unlock() override;
    // Logs "unsupported tryLock" and gives false.
    bool tryLock() override;
    int32_t count() { return _count; }
    NSString* name() { return _name; }

protected:
    ~NSRecursiveLock() override = default;

private:
    int32_t _count = 0;
    Ref<NSString> _name;
};
