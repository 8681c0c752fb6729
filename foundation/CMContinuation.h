// CMContinuation: keeps a message without sending it, to be sent later by
// call. The sender of the kept message gets the continuation itself, so
// the message can be written in line:
//   NSObject* later = NSSend(control->continuation(), NS_SEL("hWnd"));
//   ... NSSend(later, NS_SEL("call"));
// It keeps at most two arguments, both objects, as copies; a later message
// replaces an earlier one. Not thread-safe; call runs on the calling thread.
#pragma once

#include "NSObject.h"

class CMContinuation : public NSObject {
    NS_DECLARE_CLASS(CMContinuation, NSObject)

public:
    // Autoreleased.
    static CMContinuation* continuationWithTarget_(NSObject* target);
    // Retains the target.
    CMContinuation* initWithTarget_(NSObject* target);
    // Keeps sel and copies of its first two argument words.
    NSWord forward__(SEL sel, const NSArgFrame* frame) override;
    // Sends the target the kept selector with arg1 and arg2
    // (performSelector:withObject:withObject:) and gives its result. Can be
    // called again: nothing is used up.
    NSObject* call();
    // Completes the message with one argument (retained): into arg1 when
    // that is empty, else into arg2, replacing what was there; then call.
    NSObject* call_(NSObject* argument);
    // Internal: receives the caught frame as two objects.
    void dummy__(NSObject* first, NSObject* second);

protected:
    ~CMContinuation() override = default;

private:
    Ref<NSObject> _target;
    SEL _selector = nullptr;
    Ref<NSObject> _arg1;
    Ref<NSObject> _arg2;
};
