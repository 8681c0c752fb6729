#include "NSString.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "NSCharacterSet.h"

namespace {

const char kUnsupported[] = "unsupported Unicode character (> 0x07ff)";

// 16-bit units to UTF-8 by the two-byte rule; anything above 0x07FF is
// one question mark and a log line.
void appendUnits(std::string* out, const uint16_t* units, uint32_t length) {
    for (uint32_t i = 0; i < length && units[i] != 0; i++) {
        uint16_t u = units[i];
        if (u < 0x80) {
            out->push_back(static_cast<char>(u));
        } else if (u <= 0x07FF) {
            out->push_back(static_cast<char>(0xC0 | (u >> 6)));
            out->push_back(static_cast<char>(0x80 | (u & 0x3F)));
        } else {
            LOG(kUnsupported);
            out->push_back('?');
        }
    }
}

}  // namespace

NSString::~NSString() {
    if (_byteCapacity) std::free(_c_string);
    std::free(_unistring);
}

void NSString::forgetCaches() {
    std::free(_unistring);
    _unistring = nullptr;
    _unitLength = 0;
    _hashKnown = false;
}

void NSString::setBytes(const char* bytes, uint32_t length) {
    char* block = static_cast<char*>(std::malloc(length + 1));
    std::memcpy(block, bytes, length);
    block[length] = '\0';
    if (_byteCapacity) std::free(_c_string);
    _c_string = block;
    _byteLength = length;
    _byteCapacity = length + 1;
    forgetCaches();
}

void NSString::appendBytes(const char* bytes, uint32_t length) {
    if (length == 0) return;
    uint32_t needed = _byteLength + length + 1;
    if (needed > _byteCapacity) {
        uint32_t capacity = _byteCapacity < 16 ? 16 : _byteCapacity;
        while (capacity < needed) capacity *= 2;
        char* block = static_cast<char*>(std::malloc(capacity));
        std::memcpy(block, _c_string, _byteLength);
        if (_byteCapacity) std::free(_c_string);
        _c_string = block;
        _byteCapacity = capacity;
    }
    std::memcpy(_c_string + _byteLength, bytes, length);
    _byteLength += length;
    _c_string[_byteLength] = '\0';
    forgetCaches();
}

NSString* NSString::init() {
    setBytes("", 0);
    return this;
}

NSString* NSString::initWithCString_(const char* bytes) {
    setBytes(bytes, static_cast<uint32_t>(std::strlen(bytes)));
    return this;
}

NSString* NSString::initWithUTF8String_(const char* bytes) { return initWithCString_(bytes); }

NSString* NSString::initWithCString_encoding_(const char* bytes, uint32_t) { return initWithCString_(bytes); }

NSString* NSString::initWithBytes_length_(const char* bytes, uint32_t length) {
    // Stops at a NUL among the bytes.
    const void* nul = std::memchr(bytes, 0, length);
    if (nul) length = static_cast<uint32_t>(static_cast<const char*>(nul) - bytes);
    setBytes(bytes, length);
    return this;
}

NSString* NSString::initWithCharacters_length_(const uint16_t* units, uint32_t length) {
    std::string text;
    appendUnits(&text, units, length);
    setBytes(text.data(), static_cast<uint32_t>(text.size()));
    return this;
}

NSString* NSString::initWithUTF16String_(const uint16_t* units) {
    uint32_t n = 0;
    while (units[n]) n++;
    return initWithCharacters_length_(units, n);
}

NSString* NSString::initWithString_(NSString* other) {
    setBytes(other->_c_string, other->_byteLength);
    return this;
}

NSString* NSString::string() { return NSAutorelease(alloc()->init()); }

NSString* NSString::stringWithCString_(const char* bytes) { return NSAutorelease(alloc()->initWithCString_(bytes)); }

NSString* NSString::stringWithUTF8String_(const char* bytes) {
    return NSAutorelease(alloc()->initWithUTF8String_(bytes));
}

NSString* NSString::stringWithCString_encoding_(const char* bytes, uint32_t) {
    return NSAutorelease(alloc()->initWithCString_(bytes));
}

NSString* NSString::stringWithCharacters_length_(const uint16_t* units, uint32_t length) {
    return NSAutorelease(alloc()->initWithCharacters_length_(units, length));
}

NSString* NSString::stringWithUTF16String_(const uint16_t* units) {
    return NSAutorelease(alloc()->initWithUTF16String_(units));
}

NSString* NSString::stringWithString_(NSString* other) { return NSAutorelease(alloc()->initWithString_(other)); }

namespace {
constexpr uint32_t kFormatLimit = 100000;
constexpr uint32_t kAppendFormatLimit = 1000;
}  // namespace

std::string NSFormatBytes(uint32_t limit, const char* format, va_list ap) {
    std::string out;
    out.resize(limit);
    int n = std::vsnprintf(&out[0], limit, format, ap);
    if (n < 0) return std::string();
    uint32_t length = static_cast<uint32_t>(n);
    if (length >= limit) {
        length = limit - 1;
        // Step back over the lead byte of a character that lost its second
        // half to the cut.
        if (length > 0 && (static_cast<unsigned char>(out[length - 1]) & 0xE0) == 0xC0) length--;
    }
    out.resize(length);
    return out;
}

