// Dictionaries: a fixed number of buckets, never re-hashed. A bucket is the
// shared null when empty, else an array of key, value, key, value in order
// of insertion. Enumeration walks the buckets from 0 up, so the order of
// keys follows their hashes and the bucket count, and is observable.
#pragma once

#include <cstdint>

#include "NSArray.h"

class NSMutableDictionary;

class NSDictionary : public NSObject {
    NS_DECLARE_CLASS(NSDictionary, NSObject)

public:
    // 1024 buckets.
    NSDictionary* init() override;
    // 0 counts as 10.
    NSDictionary* initWithCapacity_(uint32_t buckets);
    // Pairs of value, then key, up to the first nil value; 1024 buckets.
    NSDictionary* initWithObjectsAndKeys_(NSObject* firstValue, ...);
    // The same pairs on a new NSMutableDictionary of 10 buckets.
    static NSMutableDictionary* dictionaryWithObjectsAndKeys_(NSObject* firstValue, ...);

    // The one operation that changes the table; a nil value removes.
    void insertValue_forKey_(NSObject* value, NSObject* key);
    NSObject* objectForKey_(NSObject* key);
    NSMutableArray* allKeys();
    NSMutableArray* allValues();
    uint32_t count() { return _count; }
    NSMutableArray* allKeysForObject_(NSObject* object);
    bool isEqual_(NSObject* other) override;
    uint32_t hash() override;
    NSArray* attributeKeys() override;
    NSObject* mutableCopyWithZone_(NSZone* zone) override;
    NSString* description() override;
    // Archiving, with the archive formats (storage/ValueCoding.cpp).
    void encodeWithCoder_(NSCoder* coder) override;
    NSObject* initWithCoder_(NSCoder* coder) override;

    uint32_t bucketCount() { return _array ? _array->count() : 0; }

protected:
    ~NSDictionary() override = default;

    Ref<NSMutableArray> _array;
    uint32_t _count = 0;
};

class NSMutableDictionary : public NSDictionary {
    NS_DECLARE_CLASS(NSMutableDictionary, NSDictionary)

public:
    static NSMutableDictionary* dictionary();
    static NSMutableDictionary* dictionaryWithCapacity_(uint32_t buckets);
    void setObject_forKey_(NSObject* value, NSObject* key);
    void removeObjectForKey_(NSObject* key);
    void removeAllObjects();
    void addEntriesFromDictionary_(NSDictionary* other);
    NSObject* copyWithZone_(NSZone* zone) override;
};
