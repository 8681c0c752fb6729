#include "structures/NSOperationQueue.h"

#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSThread.h"

namespace {

// One serial for the whole process. Queues have locks of their own, so the
// counter can't rely on any of them.
std::atomic<uint32_t> gSerial{0};

bool ask(NSObject* operation, SEL question) { return NSSend<bool>(operation, question); }

}  // namespace

NSOperationQueue* NSOperationQueue::init() {
    NSObject::init();
    _maxConcurrentCount = 4;
    _lock.adopt(NSLock::alloc()->init());
    _heap.adopt(LXPriorityHeap::alloc()->init());
    __atomic_store_n(&_running, 1, __ATOMIC_RELEASE);
    // The thread is handed no reference: the queue waits for it in dealloc.
    if (!NSThread::detachNewThread(NS_SEL("loop"), this, nullptr)) {
        __atomic_store_n(&_loopEnded, 1, __ATOMIC_RELEASE);
    }
    return this;
}

void NSOperationQueue::addOperation_(NSOperation* operation) {
    if (!operation) return;
    int32_t priority = NSSend<int32_t>(operation, NS_SEL("priority"));
    _lock->lock();
    uint32_t serial = gSerial.fetch_add(1) + 1;
    // In unsigned arithmetic: shifting a negative priority is undefined in
    // C++, and the wrap-around is the key: higher priorities sort first.
    uint32_t shifted = static_cast<uint32_t>(priority) << 16;
    int32_t key = static_cast<int32_t>((0u - shifted) | serial);
    _heap->add_value_(key, operation);
    _lock->unlock();
}

uint32_t NSOperationQueue::operationCount() {
    _lock->lock();
    uint32_t n = _heap->count();
    _lock->unlock();
    return n;
}

void NSOperationQueue::waitUntilAllOperationsAreFinished() {
    _lock->lock();
    while (_heap->count() != 0) {
        _lock->unlock();
        NSThread::sleepForTimeInterval_(0.1);
        _lock->lock();
    }
    _lock->unlock();
}

// The pause of 0.1 s between two looks at the queue, in slices, so that a queue being freed
// doesn't wait out the whole pause.
void NSOperationQueue::pause() {
    for (int i = 0; i < 10 && __atomic_load_n(&_running, __ATOMIC_ACQUIRE); i++) {
        NSThread::sleepForTimeInterval_(0.01);
    }
}

bool NSOperationQueue::step() {
    _lock->lock();
    if (_heap->count() == 0) {
        _lock->unlock();
        return true;
    }
    // Only the minimum is looked at: one that isn't ready holds up all the
    // others. The heap keeps it alive: only this thread removes.
    NSObject* operation = _heap->minimum();
    _lock->unlock();

    bool finished = ask(operation, NS_SEL("isFinished"));
    if (!finished && ask(operation, NS_SEL("isReady")) && !ask(operation, NS_SEL("isExecuting"))) {
        if (ask(operation, NS_SEL("isConcurrent"))) {
            NSSend<void>(operation, NS_SEL("start"));
            return true;
        }
        NSSend<void>(operation, NS_SEL("main"));
        return false;
    }
    if (finished) {
        _lock->lock();
        // Another thread may have added a more urgent operation since the
        // minimum was read; removing blindly would drop that one unrun. The
        // finished one stays and is found again later.
        if (_heap->minimum() == operation) _heap->removeMinimum();
        _lock->unlock();
        return false;
    }
    return true;
}

void NSOperationQueue::loop() {
    _worker.store(std::this_thread::get_id());
    while (__atomic_load_n(&_running, __ATOMIC_ACQUIRE)) {
        // A pool per pass: the thread's own pool would only end with the
        // queue, and a busy operation autoreleases at every main.
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        bool wait = step();
        pool->release();
        if (wait) pause();
    }
    bool freeHere = __atomic_load_n(&_freeOnExit, __ATOMIC_ACQUIRE) != 0;
    __atomic_store_n(&_loopEnded, 1, __ATOMIC_RELEASE);
    if (freeHere) NSObject::dealloc();
}

void NSOperationQueue::dealloc() {
    __atomic_store_n(&_running, 0, __ATOMIC_RELEASE);
    if (!__atomic_load_n(&_loopEnded, __ATOMIC_ACQUIRE) &&
        std::this_thread::get_id() == _worker.load()) {
        // Freed by an operation on the worker itself: waiting would never
        // end, so the loop frees the queue when it comes back to it.
        __atomic_store_n(&_freeOnExit, 1, __ATOMIC_RELEASE);
        return;
    }
    while (!__atomic_load_n(&_loopEnded, __ATOMIC_ACQUIRE)) NSThread::sleepForTimeInterval_(0.005);
    NSObject::dealloc();
}

NS_CLASS_BEGIN(NSOperationQueue, NSObject)
    NS_METHOD(init)
    NS_METHOD(addOperation_)
    NS_METHOD(waitUntilAllOperationsAreFinished)
    NS_METHOD(setMaxConcurrentOperationCount_)
    NS_METHOD(loop)
    NS_METHOD(dealloc)
    NS_FIELD(_maxConcurrentCount)
    NS_FIELD(_lock)
    NS_FIELD(_heap)
    NS_FIELD(_running)
NS_CLASS_END(NSOperationQueue)