NSString* NSString::stringWithFormat_(const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string text = NSFormatBytes(kFormatLimit, format, ap);
    va_end(ap);
    NSString* s = alloc()->init();
    s->setBytes(text.data(), static_cast<uint32_t>(text.size()));
    return NSAutorelease(s);
}

NSString* NSString::stringWithFormat_(NSString* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string text = NSFormatBytes(kFormatLimit, format->UTF8String(), ap);
    va_end(ap);
    NSString* s = alloc()->init();
    s->setBytes(text.data(), static_cast<uint32_t>(text.size()));
    return NSAutorelease(s);
}

// ---------------------------------------------------------------------------
// Reading.

const uint16_t* NSString::UTF16String() {
    uint16_t* units = __atomic_load_n(&_unistring, __ATOMIC_ACQUIRE);
    if (units) return units;
    // Bytes to units, byte by byte. The form is made once per state of the
    // text, so its log lines come at the first use only.
    auto* block = static_cast<uint16_t*>(std::malloc((static_cast<size_t>(_byteLength) + 1) * sizeof(uint16_t)));
    uint32_t n = 0;
    const auto* b = reinterpret_cast<const unsigned char*>(_c_string);
    for (uint32_t i = 0; i < _byteLength; i++) {
        unsigned char c = b[i];
        if (c < 0x80) {
            block[n++] = c;
        } else if (c >= 0xC0 && c <= 0xDF) {
            // The next byte is taken whatever it is; at the end of the text
            // the unit is made with 0 and the text ends.
            unsigned char next = i + 1 < _byteLength ? b[i + 1] : 0;
            block[n++] = static_cast<uint16_t>(((c & 0x1F) << 6) | (next & 0x3F));
            i++;
        } else {
            LOG(kUnsupported);
            block[n++] = '?';
        }
    }
    block[n] = 0;
    // Two threads racing on a shared string make the same form; the loser
    // frees its copy.
    uint16_t* expected = nullptr;
    if (__atomic_compare_exchange_n(&_unistring, &expected, block, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
        __atomic_store_n(&_unitLength, n, __ATOMIC_RELEASE);
        return block;
    }
    std::free(block);
    return expected;
}

uint32_t NSString::length() {
    UTF16String();
    return __atomic_load_n(&_unitLength, __ATOMIC_ACQUIRE);
}

uint16_t NSString::characterAtIndex_(uint32_t index) { return UTF16String()[index]; }

void NSString::getCharacters_(uint16_t* buffer) {
    const uint16_t* units = UTF16String();
    std::memcpy(buffer, units, (static_cast<size_t>(length()) + 1) * sizeof(uint16_t));
}

uint32_t NSString::hash() {
    if (_hashKnown) return _hash;
    uint32_t h = 17;
    for (uint32_t i = 0; i < _byteLength; i++) {
        h = 37 * h + static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(_c_string[i])));
    }
    _hash = h;
    _hashKnown = true;
    return h;
}

bool NSString::isEqual_(NSObject* other) {
    if (other == this) return true;
    if (!other || !other->isKindOfClass_(NSString::classObject())) return false;
    auto* s = static_cast<NSString*>(other);
    return s->_byteLength == _byteLength && std::memcmp(s->_c_string, _c_string, _byteLength) == 0;
}

int NSString::compare_(NSString* other) {
    int c = std::strcmp(_c_string, other ? other->_c_string : "");
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

int NSString::intValue() { return std::atoi(_c_string); }

float NSString::floatValue() { return static_cast<float>(std::atof(_c_string)); }

double NSString::doubleValue() { return floatValue(); }

_NSRange NSString::rangeOfString_(NSString* other) {
    const char* found = std::strstr(_c_string, other->_c_string);
    if (!found) return NSMakeRange(0xFFFFFFFFu, 0);
    return NSMakeRange(static_cast<uint32_t>(found - _c_string), other->length());
}

NSString* NSString::lowercaseString() {
    std::string text(_c_string, _byteLength);
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    NSString* s = NSString::alloc()->init();
    s->setBytes(text.data(), _byteLength);
    return NSAutorelease(s);
}

NSString* NSString::capitalizedString() {
    std::string text(_c_string, _byteLength);
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 'a' + 'A');
    NSString* s = NSString::alloc()->init();
    s->setBytes(text.data(), _byteLength);
    return NSAutorelease(s);
}

NSString* NSString::substringWithRange_(_NSRange range) {
    return NSString::stringWithCharacters_length_(UTF16String() + range.location, range.length);
}

NSString* NSString::substringToIndex_(uint32_t index) { return substringWithRange_(NSMakeRange(0, index)); }

NSString* NSString::substringFromIndex_(uint32_t index) {
    return substringWithRange_(NSMakeRange(index, length() - index));
}

NSMutableString* NSString::stringByAppendingString_(NSString* other) {
    NSMutableString* s = NSMutableString::stringWithString_(this);
    s->appendString_(other);
    return s;
}

