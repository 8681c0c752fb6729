#include "NSNotification.h"

#include "NSString.h"

NSNotification* NSNotification::initWithName_object_(NSString* name, NSObject* object) {
    NSObject::init();
    _name.set(name);
    _object.set(object);
    return this;
}

NSNotification* NSNotification::notificationWithName_object_(Class cls, NSString* name,
                                                             NSObject* object) {
    auto* notification = static_cast<NSNotification*>(cls->alloc());
    if (!notification) return nullptr;
    return NSAutorelease(notification->initWithName_object_(name, object));
}

NS_CLASS_BEGIN(NSNotification, NSObject)
    NS_METHOD(initWithName_object_)
    NS_CLASS_METHOD(notificationWithName_object_)
    NS_METHOD(name)
    NS_METHOD(object)
    NS_FIELD(_name)
    NS_FIELD(_object)
NS_CLASS_END(NSNotification)

NS_CLASS_BEGIN(NSTableViewSelectionDidChangeNotification, NSNotification)
NS_CLASS_END(NSTableViewSelectionDidChangeNotification)

NS_CLASS_BEGIN(NSWindowDidBecomeKeyNotification, NSNotification)
NS_CLASS_END(NSWindowDidBecomeKeyNotification)

NS_CLASS_BEGIN(NSWindowDidResizeNotification, NSNotification)
NS_CLASS_END(NSWindowDidResizeNotification)
