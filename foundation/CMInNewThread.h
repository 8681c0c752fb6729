// CMInNewThread: a message sent to it is sent to its object on a new
// thread (detachNewThreadSelector:toTarget:withObject:), under that
// thread's pool; the sender gets nil at once and doesn't wait. Made by
// inNewThread of NSObject.
//
// A frame is valid only while its send runs, so forward:: copies selector
// and arguments before it returns, and the combinator keeps itself alive
// until fire is over although it was autoreleased on the calling thread.
// Object arguments are copied as words, not retained: like the target of
// a detached thread they must outlive the new thread's send.
#pragma once

#include "NSObject.h"

class CMInNewThread : public NSObject {
    NS_DECLARE_CLASS(CMInNewThread, NSObject)

public:
    // Autoreleased.
    static CMInNewThread* inNewThreadWithObject_(NSObject* object);
    // Retains the object.
    CMInNewThread* initWithObject_(NSObject* object);
    NSWord forward__(SEL sel, const NSArgFrame* frame) override;
    // On the new thread: replays the kept message to the object with
    // performv::, then lets the combinator go.
    void fire();
    void dealloc() override;

protected:
    ~CMInNewThread() override = default;

private:
    Ref<NSObject> _object;
    SEL _selector = nullptr;
    NSArgFrame* _argFrame = nullptr;  // owned copy
};
