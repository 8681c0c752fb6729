// Notifications. A posted notification is an instance of the class whose
// name it bears, so each notification the system posts has a class here.
#pragma once

#include "NSObject.h"

class NSNotification : public NSObject {
    NS_DECLARE_CLASS(NSNotification, NSObject)

public:
    // Retains both.
    NSNotification* initWithName_object_(NSString* name, NSObject* object);
    // Autoreleased, an instance of the receiving class.
    static NSNotification* notificationWithName_object_(Class cls, NSString* name,
                                                        NSObject* object);
    NSString* name() { return _name; }
    NSObject* object() { return _object; }

protected:
    ~NSNotification() override = default;

private:
    Ref<NSString> _name;
    Ref<NSObject> _object;
};

// The notifications of the window layer, with no fields or operations of
// their own: their class is their name.
class NSTableViewSelectionDidChangeNotification : public NSNotification {
    NS_DECLARE_CLASS(NSTableViewSelectionDidChangeNotification, NSNotification)
};

class NSWindowDidBecomeKeyNotification : public NSNotification {
    NS_DECLARE_CLASS(NSWindowDidBecomeKeyNotification, NSNotification)
};

class NSWindowDidResizeNotification : public NSNotification {
    NS_DECLARE_CLASS(NSWindowDidResizeNotification, NSNotification)
};
