// The chain of keyboard focus: Tab goes to nextResponder, Shift+Tab to
// previousResponder.
#pragma once

#include "foundation/NSObject.h"

class NSResponder : public NSObject {
    NS_DECLARE_CLASS(NSResponder, NSObject)

public:
    // Links both directions: the argument's previousResponder becomes the
    // receiver.
    void setNextResponder_(NSResponder* responder);
    void setPreviousResponder_(NSResponder* responder) { _previousResponder = responder; }
    NSResponder* nextResponder() { return _nextResponder; }
    NSResponder* previousResponder() { return _previousResponder; }
    void setMenu_(NSObject* menu) { _menu.set(menu); }
    NSObject* menu() { return _menu; }

protected:
    ~NSResponder() override = default;

private:
    NSResponder* _nextResponder = nullptr;      // not retained
    NSResponder* _previousResponder = nullptr;  // not retained
    Ref<NSObject> _menu;
};
