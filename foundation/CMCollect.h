// CMCollect: a message sent to it goes to every element of its container,
// in enumeration order, on the calling thread; the sender gets an
// autoreleased NSMutableArray of the results, one per element, a nil
// result stored as nil. Only messages that answer an object (or nothing)
// make sense. Made by `collect` of NSArray:
//   NSSend<NSMutableArray*>(pieces->collect(), NS_SEL("trim"))
#pragma once

#include "NSObject.h"

class CMCollect : public NSObject {
    NS_DECLARE_CLASS(CMCollect, NSObject)

public:
    // Autoreleased.
    static CMCollect* collectWithContainer_(NSObject* container);
    // Retains the container.
    CMCollect* initWithContainer_(NSObject* container);
    NSWord forward__(SEL sel, const NSArgFrame* frame) override;

protected:
    ~CMCollect() override = default;

private:
    Ref<NSObject> _container;
};
