// Text: NUL-terminated UTF-8 as the master copy, with a 16-bit form made on
// demand. Characters go up to 0x07FF; length and indices count 16-bit units,
// only rangeOfString: counts bytes.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>

#include "NSObject.h"

class NSArray;
class NSCharacterSet;
class NSData;
class NSMutableArray;
class NSMutableString;

class NSString : public NSObject {
    NS_DECLARE_CLASS(NSString, NSObject)

public:
    void encodeWithCoder_(NSCoder* coder) override;
    NSObject* initWithCoder_(NSCoder* coder) override;
    // Construction. All of them copy the text; the caller owns the result.
    NSString* init() override;
    // The bytes up to the NUL, as they are, not looked at.
    NSString* initWithCString_(const char* bytes);
    NSString* initWithUTF8String_(const char* bytes);
    NSString* initWithCString_encoding_(const char* bytes, uint32_t encoding);
    // The data's bytes up to a NUL among them; nil data gives the empty
    // string. No autoreleased form.
    NSString* initWithData_encoding_(NSData* data, uint32_t encoding);
    // At most `length` bytes, stopping at a NUL among them.
    NSString* initWithBytes_length_(const char* bytes, uint32_t length);
    // Units encoded by the two-byte rule; a unit 0 ends the text early, a
    // unit above 0x07FF becomes '?' with a log line.
    NSString* initWithCharacters_length_(const uint16_t* units, uint32_t length);
    // Up to the 0 terminator.
    NSString* initWithUTF16String_(const uint16_t* units);
    // The other string must not be nil.
    NSString* initWithString_(NSString* other);

    // The autoreleased forms. Sent by name they make an instance of the
    // receiving class; NSMutableString re-declares them for C++ callers.
    static NSString* string();
    static NSString* stringWithCString_(const char* bytes);
    static NSString* stringWithUTF8String_(const char* bytes);
    static NSString* stringWithCString_encoding_(const char* bytes, uint32_t encoding);
    static NSString* stringWithCharacters_length_(const uint16_t* units, uint32_t length);
    static NSString* stringWithUTF16String_(const uint16_t* units);
    static NSString* stringWithString_(NSString* other);
    // The runtime library's printf dialect (%s takes UTF8String, there is no
    // object conversion) into a buffer of 100,000 bytes; see NSFormatBytes.
    static NSString* stringWithFormat_(const char* format, ...) NS_FORMAT(1, 2);
    static NSString* stringWithFormat_(NSString* format, ...);
    // Words joined with a blank where one belongs; always a plain NSString.
    static NSString* stringWithArray_(NSArray* words);
    static NSString* stringWithArray_omit_(NSArray* words, NSObject* omit);

