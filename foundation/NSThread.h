// Threads with a dictionary each. The thread table maps the decimal text of
// a platform thread id to its NSThread; every thread without an entry, the
// main thread above all, is the default thread. Threads are platform
// threads (Win32 threads in the client, see platform/Platform.h).
#pragma once

#include "NSDictionary.h"
#include "NSObject.h"

class NSLock;

class NSThread : public NSObject {
    NS_DECLARE_CLASS(NSThread, NSObject)

public:
    // Makes the thread table, the default thread and the thread lock.
    static void initialize();
    // Starts a thread that sends target the selector with argument, under a
    // pool of its own. Neither target nor argument is retained: they must
    // outlive the thread. The new thread is in the table before its code
    // can look itself up. A thread that can't be started logs "could not
    // detach new thread" and nothing else happens.
    static void detachNewThreadSelector_toTarget_withObject_(SEL selector, NSObject* target,
                                                             NSObject* argument);
    // The same, telling whether the thread started, for callers that hand
    // the new thread a reference of their own (timers, CMInNewThread).
    static bool detachNewThread(SEL selector, NSObject* target, NSObject* argument);
    // The calling thread's entry in the table, or the default thread.
    static NSThread* currentThread();
    // False until the first detachNewThreadSelector:toTarget:withObject:.
    static bool isMultiThreaded();
    // Whole milliseconds, truncated; 0 (or less) yields the time slice.
    static void sleepForTimeInterval_(double seconds);
    // Sleeps for the date's timeIntervalSinceNow; a past date doesn't sleep.
    static void sleepUntilDate_(NSObject* date);
    // 0.0 (lowest) to 1.0 (highest), see NSThread.cpp; -1.0 for a platform
    // value outside the table or when it can't be read (logged).
    static double threadPriority();
    // True when the platform accepted.
    static bool setThreadPriority_(double priority);

    // Retains the id.
    NSThread* initWithId_(NSString* uid);
    // Made at first use with 10 buckets. Only its own thread touches it.
    NSMutableDictionary* threadDictionary();
    // The thread id's decimal text; nil for the default thread.
    NSString* threadId() { return _uid; }

    // Not an operation of the class: the number of registered threads, for
    // tests and diagnostics that wait for detached threads to end.
    static uint32_t registeredThreadCount();

protected:
    ~NSThread() override = default;

private:
    static void threadEntry(void* block);

    Ref<NSString> _uid;
    Ref<NSMutableDictionary> _dict;
};
