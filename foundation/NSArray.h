// Arrays: a plain contiguous vector of retained elements, and the live
// cursor that walks one.
#pragma once

#include <cstdint>

#include "NSObject.h"

class NSEnumerator;
class NSMutableArray;
class NSMutableString;

class NSArray : public NSObject {
    NS_DECLARE_CLASS(NSArray, NSObject)

public:
    NSArray* init() override;
    NSArray* initWithObject_(NSObject* object);
    // The arguments up to the first nil.
    NSArray* initWithObjects_(NSObject* first, ...);
    NSArray* initWithArray_(NSArray* other);
    // Always an NSMutableArray of capacity 10, whatever class receives it.
    static NSMutableArray* arrayWithObjects_(NSObject* first, ...);
    static NSMutableArray* arrayWithArray_(NSArray* other);

    uint32_t count() { return _count; }
    // Unchecked: callers stay below count.
    NSObject* objectAtIndex_(uint32_t index) { return _elements[index]; }
    // -1 when absent; a binary search by sortedBy when that is set.
    int indexOfObject_(NSObject* object);
    NSEnumerator* objectEnumerator();
    void increaseCapacity();
    NSMutableArray* sortedArrayUsingSelector_(SEL comparator);
    void setSortedBy_(SEL comparator) { _sortedBy = comparator; }
    SEL sortedBy() { return _sortedBy; }
    NSMutableString* componentsJoinedByString_(NSString* separator);
    NSMutableArray* subarrayWithRange_(_NSRange range);
    bool isEqual_(NSObject* other) override;
    uint32_t hash() override;
    NSObject* mutableCopyWithZone_(NSZone* zone) override;
    NSString* description() override;
    // Archiving, with the archive formats (storage/ValueCoding.cpp).
    void encodeWithCoder_(NSCoder* coder) override;
    NSObject* initWithCoder_(NSCoder* coder) override;
    class CMEach* each();  // autoreleased combinators (CMEach.cpp, CMCollect.cpp)
    class CMCollect* collect();

    NSArray() = default;

protected:
    ~NSArray() override;
    void initStorage(uint32_t capacity);
    void appendRetained(NSObject* object);
    // The pool stack's slots hold their pools without a reference.
    friend class NSAutoreleasePool;

    uint32_t _count = 0;
    uint32_t _capacity = 0;
    NSObject** _elements = nullptr;
    SEL _sortedBy = nullptr;
};

class NSMutableArray : public NSArray {
    NS_DECLARE_CLASS(NSMutableArray, NSArray)

public:
    NSMutableArray* init() override;
    NSMutableArray* initWithCapacity_(uint32_t capacity);
    static NSMutableArray* array();
    static NSMutableArray* arrayWithCapacity_(uint32_t capacity);

    // nil is accepted and stored.
    void addObject_(NSObject* object);
    void replaceObjectAtIndex_withObject_(uint32_t index, NSObject* object);
    // An index at or beyond count is ignored.
    void removeObjectAtIndex_(uint32_t index);
    void addObjectsFromArray_(NSArray* other);
    void removeObject_(NSObject* object);
    void removeAllObjects();
    NSObject* copyWithZone_(NSZone* zone) override;
};

// A live cursor on an array, not a snapshot; the array must outlive it.
class NSEnumerator : public NSObject {
    NS_DECLARE_CLASS(NSEnumerator, NSObject)

public:
    NSEnumerator* initWithArray_(NSArray* array);
    // The element at the cursor, or nil at the end (or at a nil element).
    NSObject* nextObject();

private:
    NSArray* _array = nullptr;  // not retained
    uint32_t _index = 0;
};
