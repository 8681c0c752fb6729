#include "NSValue.h"

#include <cinttypes>
#include <cmath>
#include <cstdlib>

#include "NSString.h"

NSValue::~NSValue() {
    if (_freeOnRelease) std::free(_pointer);
}

NSValue* NSValue::initWithPointer_(void* pointer) {
    return initWithPointer_freeOnRelease_(pointer, false);
}

NSValue* NSValue::initWithPointer_freeOnRelease_(void* pointer, bool freeOnRelease) {
    _pointer = pointer;
    _freeOnRelease = freeOnRelease;
    return this;
}

NSValue* NSValue::valueWithPointer_(void* pointer) {
    return NSAutorelease(alloc()->initWithPointer_(pointer));
}

NSValue* NSValue::valueWithPointer_freeOnRelease_(void* pointer, bool freeOnRelease) {
    return NSAutorelease(alloc()->initWithPointer_freeOnRelease_(pointer, freeOnRelease));
}

bool NSValue::isEqual_(NSObject* other) {
    NSValue* value = NSDynamicCast<NSValue>(other);
    return value && value->_pointer == _pointer;
}

uint32_t NSValue::hash() { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(_pointer)); }

NSString* NSValue::description() {
    // The pointer as numberWithLong: prints it on the 32-bit client: a
    // signed integer. A 64-bit address beyond 32 bits would come out of
    // NSNumber rounded to binary64 and in "%lf" form; the exact integer keeps
    // two handles apart in every log line, which is what the text is for.
    return NSString::stringWithFormat_("%" PRIdPTR, reinterpret_cast<intptr_t>(_pointer));
}

// ---------------------------------------------------------------------------

NSNumber* NSNumber::initWithInt_(int value) { return initWithDouble_(value); }

NSNumber* NSNumber::initWithLong_(int64_t value) {
    return initWithDouble_(static_cast<double>(value));
}

NSNumber* NSNumber::initWithDouble_(double value) {
    _number = value;
    return this;
}

NSNumber* NSNumber::initWithBool_(bool value) { return initWithDouble_(value ? 1 : 0); }

NSNumber* NSNumber::numberWithInt_(int value) {
    return NSAutorelease(alloc()->initWithInt_(value));
}

NSNumber* NSNumber::numberWithLong_(int64_t value) {
    return NSAutorelease(alloc()->initWithLong_(value));
}

NSNumber* NSNumber::numberWithDouble_(double value) {
    return NSAutorelease(alloc()->initWithDouble_(value));
}

NSNumber* NSNumber::numberWithBool_(bool value) {
    return NSAutorelease(alloc()->initWithBool_(value));
}

int NSNumber::intValue() {
    // The x86 conversion answers the lowest integer for anything out of
    // range (and for not-a-number); written out so that it holds everywhere.
    double t = std::trunc(_number);
    if (!(t >= -2147483648.0 && t <= 2147483647.0)) return INT32_MIN;
    return static_cast<int>(t);
}

// Nil is no number: it equals nothing, not even 0 (isEqual: says the same).
// A not-a-number value equals nothing either, itself included.
bool NSNumber::isEqualToNumber_(NSObject* other) {
    NSNumber* number = NSDynamicCast<NSNumber>(other);
    return number && _number == number->_number;
}

bool NSNumber::isEqual_(NSObject* other) { return isEqualToNumber_(other); }

uint32_t NSNumber::hash() {
    double t = std::trunc(_number);
    // Out of the 64-bit range the conversion answers the lowest 64-bit
    // integer, whose low 32 bits are 0.
    if (!(t >= -9223372036854775808.0 && t < 9223372036854775808.0)) return 0;
    return static_cast<uint32_t>(static_cast<uint64_t>(static_cast<int64_t>(t)));
}

int NSNumber::compare_(NSObject* other) {
    NSNumber* number = NSDynamicCast<NSNumber>(other);
    if (other && !number) return NSCompareKinds(this, other);
    // Nil reads as 0, as a message to nil answers 0.
    double o = number ? number->_number : 0;
    return _number < o ? -1 : (_number > o ? 1 : 0);
}

NSString* NSNumber::description() {
    if (_number == static_cast<double>(intValue()))
        return NSString::stringWithFormat_("%d", intValue());
    return NSString::stringWithFormat_("%lf", _number);
}

NS_CLASS_BEGIN(NSValue, NSObject)
    NS_METHOD(initWithPointer_)
    NS_METHOD(initWithPointer_freeOnRelease_)
    NS_METHOD(pointerValue)
    NS_METHOD(isEqual_)
    NS_METHOD(hash)
    NS_METHOD(description)
    NS_CLASS_METHOD(valueWithPointer_)
    NS_CLASS_METHOD(valueWithPointer_freeOnRelease_)
    NS_FIELD(_freeOnRelease)
NS_CLASS_END(NSValue)

NS_CLASS_BEGIN(NSNumber, NSValue)
    NS_METHOD(initWithInt_)
    NS_METHOD(initWithLong_)
    NS_METHOD(initWithDouble_)
    NS_METHOD(initWithBool_)
    NS_METHOD(intValue)
    NS_METHOD(longValue)
    NS_METHOD(doubleValue)
    NS_METHOD(boolValue)
    NS_METHOD(isEqualToNumber_)
    NS_METHOD(isEqual_)
    NS_METHOD(hash)
    NS_METHOD(compare_)
    NS_METHOD(description)
    NS_CLASS_METHOD(numberWithInt_)
    NS_CLASS_METHOD(numberWithLong_)
    NS_CLASS_METHOD(numberWithDouble_)
    NS_CLASS_METHOD(numberWithBool_)
    NS_FIELD(_number)
NS_CLASS_END(NSNumber)
