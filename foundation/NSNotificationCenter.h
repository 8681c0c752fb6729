// The notification center: observers by notification name, in order of
// registration. Not thread-safe: observers are registered and posts made on
// the main thread.
#pragma once

#include "NSObject.h"

class NSMutableDictionary;

class NSNotificationCenter : public NSObject {
    NS_DECLARE_CLASS(NSNotificationCenter, NSObject)

public:
    // Makes the shared center.
    static void initialize();
    static NSNotificationCenter* defaultCenter();
    NSNotificationCenter* init() override;
    // Appends an entry [object or the shared null, observer, selector] to
    // the list of `name`. No duplicate check and no removal: the entry,
    // which retains observer and object, stays for the life of the center.
    // Without an observer, a selector or a name (a string) there is nothing
    // that a post could deliver: the call is ignored with a log line.
    void addObserver_selector_name_object_(NSObject* observer, SEL selector, NSString* name,
                                           NSObject* object);
    // Sends each matching observer, in order of registration, the selector
    // with a notification of its own: an instance of the class named
    // `name`. Synchronous, on the posting thread.
    void postNotificationName_object_(NSString* name, NSObject* object);

protected:
    ~NSNotificationCenter() override = default;

private:
    Ref<NSMutableDictionary> _table;
};