NSMutableString* NSString::stringByAppendingFormat_(const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string text = NSFormatBytes(kFormatLimit, format, ap);
    va_end(ap);
    NSMutableString* s = NSMutableString::stringWithString_(this);
    s->appendBytes(text.data(), static_cast<uint32_t>(text.size()));
    return s;
}

NSString* NSString::trim() {
    Ref<NSCharacterSet> white = retainRef(NSCharacterSet::whitespaceAndNewlineCharacterSet());
    uint32_t n = length();
    uint32_t start = 0;
    while (start < n && white->characterIsMember_(characterAtIndex_(start))) start++;
    uint32_t end = n;
    while (end > start && white->characterIsMember_(characterAtIndex_(end - 1))) end--;
    return NSString::stringWithCharacters_length_(UTF16String() + start, end - start);
}

NSObject* NSString::mutableCopyWithZone_(NSZone*) {
    NSMutableString* s = NSMutableString::alloc();
    s->setBytes(_c_string, _byteLength);
    return s;
}

// ---------------------------------------------------------------------------

NSConstantString::NSConstantString(const char* bytes, uint32_t length) {
    _c_string = const_cast<char*>(bytes);
    _byteLength = length;
    _byteCapacity = 0;  // not ours to free
}

NSMutableString* NSMutableString::string() { return static_cast<NSMutableString*>(NSAutorelease(alloc()->init())); }

NSMutableString* NSMutableString::stringWithString_(NSString* other) {
    return static_cast<NSMutableString*>(NSAutorelease(alloc()->initWithString_(other)));
}

NSMutableString* NSMutableString::stringWithUTF8String_(const char* bytes) {
    return static_cast<NSMutableString*>(NSAutorelease(alloc()->initWithUTF8String_(bytes)));
}

NSMutableString* NSMutableString::stringWithFormat_(const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string text = NSFormatBytes(kFormatLimit, format, ap);
    va_end(ap);
    NSMutableString* s = string();
    s->appendBytes(text.data(), static_cast<uint32_t>(text.size()));
    return s;
}

void NSMutableString::appendString_(NSString* other) {
    if (other) appendBytes(other->UTF8String(), other->byteLength());
}

void NSMutableString::appendFormat_(const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string text = NSFormatBytes(kAppendFormatLimit, format, ap);
    va_end(ap);
    appendBytes(text.data(), static_cast<uint32_t>(text.size()));
}

NSObject* NSMutableString::copyWithZone_(NSZone* zone) { return mutableCopyWithZone_(zone); }

// ---------------------------------------------------------------------------

namespace {
NSString* newString(Class cls) { return static_cast<NSString*>(cls->alloc()->init()); }
NSString* classString(Class cls) { return NSAutorelease(newString(cls)); }
NSString* classStringWithString(Class cls, NSString* other) {
    return NSAutorelease(static_cast<NSString*>(cls->alloc())->initWithString_(other));
}
NSString* classStringWithUTF8String(Class cls, const char* bytes) {
    return NSAutorelease(static_cast<NSString*>(cls->alloc())->initWithUTF8String_(bytes));
}
}  // namespace

NS_CLASS_BEGIN(NSString, NSObject)
    NS_METHOD(init)
    NS_METHOD(initWithCString_)
    NS_METHOD(initWithUTF8String_)
    NS_METHOD(initWithCString_encoding_)
    NS_METHOD(initWithCharacters_length_)
    NS_METHOD(initWithUTF16String_)
    NS_METHOD(initWithString_)
    NS_METHOD(cString)
    NS_METHOD(UTF8String)
    NS_METHOD(cStringUsingEncoding_)
    NS_METHOD(UTF16String)
    NS_METHOD(length)
    NS_METHOD(characterAtIndex_)
    NS_METHOD(getCharacters_)
    NS_METHOD(description)
    NS_METHOD(hash)
    NS_METHOD(isEqual_)
    NS_METHOD(compare_)
    NS_METHOD(intValue)
    NS_METHOD(floatValue)
    NS_METHOD(doubleValue)
    NS_METHOD(rangeOfString_)
    NS_METHOD(lowercaseString)
    NS_METHOD(capitalizedString)
    NS_METHOD(substringToIndex_)
    NS_METHOD(substringFromIndex_)
    NS_METHOD(substringWithRange_)
    NS_METHOD(stringByAppendingString_)
    NS_METHOD(trim)
    NS_METHOD(mutableCopyWithZone_)
    .classMethodNamed<&classString>("string")
    .classMethodNamed<&classStringWithString>("stringWithString:")
    .classMethodNamed<&classStringWithUTF8String>("stringWithUTF8String:")
    .classMethodNamed<&classStringWithUTF8String>("stringWithCString:")
NS_CLASS_END(NSString)

NS_CLASS_BEGIN(NSConstantString, NSString)
NS_CLASS_END(NSConstantString)

NS_CLASS_BEGIN(NSMutableString, NSString)
    NS_METHOD(appendString_)
    NS_METHOD(replaceCharactersInRange_withString_)
    NS_METHOD(copyWithZone_)
NS_CLASS_END(NSMutableString)
