// Timers. There is no run loop: a scheduled timer is a thread of its own
// that sleeps, fires on that thread, and sleeps again while it repeats.
#pragma once

#include <cstdint>

#include "NSObject.h"

class NSInvocation;

class NSTimer : public NSObject {
    NS_DECLARE_CLASS(NSTimer, NSObject)

public:
    // A valid timer that the caller owns (release it), with the invocation
    // retained; starts the timer's thread at once.
    static NSTimer* scheduledTimerWithTimeInterval_invocation_repeats_(double seconds,
                                                                       NSInvocation* invocation,
                                                                       bool repeats);
    // The timer thread's body: sleeps `seconds`; ends if no longer valid;
    // fires; starts over if it repeats.
    void sleepAndFire();
    // Sends invoke to the invocation on the calling thread.
    void fire();
    // A sleeping timer ends when its sleep is over, without firing.
    void invalidate() { __atomic_store_n(&_valid, 0, __ATOMIC_RELEASE); }
    bool isValid() { return __atomic_load_n(&_valid, __ATOMIC_ACQUIRE) != 0; }
    bool repeats() { return _repeats != 0; }
    double seconds() { return _seconds; }

protected:
    ~NSTimer() override = default;

private:
    double _seconds = 0;
    Ref<NSInvocation> _invocation;
    uint8_t _repeats = 0;
    uint8_t _valid = 0;
};
