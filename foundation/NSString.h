// Text: NUL-terminated UTF-8 as the master copy, with a 16-bit form made on
// demand. Characters go up to 0x07FF; length and indices count 16-bit units.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>

#include "NSObject.h"

class NSMutableString;

class NSString : public NSObject {
    NS_DECLARE_CLASS(NSString, NSObject)

public:
    // Construction. All of them copy the text. The class forms answer an
    // autoreleased object of the receiving class.
    NSString* init() override;
    NSString* initWithCString_(const char* bytes);
    NSString* initWithUTF8String_(const char* bytes);
    NSString* initWithCString_encoding_(const char* bytes, uint32_t encoding);
    NSString* initWithBytes_length_(const char* bytes, uint32_t length);
    NSString* initWithCharacters_length_(const uint16_t* units, uint32_t length);
    NSString* initWithUTF16String_(const uint16_t* units);
    NSString* initWithString_(NSString* other);

    static NSString* string();
    static NSString* stringWithCString_(const char* bytes);
    static NSString* stringWithUTF8String_(const char* bytes);
    static NSString* stringWithCString_encoding_(const char* bytes, uint32_t encoding);
    static NSString* stringWithCharacters_length_(const uint16_t* units, uint32_t length);
    static NSString* stringWithUTF16String_(const uint16_t* units);
    static NSString* stringWithString_(NSString* other);
    // The runtime library's printf dialect; output is cut at 100,000 bytes.
    static NSString* stringWithFormat_(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static NSString* stringWithFormat_(NSString* format, ...);

    // Reading.
    const char* cString() { return _c_string; }
    const char* UTF8String() { return _c_string; }
    const char* cStringUsingEncoding_(uint32_t) { return _c_string; }
    // The 16-bit form with its 0 terminator, made at first use.
    const uint16_t* UTF16String();
    uint32_t length();
    uint16_t characterAtIndex_(uint32_t index);
    void getCharacters_(uint16_t* buffer);
    NSString* description() override { return this; }
    uint32_t hash() override;
    bool isEqual_(NSObject* other) override;
    // Bytewise on the UTF-8 forms: exactly -1, 0 or 1.
    int compare_(NSString* other);
    int intValue();
    float floatValue();
    double doubleValue();
    // location counts bytes, length 16-bit units; absent: {0xFFFFFFFF, 0}.
    _NSRange rangeOfString_(NSString* other);
    NSString* lowercaseString();
    NSString* capitalizedString();
    NSString* substringToIndex_(uint32_t index);
    NSString* substringFromIndex_(uint32_t index);
    NSString* substringWithRange_(_NSRange range);
    NSMutableString* stringByAppendingString_(NSString* other);
    NSMutableString* stringByAppendingFormat_(const char* format, ...) __attribute__((format(printf, 2, 3)));
    NSString* trim();
    NSObject* mutableCopyWithZone_(NSZone* zone) override;

    // The byte length of the UTF-8 form.
    uint32_t byteLength() const { return _byteLength; }

    NSString() = default;

protected:
    ~NSString() override;
    // Replaces the text by bytes[0, length) and forgets the 16-bit form.
    void setBytes(const char* bytes, uint32_t length);
    void appendBytes(const char* bytes, uint32_t length);
    void forgetCaches();

    char* _c_string = nullptr;   // owned, NUL-terminated; constant strings point at static data
    uint32_t _byteLength = 0;    // bytes before the NUL
    uint32_t _byteCapacity = 0;  // size of the owned block, 0 when not owned
    uint16_t* _unistring = nullptr;
    uint32_t _unitLength = 0;
    uint32_t _hash = 0;
    bool _hashKnown = false;
};

// Laid down at build time: ignores retain, release and autorelease, always
// reports a count of 1, is never freed. Written "text"_ns.
class NSConstantString : public NSString {
    NS_DECLARE_CLASS(NSConstantString, NSString)

public:
    NSConstantString() = default;
    NSConstantString(const char* bytes, uint32_t length);
    void release() override {}
    NSObject* retain() override { return this; }
    NSObject* autorelease() override { return this; }
    uint32_t retainCount() override { return 1; }
};

class NSMutableString : public NSString {
    NS_DECLARE_CLASS(NSMutableString, NSString)

public:
    static NSMutableString* string();
    static NSMutableString* stringWithString_(NSString* other);
    static NSMutableString* stringWithUTF8String_(const char* bytes);
    static NSMutableString* stringWithFormat_(const char* format, ...) __attribute__((format(printf, 1, 2)));

    // Appends keep the old 16-bit form valid only until the next append.
    // Growth is amortised: the block doubles, so many small appends are
    // linear overall.
    void appendString_(NSString* other);
    // Formats into at most 1000 bytes, then appends.
    void appendFormat_(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void replaceCharactersInRange_withString_(_NSRange, NSString*) {}
    NSObject* copyWithZone_(NSZone* zone) override;
};

// Formats into a buffer of `limit` bytes, terminator included. Output that
// would not fit is cut at the last whole character before the limit; it
// never runs past the buffer.
std::string NSFormatBytes(uint32_t limit, const char* format, va_list ap);

template <class C, C... chars>
NSString* operator""_ns() {
    static const char text[] = {chars..., '\0'};
    alignas(NSConstantString) static unsigned char storage[sizeof(NSConstantString)];
    // Placed in static storage and never destroyed: other static objects may
    // use it up to the very end of the process.
    static NSConstantString* constant = new (storage) NSConstantString(text, sizeof...(chars));
    return constant;
}
