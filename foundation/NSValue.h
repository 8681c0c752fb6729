// Plain pointers wrapped as objects, and numbers, which are always binary64.
#pragma once

#include <cstdint>

#include "NSObject.h"

class NSValue : public NSObject {
    NS_DECLARE_CLASS(NSValue, NSObject)

public:
    NSValue* initWithPointer_(void* pointer);
    NSValue* initWithPointer_freeOnRelease_(void* pointer, bool freeOnRelease);
    static NSValue* valueWithPointer_(void* pointer);
    static NSValue* valueWithPointer_freeOnRelease_(void* pointer, bool freeOnRelease);
    void* pointerValue() { return _pointer; }
    bool isEqual_(NSObject* other) override;
    uint32_t hash() override;
    NSString* description() override;

protected:
    ~NSValue() override;

    void* _pointer = nullptr;
    bool _freeOnRelease = false;
};

class NSNumber : public NSValue {
    NS_DECLARE_CLASS(NSNumber, NSValue)

public:
    NSNumber* initWithInt_(int value);
    // "Long" is 64 bits on every platform (a Windows long has 32), so that
    // a number means the same wherever it was made.
    NSNumber* initWithLong_(int64_t value);
    NSNumber* initWithDouble_(double value);
    NSNumber* initWithBool_(bool value);
    static NSNumber* numberWithInt_(int value);
    static NSNumber* numberWithLong_(int64_t value);
    static NSNumber* numberWithDouble_(double value);
    static NSNumber* numberWithBool_(bool value);

    // Truncated towards zero to 32 bits; out of range gives INT32_MIN.
    int intValue();
    int64_t longValue() { return intValue(); }
    double doubleValue() { return _number; }
    // True only for exactly 1.
    bool boolValue() { return intValue() == 1; }
    // False for nil and for what isn't a number.
    bool isEqualToNumber_(NSObject* other);
    bool isEqual_(NSObject* other) override;
    // The value truncated to 64 bits, then its low 32 bits.
    uint32_t hash() override;
    // -1, 0 or 1 by the two doubles; nil reads as 0, a value of another
    // kind is ordered by NSCompareKinds.
    int compare_(NSObject* other);
    NSString* description() override;
    // Archiving (storage/ValueCoding.cpp).
    void encodeWithCoder_(NSCoder* coder) override;
    NSObject* initWithCoder_(NSCoder* coder) override;

private:
    double _number = 0;
};
