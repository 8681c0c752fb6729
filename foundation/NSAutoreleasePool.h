// Autorelease pools: a stack per thread, kept in the thread's dictionary
// under "__autorelease_pools" (the pools, slots of ended pools holding nil
// for reuse) and "__autorelease_pool_index" (the current index; none means
// -1). Pools must end in the reverse order of their creation.
#pragma once

#include <cstdint>

#include "NSObject.h"

class NSMutableArray;

class NSAutoreleasePool : public NSObject {
    NS_DECLARE_CLASS(NSAutoreleasePool, NSObject)

public:
    // Pushes a new pool on the calling thread's stack and makes it current.
    NSAutoreleasePool* init() override;
    NSAutoreleasePool* initForDebugging();
    // Takes over the caller's reference: released once when the pool ends.
    void addObject_(NSObject* object);
    // Ends the current pool of the calling thread, whichever it is.
    void dealloc() override;

    // Class operations on the calling thread's pool stack. addObject: as a
    // class operation puts the object in the current pool, or logs and
    // leaks it when the thread has none.
    static void addObjectToCurrentPool(NSObject* object);
    static NSMutableArray* pools();
    static int poolIndex();
    static void setPoolIndex_(int index);

protected:
    ~NSAutoreleasePool() override;

private:
    Ref<NSMutableArray> _objects;
    uint8_t _debugMode = 0;
    uint32_t _objCount = 0;
};

// A pool for the life of a block: made on entry, ended on every way out of
// it, so that a loop round or a function with early returns cannot leave
// its pool behind (or end it twice).
class NSAutoreleasePoolScope {
public:
    NSAutoreleasePoolScope() : _pool(NSAutoreleasePool::alloc()->init()) {}
    ~NSAutoreleasePoolScope() { _pool->release(); }
    NSAutoreleasePoolScope(const NSAutoreleasePoolScope&) = delete;
    NSAutoreleasePoolScope& operator=(const NSAutoreleasePoolScope&) = delete;

private:
    NSAutoreleasePool* _pool;
};
