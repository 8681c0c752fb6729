#include "NSTimer.h"

#include "NSInvocation.h"
#include "NSThread.h"

NSTimer* NSTimer::scheduledTimerWithTimeInterval_invocation_repeats_(double seconds,
                                                                     NSInvocation* invocation,
                                                                     bool repeats) {
    NSTimer* timer = NSTimer::alloc();
    timer->_seconds = seconds;
    timer->_invocation.set(invocation);
    timer->_repeats = repeats ? 1 : 0;
    timer->_valid = 1;
    // The thread holds a reference of its own until sleepAndFire is over,
    // so that a caller who invalidates and releases at once doesn't free a
    // timer whose thread is still asleep.
    timer->retain();
    if (!NSThread::detachNewThread(NS_SEL("sleepAndFire"), timer, nullptr)) timer->release();
    return timer;
}

void NSTimer::sleepAndFire() {
    for (;;) {
        NSThread::sleepForTimeInterval_(_seconds);
        if (!isValid()) break;
        fire();
        if (!_repeats) break;
    }
    release();
}

void NSTimer::fire() { NSNil(_invocation.get(), &NSInvocation::invoke); }

NS_CLASS_BEGIN(NSTimer, NSObject)
    NS_CLASS_METHOD(scheduledTimerWithTimeInterval_invocation_repeats_)
    NS_METHOD(sleepAndFire)
    NS_METHOD(fire)
    NS_METHOD(invalidate)
    NS_METHOD(repeats)
    NS_METHOD(seconds)
    NS_FIELD(_seconds)
    NS_FIELD(_invocation)
    NS_FIELD(_repeats)
    NS_FIELD(_valid)
NS_CLASS_END(NSTimer)
