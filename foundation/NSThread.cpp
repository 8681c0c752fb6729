#include "NSThread.h"

#include <chrono>
#include <mutex>
#include <thread>

#include "NSString.h"
#include "platform/Platform.h"

namespace {

NSMutableDictionary* threadTable = nullptr;
NSThread* defaultThread = nullptr;
std::recursive_mutex* threadLock = nullptr;
bool multiThreaded = false;

// Each thread remembers the answer of its first lookup: a thread's entry is
// made before the thread runs and removed by the thread itself at its end,
// so the answer can't change in between.
thread_local NSThread* cachedCurrent = nullptr;

}  // namespace

void NSThread::initialize() {
    threadLock = new std::recursive_mutex;
    // The table's own dictionary and pools can't be autoreleased yet: made
    // owned and kept for the life of the process.
    threadTable = static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10));
    defaultThread = NSThread::alloc();
}

NSThread* NSThread::currentThread() {
    if (cachedCurrent) return cachedCurrent;
    classObject()->ensureInitialized();
    char uid[32];
    std::snprintf(uid, sizeof uid, "%ld", static_cast<long>(vtCurrentThreadId()));
    NSThread* found;
    {
        std::lock_guard<std::recursive_mutex> guard(*threadLock);
        // A stack-built key: no pool may exist yet on this thread.
        NSString* key = NSString::alloc()->initWithUTF8String_(uid);
        found = static_cast<NSThread*>(threadTable->objectForKey_(key));
        key->release();
    }
    NSThread* thread = found ? found : defaultThread;
    cachedCurrent = thread;
    return thread;
}

bool NSThread::isMultiThreaded() { return multiThreaded; }

void NSThread::sleepForTimeInterval_(double seconds) {
    if (seconds > 0) std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

NSMutableDictionary* NSThread::threadDictionary() {
    if (!_dict) _dict.adopt(static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10)));
    return _dict;
}

NS_CLASS_BEGIN(NSThread, NSObject)
    NS_METHOD(threadDictionary)
    NS_METHOD(threadId)
    NS_CLASS_METHOD(currentThread)
    NS_CLASS_METHOD(isMultiThreaded)
    NS_CLASS_METHOD(sleepForTimeInterval_)
    NS_FIELD(_uid)
    NS_FIELD(_dict)
NS_CLASS_END(NSThread)
