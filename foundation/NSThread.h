// Threads with a dictionary each. The thread table maps the decimal text of
// a platform thread id to its NSThread; every thread without an entry, the
// main thread above all, is the default thread.
#pragma once

#include "NSDictionary.h"
#include "NSObject.h"

class NSThread : public NSObject {
    NS_DECLARE_CLASS(NSThread, NSObject)

public:
    static void initialize();
    static NSThread* currentThread();
    static bool isMultiThreaded();
    static void sleepForTimeInterval_(double seconds);

    // Made at first use with 10 buckets.
    NSMutableDictionary* threadDictionary();
    // The thread id's decimal text; nil for the default thread.
    NSString* threadId() { return _uid; }

protected:
    ~NSThread() override = default;

private:
    Ref<NSString> _uid;
    Ref<NSMutableDictionary> _dict;
};
