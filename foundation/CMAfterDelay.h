// CMAfterDelay: a message sent to it is sent to its object after the
// delay, on the calling thread, which waits; the sender gets the message's
// result. Nothing is queued. Made by afterDelay: of NSObject.
#pragma once

#include "NSObject.h"

class CMAfterDelay : public NSObject {
    NS_DECLARE_CLASS(CMAfterDelay, NSObject)

public:
    // Autoreleased.
    static CMAfterDelay* afterDelayWithObject_delay_(NSObject* object, double seconds);
    // Retains the object.
    CMAfterDelay* initWithObject_delay_(NSObject* object, double seconds);
    // Sleeps (sleepForTimeInterval:), then replays the frame to the object
    // with performv::.
    NSWord forward__(SEL sel, const NSArgFrame* frame) override;

protected:
    ~CMAfterDelay() override = default;

private:
    Ref<NSObject> _object;
    double _timeInterval = 0;
};
