#include "VTWrapper.h"

#include "foundation/NSString.h"

VTWrapper* VTWrapper::initWithObject_value_(NSObject* object, NSObject* value) {
    NSObject::init();
    _object.set(object);
    _value.set(value);
    return this;
}

NSString* VTWrapper::description() {
    return _value ? _value->description() : NSObject::description();
}

int VTWrapper::compareWithWrapper_(VTWrapper* other) {
    NSObject* theirs = other ? other->value() : nullptr;
    return NSSend<int>(_value, NS_SEL("compare:"), theirs);
}

NS_CLASS_BEGIN(VTWrapper, NSObject)
    NS_METHOD(initWithObject_value_)
    NS_METHOD(object)
    NS_METHOD(value)
    NS_METHOD(description)
    NS_METHOD(compareWithWrapper_)
    NS_FIELD(_object)
    NS_FIELD(_value)
NS_CLASS_END(VTWrapper)