    // Reading. The pointers are valid while the string lives and, for a
    // mutable string, until its next append; the caller must not free them.
    const char* cString() { return _c_string; }
    const char* UTF8String() { return _c_string; }
    const char* cStringUsingEncoding_(uint32_t) { return _c_string; }
    // The 16-bit form with its 0 terminator, made at first use.
    const uint16_t* UTF16String();
    // Seven German letters as single CP1250 bytes, the rest as it is; the
    // text lives until the current pool ends.
    const char* CP1250String();
    // 16-bit units up to the first 0 unit of the form.
    uint32_t length();
    // Unchecked: at `length` it gives the terminator 0.
    uint16_t characterAtIndex_(uint32_t index);
    // length + 1 units, the terminator included.
    void getCharacters_(uint16_t* buffer);
    NSString* description() override { return this; }
    // h = 37 * h + (signed) byte over the UTF-8 bytes, from 17.
    uint32_t hash() override;
    bool isEqual_(NSObject* other) override;
    // Bytewise on the UTF-8 forms as unsigned bytes: exactly -1, 0 or 1.
    // Nil reads as the empty string; a value of another kind is ordered by
    // NSCompareKinds.
    int compare_(NSObject* other);
    int intValue();
    float floatValue();
    // The float value widened: only a float's precision.
    double doubleValue();
    // location counts bytes, length is the argument's 16-bit length;
    // absent: {0xFFFFFFFF, 0}. Nil, or an argument that is no string, is
    // never found.
    _NSRange rangeOfString_(NSObject* other);
    // The results below are autoreleased plain NSStrings.
    NSString* lowercaseString();
    NSString* capitalizedString();
    // A range that starts beyond the end is cut to the end, and one that
    // reaches beyond it stops at the terminator: never read past the text.
    NSString* substringToIndex_(uint32_t index);
    NSString* substringFromIndex_(uint32_t index);
    NSString* substringWithRange_(_NSRange range);
    // Autoreleased NSMutableStrings. An argument that is no string appends
    // nothing, as nil does.
    NSMutableString* stringByAppendingString_(NSObject* other);
    NSMutableString* stringByAppendingFormat_(const char* format, ...) NS_FORMAT(2, 3);
    NSMutableString* stringByAppendingFormat_(NSString* format, ...);
    NSString* trim();
    // Autoreleased NSMutableArrays of trimmed pieces; see splitBy_.
    NSMutableArray* split();
    NSMutableArray* splitBy_(NSCharacterSet* separators);
    // Nil, or an argument that is no string, has no separators: one piece.
    NSMutableArray* componentsSeparatedByString_(NSObject* separators);
    NSMutableArray* tokenize();
    // A new NSMutableString, owned by the caller.
    NSObject* mutableCopyWithZone_(NSZone* zone) override;

    // The byte length of the UTF-8 form.
    uint32_t byteLength() const { return _byteLength; }

    NSString() = default;

protected:
    ~NSString() override;
    // Replaces the text by bytes[0, length) and forgets the 16-bit form.
    void setBytes(const char* bytes, uint32_t length);
    void appendBytes(const char* bytes, uint32_t length);

    char* _c_string = nullptr;   // owned, NUL-terminated; constant strings point at static data
    uint32_t _byteLength = 0;    // bytes before the NUL
    uint32_t _byteCapacity = 0;  // size of the owned block, 0 when not owned
    uint16_t* _unistring = nullptr;
    uint32_t _unitLength = 0;  // units before the first 0 unit of _unistring
    uint32_t _hash = 0;        // valid when _hashKnown; an append carries it on
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
    // The class forms, answering mutable strings.
    static NSMutableString* string();
    static NSMutableString* stringWithCString_(const char* bytes);
    static NSMutableString* stringWithUTF8String_(const char* bytes);
    static NSMutableString* stringWithCString_encoding_(const char* bytes, uint32_t encoding);
    static NSMutableString* stringWithCharacters_length_(const uint16_t* units, uint32_t length);
    static NSMutableString* stringWithUTF16String_(const uint16_t* units);
    static NSMutableString* stringWithString_(NSString* other);
    static NSMutableString* stringWithFormat_(const char* format, ...) NS_FORMAT(1, 2);
    static NSMutableString* stringWithFormat_(NSString* format, ...);

    // The 16-bit form is made again, at its next use, for the new text.
    // Growth is amortised (the block doubles), so building a text by many
    // small appends is linear overall. A nil argument appends nothing, nor
    // does one that is no string. A string may be appended to itself.
    void appendString_(NSObject* other);
    // Formats into a buffer of 1000 bytes, then appends.
    void appendFormat_(const char* format, ...) NS_FORMAT(2, 3);
    void appendFormat_(NSString* format, ...);
    // Declared and empty; nothing calls it.
    void replaceCharactersInRange_withString_(_NSRange, NSString*) {}
    // A new NSMutableString with the same text, not a shared one.
    NSObject* copyWithZone_(NSZone* zone) override;

    NSMutableString() = default;

protected:
    ~NSMutableString() override = default;
};

// Formats into a buffer of `limit` bytes, terminator included, and answers
// the text up to its first NUL. Output that would not fit the buffer is cut
// at the last whole character before the limit (limit - 1 bytes or one
// less); it never runs past the buffer.
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
