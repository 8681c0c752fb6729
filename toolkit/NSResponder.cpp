#include "toolkit/NSResponder.h"

void NSResponder::setNextResponder_(NSResponder* responder) {
    _nextResponder = responder;
    if (responder) responder->setPreviousResponder_(this);
}

NS_CLASS_BEGIN(NSResponder, NSObject)
    NS_METHOD(setNextResponder_)
    NS_METHOD(setPreviousResponder_)
    NS_METHOD(nextResponder)
    NS_METHOD(previousResponder)
    NS_METHOD(setMenu_)
    NS_METHOD(menu)
    NS_FIELD(_menu)
NS_CLASS_END(NSResponder)
