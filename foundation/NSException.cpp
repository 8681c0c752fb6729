#include "NSException.h"

#include <cstdio>
#include <cstdlib>

#include "NSString.h"

NSException* NSException::initWithName_reason_(NSString* name, NSString* reason) {
    _name.set(name);
    _reason.set(reason);
    return this;
}

void NSException::raise_format_(Class cls, NSString* name, NSString* reason) {
    auto* e = static_cast<NSException*>(cls->alloc());
    e->initWithName_reason_(name, reason);
    e->raise();
}

void NSException::raise() {
    LOG("an exception has been thrown outside of a during-block thus it cannot be caught: %s, %s "
        "(%s)",
        _name ? _name->UTF8String() : "", _reason ? _reason->UTF8String() : "", class_()->name());
    std::exit(1);
}

NS_CLASS_BEGIN(NSException, NSObject)
    NS_METHOD(initWithName_reason_)
    NS_METHOD(raise)
    NS_METHOD(name)
    NS_METHOD(reason)
    NS_CLASS_METHOD(raise_format_)
    NS_FIELD(_name)
    NS_FIELD(_reason)
NS_CLASS_END(NSException)

NS_CLASS_BEGIN(NSInvalidArgumentException, NSException)
NS_CLASS_END(NSInvalidArgumentException)

NS_CLASS_BEGIN(NSRangeException, NSException)
NS_CLASS_END(NSRangeException)
