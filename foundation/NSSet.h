// Sets: a dictionary whose keys are the members, so they list in the
// dictionary's order of enumeration (bucket by bucket, then by insertion).
// The counted set keeps each member's count as its value.
#pragma once

#include <cstdint>

#include "NSDictionary.h"

class NSMutableSet;

class NSSet : public NSObject {
    NS_DECLARE_CLASS(NSSet, NSObject)

public:
    // Autoreleased; on allKeys of the table, which the same pool keeps.
    NSEnumerator* objectEnumerator();
    uint32_t count();
    // True or false, not the stored member.
    bool member_(NSObject* object);
    // Autoreleased, in enumeration order.
    NSMutableArray* allObjects();
    bool intersectsSet_(NSSet* other);
    // Autoreleased NSMutableSet with one bucket per element (10 when none).
    static NSMutableSet* setWithArray_(NSArray* array);
    bool isEqual_(NSObject* other) override;
    uint32_t hash() override;
    // Owned NSMutableSet with one bucket per member (10 when none).
    NSObject* mutableCopyWithZone_(NSZone* zone) override;
    // Autoreleased: "<set> " and the description of allObjects.
    NSString* description() override;
    NSArray* attributeKeys() override;
    // Archiving, with the archive formats (storage/ValueCoding.cpp).
    void encodeWithCoder_(NSCoder* coder) override;
    NSObject* initWithCoder_(NSCoder* coder) override;

    NSMutableDictionary* dict() { return _dict; }

protected:
    ~NSSet() override = default;

    Ref<NSMutableDictionary> _dict;
};

class NSMutableSet : public NSSet {
    NS_DECLARE_CLASS(NSMutableSet, NSSet)

public:
    // 10 buckets.
    NSMutableSet* init() override;
    static NSMutableSet* set();
    // 0 counts as 10.
    NSMutableSet* initWithCapacity_(uint32_t buckets);
    static NSMutableSet* setWithCapacity_(uint32_t buckets);
    // An equal member already there stays, and keeps its place.
    virtual void addObject_(NSObject* object);
    virtual void removeObject_(NSObject* object);
    void addObjectsFromArray_(NSArray* array);
    NSObject* copyWithZone_(NSZone* zone) override;
};

// Each member's value is an NSNumber holding how often it was added.
class NSCountedSet : public NSMutableSet {
    NS_DECLARE_CLASS(NSCountedSet, NSMutableSet)

public:
    void addObject_(NSObject* object) override;
    // Ignores an object that isn't a member.
    void removeObject_(NSObject* object) override;
    // 0 for a non-member.
    uint32_t countForObject_(NSObject* object);
    // Owned NSCountedSet with a copy of the table (and so of the counts).
    NSObject* copyWithZone_(NSZone* zone) override;
};
