// The archive bodies of the value classes: encodeWithCoder: and
// initWithCoder: of strings, numbers, data, dates, the null, arrays,
// dictionaries and sets.
//
// Every initWithCoder: here follows one rule for a malformed archive: after
// each decodeObject it asks the coder whether decoding failed, and if so
// releases what it built and the receiver and answers nil. The failure thus
// travels up to the root, and a failed decode answers nil as a whole.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "foundation/NSArray.h"
#include "foundation/NSCoder.h"
#include "foundation/NSData.h"
#include "foundation/NSDate.h"
#include "foundation/NSDictionary.h"
#include "foundation/NSNull.h"
#include "foundation/NSSet.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"

namespace {

// The smallest object an archive can hold is a length and one byte of
// class name: five bytes. No real class has a shorter name, so a count
// above the remaining bytes over five (over ten for key and value pairs)
// cannot be met, and is refused before any slot is allocated for it.
constexpr uint32_t kMinObjectBytes = 5;

// Gives up on a receiver that came from alloc for this decode.
NSObject* giveUp(NSObject* receiver) {
    receiver->release();
    return nullptr;
}

void encodeCount(NSCoder* coder, uint32_t count) {
    NSNumber* number = NSNumber::alloc()->initWithDouble_(count);
    coder->encodeObject_(number);
    number->release();
}

// An element count: a whole NSNumber object from 0 up, small enough for
// the bytes left. false, with the coder failed, for anything else.
bool decodeCount(NSCoder* coder, uint32_t bytesPerItem, uint32_t* count) {
    NSObject* object = coder->decodeObject();
    if (coder->decodingFailed()) return false;
    if (!object || !object->isKindOfClass_(NSNumber::classObject())) {
        coder->failDecoding("count that is not a number");
        return false;
    }
    double value = static_cast<NSNumber*>(object)->doubleValue();
    if (!(value >= 0 && value <= 4294967295.0) || value != std::floor(value)) {
        coder->failDecoding("count that is not a whole number");
        return false;
    }
    *count = static_cast<uint32_t>(value);
    if (*count > coder->bytesLeft() / bytesPerItem) {
        coder->failDecoding("count larger than the rest of the archive");
        return false;
    }
    return true;
}

// initWithString: reads fixed positions of the first two pieces of the
// text without checking anything, so a text from an archive must have
// their shape first: printable ASCII, a first piece of at least ten
// characters, one blank, a second piece of at least eight. What description
// writes always has it.
bool looksLikeDate(NSString* text) {
    const char* s = text->UTF8String();
    uint32_t n = text->byteLength();
    for (uint32_t i = 0; i < n; i++) {
        if (s[i] < 0x20 || s[i] > 0x7E) return false;
    }
    const char* blank = static_cast<const char*>(std::memchr(s, ' ', n));
    if (!blank || blank - s < 10) return false;
    const char* time = blank + 1;
    uint32_t timeLength = 0;
    while (time + timeLength < s + n && time[timeLength] != ' ') timeLength++;
    return timeLength >= 8;
}

}  // namespace

// ---------------------------------------------------------------------------
// Strings: one string field, the UTF-8 text and a NUL.

void NSString::encodeWithCoder_(NSCoder* coder) {
    uint32_t length = static_cast<uint32_t>(strnlen(_c_string, _byteLength));
    coder->encodeBytes_length_(_c_string, length + 1);
}

NSObject* NSString::initWithCoder_(NSCoder* coder) {
    uint32_t length;
    char* bytes = static_cast<char*>(coder->decodeBytesWithReturnedLength_(&length));
    if (!bytes) return giveUp(this);
    // The text stops at the first NUL of the field; the position has moved
    // by the whole field.
    initWithBytes_length_(bytes, length);
    std::free(bytes);
    return this;
}

NS_EXTEND_CLASS(NSString, Coding)
NS_METHOD(encodeWithCoder_)
NS_METHOD(initWithCoder_)
NS_EXTEND_END

// ---------------------------------------------------------------------------
// Numbers: one field of eight bytes, a little-endian binary64.

void NSNumber::encodeWithCoder_(NSCoder* coder) {
    uint64_t bits;
    std::memcpy(&bits, &_number, 8);
    unsigned char bytes[8];
    for (int i = 0; i < 8; i++) bytes[i] = static_cast<unsigned char>(bits >> (8 * i));
    coder->encodeBytes_length_(bytes, 8);
}

NSObject* NSNumber::initWithCoder_(NSCoder* coder) {
    uint32_t length;
    auto* bytes = static_cast<unsigned char*>(coder->decodeBytesWithReturnedLength_(&length));
    if (!bytes) return giveUp(this);
    if (length != 8) {
        std::free(bytes);
        coder->failDecoding("number field that is not 8 bytes long");
        return giveUp(this);
    }
    uint64_t bits = 0;
    for (int i = 0; i < 8; i++) bits |= uint64_t(bytes[i]) << (8 * i);
    std::free(bytes);
    double value;
    std::memcpy(&value, &bits, 8);
    return initWithDouble_(value);
}

NS_EXTEND_CLASS(NSNumber, Coding)
NS_METHOD(encodeWithCoder_)
NS_METHOD(initWithCoder_)
NS_EXTEND_END

// ---------------------------------------------------------------------------
// Data: one field with the contents, no terminator.

void NSData::encodeWithCoder_(NSCoder* coder) { coder->encodeBytes_length_(_buffer, _size); }

NSObject* NSData::initWithCoder_(NSCoder* coder) {
    uint32_t length;
    void* bytes = coder->decodeBytesWithReturnedLength_(&length);
    if (!bytes) return giveUp(this);
    initWithBytes_length_(bytes, length);
    std::free(bytes);
    return this;
}

