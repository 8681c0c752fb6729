// CMEach: a message sent to it goes to every element of its container, in
// enumeration order, on the calling thread; the sender gets nil. Made by
// `each` of NSArray: NSSend(array->each(), NS_SEL("removeFromSuperview")).
//
// A combinator catches every message that neither its own class nor
// NSObject defines (forward::), so retain, description, isEqual: and the
// rest of the object core act on the combinator itself.
#pragma once

#include "NSArray.h"
#include "NSObject.h"

class CMEach : public NSObject {
    NS_DECLARE_CLASS(CMEach, NSObject)

public:
    // Autoreleased.
    static CMEach* eachWithContainer_(NSObject* container);
    // Retains the container.
    CMEach* initWithContainer_(NSObject* container);
    // Sends sel with the frame, unchanged, to each element through
    // performv::: every element needs a real operation of sel.
    NSWord forward__(SEL sel, const NSArgFrame* frame) override;

protected:
    ~CMEach() override = default;

private:
    Ref<NSObject> _container;
};

// Calls visit(element) for each element of `container` in the order of its
// objectEnumerator, which ends at the end or at a nil element. An array is
// walked in place, with the same live-cursor stops, without the enumerator
// object.
template <class Visit>
void CMEnumerate(NSObject* container, Visit visit) {
    if (!container) return;
    if (container->isKindOfClass_(NSArray::classObject())) {
        auto* array = static_cast<NSArray*>(container);
        for (uint32_t i = 0; i < array->count(); i++) {
            NSObject* element = array->objectAtIndex_(i);
            if (!element) return;
            visit(element);
        }
        return;
    }
    NSObject* enumerator = NSSend(container, NS_SEL("objectEnumerator"));
    while (NSObject* element = NSSend(enumerator, NS_SEL("nextObject"))) visit(element);
}
