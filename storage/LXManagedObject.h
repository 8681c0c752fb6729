// The unit of a container: a dictionary addressed by key paths ("a.b.c"),
// each dot going down one level of nested dictionaries. It is archived like
// a dictionary under its own class name.
#pragma once

#include "foundation/NSDictionary.h"

class NSNumber;

class LXManagedObject : public NSMutableDictionary {
    NS_DECLARE_CLASS(LXManagedObject, NSMutableDictionary)

public:
    // 10 buckets. The class form answers it autoreleased.
    LXManagedObject* init() override;
    static LXManagedObject* managedObject();

    // Key access goes by path on a managed object.
    void setValue_forKey_(NSObject* value, NSString* key);
    void setValue_forKeyPath_(NSObject* value, NSString* path);
    NSObject* valueForKey_(NSString* key);
    NSObject* valueForKeyPath_(NSString* path);

    // Creates missing levels as NSMutableDictionary of 10 buckets; a nil
    // object removes the last key (the levels above it are still created).
    void setObject_forKeyPath_(NSObject* object, NSString* path);
    // Stops silently at a missing level.
    void removeObjectForKeyPath_(NSString* path);
    // nil as soon as a level is missing.
    NSObject* objectForKeyPath_(NSString* path);

    // The value at "__meta.id", or nil.
    NSObject* uniqueId();
    // Equal to another managed object with an equal uniqueId; an object
    // without an id equals nothing, itself included.
    bool isEqual_(NSObject* other) override;
    // Consistent with isEqual_: objects with equal ids hash alike.
    uint32_t hash() override;

protected:
    ~LXManagedObject() override = default;
};
