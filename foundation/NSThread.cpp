#include "NSThread.h"

#include <cstdio>
#include <cstdlib>

#include "NSAutoreleasePool.h"
#include "NSLock.h"
#include "NSString.h"
#include "platform/Platform.h"

namespace {

// The class-wide values, made by initialize and kept for the life of the
// process.
NSMutableDictionary* threadTable = nullptr;
NSThread* defaultThread = nullptr;
NSLock* threadLock = nullptr;
bool multiThreaded = false;  // set once, read from any thread

// Each thread remembers the answer of its first lookup: a thread's entry is
// made before the thread can look itself up and removed by the thread
// itself at its end (which clears this), so the answer can't change in
// between.
thread_local NSThread* cachedCurrent = nullptr;

// What a new thread needs, handed over by detachNewThreadSelector:...
struct DetachBlock {
    SEL selector;
    NSObject* target;
    NSObject* argument;
};

// The table's key text: the platform id printed with "%ld".
void formatThreadId(uint64_t id, char (&text)[32]) {
    std::snprintf(text, sizeof text, "%ld", static_cast<long>(id));
}

}  // namespace

void NSThread::initialize() {
    // Nothing here may be autoreleased: no thread has a pool yet.
    threadLock = NSLock::alloc()->init();
    threadTable =
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10));
    defaultThread = NSThread::alloc();
}

void NSThread::detachNewThreadSelector_toTarget_withObject_(SEL selector, NSObject* target,
                                                            NSObject* argument) {
    detachNewThread(selector, target, argument);
}

bool NSThread::detachNewThread(SEL selector, NSObject* target, NSObject* argument) {
    classObject()->ensureInitialized();
    __atomic_store_n(&multiThreaded, true, __ATOMIC_RELEASE);
    auto* block = static_cast<DetachBlock*>(std::malloc(sizeof(DetachBlock)));
    if (!block) {
        LOG("could not detach new thread");
        return false;
    }
    *block = DetachBlock{selector, target, argument};
    // The thread lock is taken before the thread exists and released only
    // once its entry is in the table. The new thread's first act is to make
    // a pool, which asks currentThread, which waits for this lock: so the
    // thread can't look itself up before it is registered.
    threadLock->lock();
    uint64_t id = 0;
    if (!vtStartThread(&NSThread::threadEntry, block, &id)) {
        threadLock->unlock();
        std::free(block);
        LOG("could not detach new thread");
        return false;
    }
    char text[32];
    formatThreadId(id, text);
    NSString* uid = NSString::alloc()->initWithUTF8String_(text);
    NSThread* thread = NSThread::alloc()->initWithId_(uid);
    threadTable->setObject_forKey_(thread, uid);
    thread->release();
    uid->release();
    threadLock->unlock();
    return true;
}

void NSThread::threadEntry(void* data) {
    auto* block = static_cast<DetachBlock*>(data);
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    NSThread* thread = currentThread();
    if (block->target) block->target->performSelector_withObject_(block->selector, block->argument);
    std::free(block);
    threadLock->lock();
    // The entry holds the only other reference to the id: kept across its
    // removal, which frees the NSThread.
    Ref<NSString> uid = retainRef(thread->threadId());
    // Inside the lock: everything the thread autoreleased dies while the
    // table is locked against the other threads. The pool's end asks
    // currentThread, which is this thread's cached entry.
    pool->release();
    if (uid) threadTable->removeObjectForKey_(uid);
    cachedCurrent = nullptr;
    threadLock->unlock();
}

NSThread* NSThread::currentThread() {
    if (NSThread* cached = cachedCurrent) return cached;
    classObject()->ensureInitialized();
    char text[32];
    formatThreadId(vtCurrentThreadId(), text);
    threadLock->lock();
    // A key made and released here: the thread may have no pool yet.
    NSString* key = NSString::alloc()->initWithUTF8String_(text);
    auto* found = static_cast<NSThread*>(threadTable->objectForKey_(key));
    key->release();
    threadLock->unlock();
    NSThread* thread = found ? found : defaultThread;
    cachedCurrent = thread;
    return thread;
}

bool NSThread::isMultiThreaded() { return __atomic_load_n(&multiThreaded, __ATOMIC_ACQUIRE); }

void NSThread::sleepForTimeInterval_(double seconds) {
    double milliseconds = seconds * 1000.0;
    // A negative or not-a-number interval doesn't sleep: it yields like 0
    // rather than wrap to an endless sleep. The longest sleep stays below
    // the platform's "forever" (0xFFFFFFFF on Win32).
    if (!(milliseconds >= 1.0)) {
        vtSleepMilliseconds(0);
    } else if (milliseconds >= 4294967294.0) {
        vtSleepMilliseconds(4294967294u);
    } else {
        vtSleepMilliseconds(static_cast<uint32_t>(milliseconds));
    }
}

void NSThread::sleepUntilDate_(NSObject* date) {
    double seconds = NSSend<double>(date, NS_SEL("timeIntervalSinceNow"));
    if (seconds > 0) sleepForTimeInterval_(seconds);
}

// The platform's levels to doubles. Idle (-15) and time critical (15) are
// the odd ones out: they map to 0.4 and 0.6, not to the ends of the scale,
// and every program that reads priorities relies on those values.
double NSThread::threadPriority() {
    int level = 0;
    if (!vtGetThreadPriority(&level)) {
        LOG("could not get thread priority");
        return -1.0;
    }
    switch (level) {
        case -15:
            return 0.4;
        case -2:
            return 0.0;
        case -1:
            return 0.25;
        case 0:
            return 0.5;
        case 1:
            return 0.75;
        case 2:
            return 1.0;
        case 15:
            return 0.6;
        default:
            return -1.0;
    }
}

bool NSThread::setThreadPriority_(double priority) {
    int level;
    if (priority < 0.1) {
        level = -2;
    } else if (priority < 0.35) {
        level = -1;
    } else if (priority < 0.65) {
        level = 0;
    } else if (priority < 0.9) {
        level = 1;
    } else {
        level = 2;
    }
    return vtSetThreadPriority(level);
}

NSThread* NSThread::initWithId_(NSString* uid) {
    NSObject::init();
    _uid.set(uid);
    return this;
}

NSMutableDictionary* NSThread::threadDictionary() {
    if (!_dict)
        _dict.adopt(static_cast<NSMutableDictionary*>(
                NSMutableDictionary::alloc()->initWithCapacity_(10)));
    return _dict;
}

uint32_t NSThread::registeredThreadCount() {
    classObject()->ensureInitialized();
    threadLock->lock();
    uint32_t count = threadTable->count();
    threadLock->unlock();
    return count;
}

NS_CLASS_BEGIN(NSThread, NSObject)
    NS_CLASS_METHOD(detachNewThreadSelector_toTarget_withObject_)
    NS_CLASS_METHOD(currentThread)
    NS_METHOD(threadDictionary)
    NS_METHOD(threadId)
    NS_METHOD(initWithId_)
    NS_CLASS_METHOD(sleepForTimeInterval_)
    NS_CLASS_METHOD(sleepUntilDate_)
    NS_CLASS_METHOD(isMultiThreaded)
    NS_CLASS_METHOD(threadPriority)
    NS_CLASS_METHOD(setThreadPriority_)
    NS_FIELD(_uid)
    NS_FIELD(_dict)
NS_CLASS_END(NSThread)