NS_EXTEND_CLASS(NSData, Coding)
NS_METHOD(encodeWithCoder_)
NS_METHOD(initWithCoder_)
NS_EXTEND_END

// ---------------------------------------------------------------------------
// Dates: one object, the NSMutableString of description. Milliseconds and
// the day of the week are not stored.

void NSDate::encodeWithCoder_(NSCoder* coder) { coder->encodeObject_(description()); }

NSObject* NSDate::initWithCoder_(NSCoder* coder) {
    NSObject* text = coder->decodeObject();
    if (coder->decodingFailed()) return giveUp(this);
    if (!text || !text->isKindOfClass_(NSString::classObject()) ||
        !looksLikeDate(static_cast<NSString*>(text))) {
        coder->failDecoding("date that is not a date text");
        return giveUp(this);
    }
    return initWithString_(static_cast<NSString*>(text));
}

NS_EXTEND_CLASS(NSDate, Coding)
NS_METHOD(encodeWithCoder_)
NS_METHOD(initWithCoder_)
NS_EXTEND_END

// ---------------------------------------------------------------------------
// The null: one object, the number 0. Reading is decodeObject's business:
// it drops the number and answers the shared instance.

void NSNull::encodeWithCoder_(NSCoder* coder) {
    NSNumber* zero = NSNumber::alloc()->initWithInt_(0);
    coder->encodeObject_(zero);
    zero->release();
}

NS_EXTEND_CLASS(NSNull, Coding)
NS_METHOD(encodeWithCoder_)
NS_EXTEND_END

// ---------------------------------------------------------------------------
// Arrays: the count as an NSNumber object, then each element.

void NSArray::encodeWithCoder_(NSCoder* coder) {
    encodeCount(coder, _count);
    for (uint32_t i = 0; i < _count; i++) coder->encodeObject_(_elements[i]);
}

NSObject* NSArray::initWithCoder_(NSCoder* coder) {
    uint32_t count;
    if (!decodeCount(coder, kMinObjectBytes, &count)) return giveUp(this);
    // Always a new NSMutableArray with the count as its capacity, whatever
    // class was written.
    NSMutableArray* array = NSMutableArray::alloc()->initWithCapacity_(count);
    for (uint32_t i = 0; i < count; i++) {
        NSObject* element = coder->decodeObject();
        if (coder->decodingFailed()) {
            array->release();
            return giveUp(this);
        }
        array->addObject_(element);
    }
    release();
    return array;
}

NS_EXTEND_CLASS(NSArray, Coding)
NS_METHOD(encodeWithCoder_)
NS_METHOD(initWithCoder_)
NS_EXTEND_END

// ---------------------------------------------------------------------------
// Dictionaries: the count as an NSNumber object, then key and value of each
// entry in enumeration order.

void NSDictionary::encodeWithCoder_(NSCoder* coder) {
    encodeCount(coder, _count);
    // The buckets in the order of allKeys, without building that array.
    NSNull* null = NSNull::null();
    for (uint32_t b = 0; b < _array->count(); b++) {
        NSObject* slot = _array->objectAtIndex_(b);
        if (slot == null) continue;
        auto* bucket = static_cast<NSArray*>(slot);
        for (uint32_t i = 0; i + 1 < bucket->count(); i += 2) {
            coder->encodeObject_(bucket->objectAtIndex_(i));
            coder->encodeObject_(bucket->objectAtIndex_(i + 1));
        }
    }
}

NSObject* NSDictionary::initWithCoder_(NSCoder* coder) {
    uint32_t count;
    if (!decodeCount(coder, 2 * kMinObjectBytes, &count)) return giveUp(this);
    // As many buckets as entries; 0 gives the default of 10.
    initWithCapacity_(count);
    static const SEL insert = NSSelectorFromCString("insertValue:forKey:");
    for (uint32_t i = 0; i < count; i++) {
        NSObject* key = coder->decodeObject();
        if (coder->decodingFailed()) return giveUp(this);
        NSObject* value = coder->decodeObject();
        if (coder->decodingFailed()) return giveUp(this);
        coder->didDecodeKey_forDictionary(key, this);
        // Sent as a message, so that a subclass's insertion is used. A nil
        // value (an object of a class without a body) removes the key.
        NSSend<void>(this, insert, value, key);
    }
    return this;
}

NS_EXTEND_CLASS(NSDictionary, Coding)
NS_METHOD(encodeWithCoder_)
NS_METHOD(initWithCoder_)
NS_EXTEND_END

// ---------------------------------------------------------------------------
// Sets: one object, the internal dictionary.

void NSSet::encodeWithCoder_(NSCoder* coder) { coder->encodeObject_(_dict); }

NSObject* NSSet::initWithCoder_(NSCoder* coder) {
    init();
    NSObject* dict = coder->decodeObject();
    if (coder->decodingFailed()) return giveUp(this);
    // Every set operation treats its dict as mutable.
    if (!dict || !dict->isKindOfClass_(NSMutableDictionary::classObject())) {
        coder->failDecoding("set whose dict is not a mutable dictionary");
        return giveUp(this);
    }
    // A counted set reads its values as counts.
    if (isKindOfClass_(NSCountedSet::classObject())) {
        NSMutableArray* values = static_cast<NSDictionary*>(dict)->allValues();
        for (uint32_t i = 0; i < values->count(); i++) {
            if (!values->objectAtIndex_(i)->isKindOfClass_(NSNumber::classObject())) {
                coder->failDecoding("counted set with a count that is not a number");
                return giveUp(this);
            }
        }
    }
    _dict.set(static_cast<NSMutableDictionary*>(dict));
    return this;
}

NS_EXTEND_CLASS(NSSet, Coding)
NS_METHOD(encodeWithCoder_)
NS_METHOD(initWithCoder_)
NS_EXTEND_END
