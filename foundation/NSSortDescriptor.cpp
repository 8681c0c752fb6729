#include "NSSortDescriptor.h"

#include "NSString.h"

NSSortDescriptor* NSSortDescriptor::initWithKey_ascending_selector_(NSString* keyPath,
                                                                    bool ascending, SEL selector) {
    _keyPath.set(keyPath);
    _ascending = ascending ? 1 : 0;
    _selector = selector;
    return this;
}

NSSortDescriptor* NSSortDescriptor::initWithKey_ascending_(NSString* keyPath, bool ascending) {
    return initWithKey_ascending_selector_(keyPath, ascending, nullptr);
}

int NSSortDescriptor::compareObject_toObject_(NSObject* first, NSObject* second) {
    return NSSend<int>(first, _selector ? _selector : NS_SEL("compare:"), second);
}

NS_CLASS_BEGIN(NSSortDescriptor, NSObject)
    NS_METHOD(initWithKey_ascending_selector_)
    NS_METHOD(initWithKey_ascending_)
    NS_METHOD(compareObject_toObject_)
    NS_FIELD(_keyPath)
    NS_FIELD(_ascending)
    NS_FIELD(_selector)
NS_CLASS_END(NSSortDescriptor)
