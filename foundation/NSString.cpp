#include "NSString.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "NSArray.h"
#include "NSCharacterSet.h"
#include "NSData.h"
#include "NSValue.h"

namespace {

const char kUnsupported[] = "unsupported Unicode character (> 0x07ff)";
constexpr uint32_t kFormatLimit = 100000;
constexpr uint32_t kAppendFormatLimit = 1000;

// 16-bit units to UTF-8 by the two-byte rule; anything above 0x07FF is one
// question mark and a log line. A unit 0 ends the text.
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

// The members of whitespaceAndNewlineCharacterSet. trim and split ask this
// directly instead of making a set per call: the answers are the same.
inline bool isWhite(uint16_t u) { return u == ' ' || u == '\t' || u == '\n' || u == '\r'; }

// Characters that tokenize breaks off a word.
inline bool isPunctuation(uint16_t u) {
    switch (u) {
        case ',':
        case '.':
        case ';':
        case ':':
        case '(':
        case ')':
        case '[':
        case ']':
        case '{':
        case '}':
        case '\'':
        case '<':
        case '>':
        case '"':
            return true;
        default:
            return false;
    }
}

// An autoreleased plain NSString of units[start, end), end first cut to n
// (a piece that reaches one past the end reads the terminator), white space
// trimmed at both ends.
NSString* trimmedPiece(const uint16_t* units, uint32_t n, uint32_t start, uint32_t end) {
    end = std::min(end, n);
    while (start < end && isWhite(units[start])) start++;
    while (end > start && isWhite(units[end - 1])) end--;
    return NSString::stringWithCharacters_length_(units + start, end - start);
}

// The one splitting rule behind split, splitBy: and componentsSeparatedByString:.
template <class IsSeparator>
NSMutableArray* splitUnits(NSString* text, IsSeparator isSeparator) {
    NSMutableArray* pieces = NSMutableArray::array();
    const uint16_t* units = text->UTF16String();
    uint32_t n = text->length();
    // The character at index 0 is never tested: a separator there stays in
    // the first piece.
    uint32_t start = 0;
    uint32_t position = 1;
    while (position < n) {
        if (isSeparator(units[position])) {
            pieces->addObject_(trimmedPiece(units, n, start, position));
            start = position = position + 1;
        } else {
            position++;
        }
    }
    pieces->addObject_(trimmedPiece(units, n, start, position));
    return pieces;
}

// An autoreleased instance of `cls` set up by the initializer `init`.
template <class T, class... P, class... A>
T* newAutoreleased(Class cls, NSString* (NSString::*init)(P...), A... args) {
    auto* s = static_cast<NSString*>(cls->alloc());
    if (!s) return nullptr;
    return static_cast<T*>(NSAutorelease((s->*init)(args...)));
}

// The class forms as sent by name: an instance of the receiving class.
template <auto Init, class... P>
NSString* classForm(Class cls, P... args) {
    return newAutoreleased<NSString>(cls, Init, args...);
}

}  // namespace

std::string NSFormatBytes(uint32_t limit, const char* format, va_list ap) {
    if (limit == 0) return std::string();
    // Most texts are short: format on the stack first and allocate only what
    // a long text needs, never the whole limit.
    char small[512];
    const uint32_t smallSize = std::min<uint32_t>(sizeof small, limit);
    va_list again;
    va_copy(again, ap);
    int n = std::vsnprintf(small, smallSize, format, ap);
    if (n < 0) {
        va_end(again);
        return std::string();
    }
    bool cut = static_cast<uint32_t>(n) >= limit;
    uint32_t kept = cut ? limit - 1 : static_cast<uint32_t>(n);
    std::string out;
    if (kept < smallSize) {
        out.assign(small, kept);
    } else {
        out.resize(kept);
        std::vsnprintf(&out[0], static_cast<size_t>(kept) + 1, format, again);
    }
    va_end(again);
    // A %c of 0 ends the text there, as the text is read up to its NUL.
    size_t nul = out.find('\0');
    if (nul != std::string::npos) {
        out.resize(nul);
    } else if (cut && !out.empty() && (static_cast<unsigned char>(out.back()) & 0xE0) == 0xC0) {
        // The cut took the second half of a two-byte character: drop its
        // lead byte too, so that the text ends on a whole character.
        out.pop_back();
    }
    return out;
}

namespace {
// The formatted text as a new instance of `cls`, autoreleased.
template <class T>
T* formatted(Class cls, uint32_t limit, const char* format, va_list ap) {
    std::string text = NSFormatBytes(limit, format, ap);
    return newAutoreleased<T>(cls, &NSString::initWithBytes_length_, text.data(),
                              static_cast<uint32_t>(text.size()));
}
}  // namespace

// ---------------------------------------------------------------------------
// Storage.

NSString::~NSString() {
    if (_byteCapacity) std::free(_c_string);
    std::free(_unistring);
}

void NSString::setBytes(const char* bytes, uint32_t length) {
    char* block = static_cast<char*>(std::malloc(static_cast<size_t>(length) + 1));
    std::memcpy(block, bytes, length);
    block[length] = '\0';
    if (_byteCapacity) std::free(_c_string);
    _c_string = block;
    _byteLength = length;
    _byteCapacity = length + 1;
    std::free(_unistring);
    _unistring = nullptr;
    _unitLength = 0;
    _hashKnown = false;
}

void NSString::appendBytes(const char* bytes, uint32_t length) {
    if (length == 0) return;
    // Lengths are 32-bit: a text that would not fit stays as it is.
    const uint64_t needed = uint64_t{_byteLength} + length + 1;
    if (needed > UINT32_MAX) {
        LOG("string too long to append %u bytes", length);
        return;
    }
    char* added = _c_string + _byteLength;
    if (needed > _byteCapacity) {
        uint64_t capacity = _byteCapacity < 16 ? 16 : _byteCapacity;
        while (capacity < needed) capacity *= 2;
        capacity = std::min<uint64_t>(capacity, UINT32_MAX);
        char* block = static_cast<char*>(std::malloc(capacity));
        if (!block) {
            LOG("string too long to append %u bytes", length);
            return;
        }
        std::memcpy(block, _c_string, _byteLength);
        added = block + _byteLength;
        // The bytes may be this very text (a string appended to itself), so
        // they are copied before the old block goes.
        std::memcpy(added, bytes, length);
        if (_byteCapacity) std::free(_c_string);
        _c_string = block;
        _byteCapacity = static_cast<uint32_t>(capacity);
    } else {
        // Within the block the new bytes land behind the text, so even the
        // text's own bytes don't overlap their destination.
        std::memcpy(added, bytes, length);
    }
    if (_hashKnown) {
        // The hash runs over the bytes in order, so it carries on.
        for (uint32_t i = 0; i < length; i++)
            _hash = 37 * _hash + static_cast<uint32_t>(static_cast<signed char>(added[i]));
    }
    _byteLength += length;
    _c_string[_byteLength] = '\0';
    // A new state of the text: its 16-bit form is made again at its next use,
    // from all the bytes, so unsupported bytes log again at that use.
    std::free(_unistring);
    _unistring = nullptr;
    _unitLength = 0;
}

// ---------------------------------------------------------------------------
// Construction.

NSString* NSString::init() {
    setBytes("", 0);
    return this;
}

NSString* NSString::initWithCString_(const char* bytes) {
    setBytes(bytes, static_cast<uint32_t>(std::strlen(bytes)));
    return this;
}

NSString* NSString::initWithUTF8String_(const char* bytes) { return initWithCString_(bytes); }

NSString* NSString::initWithCString_encoding_(const char* bytes, uint32_t) {
    return initWithCString_(bytes);
}

NSString* NSString::initWithData_encoding_(NSData* data, uint32_t) {
    uint32_t length = NSNil(data, &NSData::length);
    if (length == 0) return initWithBytes_length_(nullptr, 0);
    // NSData hands out a copy of its bytes, which is ours to free.
    void* bytes = data->bytes();
    initWithBytes_length_(static_cast<const char*>(bytes), length);
    std::free(bytes);
    return this;
}

NSString* NSString::initWithBytes_length_(const char* bytes, uint32_t length) {
    const void* nul = length ? std::memchr(bytes, 0, length) : nullptr;
    if (nul) length = static_cast<uint32_t>(static_cast<const char*>(nul) - bytes);
    setBytes(length ? bytes : "", length);
    return this;
}

NSString* NSString::initWithCharacters_length_(const uint16_t* units, uint32_t length) {
    std::string text;
    text.reserve(length);
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
    NSString* text = NSDynamicCast<NSString>(other);
    setBytes(text ? text->_c_string : "", text ? text->_byteLength : 0);
    return this;
}

NSString* NSString::string() { return newAutoreleased<NSString>(classObject(), &NSString::init); }

NSString* NSString::stringWithCString_(const char* bytes) {
    return newAutoreleased<NSString>(classObject(), &NSString::initWithCString_, bytes);
}

NSString* NSString::stringWithUTF8String_(const char* bytes) {
    return newAutoreleased<NSString>(classObject(), &NSString::initWithUTF8String_, bytes);
}

NSString* NSString::stringWithCString_encoding_(const char* bytes, uint32_t encoding) {
    return newAutoreleased<NSString>(classObject(), &NSString::initWithCString_encoding_, bytes,
                                     encoding);
}

NSString* NSString::stringWithCharacters_length_(const uint16_t* units, uint32_t length) {
    return newAutoreleased<NSString>(classObject(), &NSString::initWithCharacters_length_, units,
                                     length);
}

NSString* NSString::stringWithUTF16String_(const uint16_t* units) {
    return newAutoreleased<NSString>(classObject(), &NSString::initWithUTF16String_, units);
}

NSString* NSString::stringWithString_(NSString* other) {
    return newAutoreleased<NSString>(classObject(), &NSString::initWithString_, other);
}

NSString* NSString::stringWithFormat_(const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    NSString* s = formatted<NSString>(classObject(), kFormatLimit, format, ap);
    va_end(ap);
    return s;
}

NSString* NSString::stringWithFormat_(NSString* format, ...) {
    va_list ap;
    va_start(ap, format);
    NSString* s = formatted<NSString>(classObject(), kFormatLimit, format->UTF8String(), ap);
    va_end(ap);
    return s;
}

NSString* NSString::stringWithArray_(NSArray* words) {
    return stringWithArray_omit_(words, nullptr);
}

NSString* NSString::stringWithArray_omit_(NSArray* words, NSObject* omit) {
    // The two sets are made for each call from byte strings, and only when
    // first consulted: their bytes 0x84 and 0x93 decode to '?' with a log
    // line at that moment, and a call that never consults a set logs nothing
    // for it.
    Ref<NSCharacterSet> noSpaceAfter;
    Ref<NSCharacterSet> noSpaceBefore;
    auto isMember = [](Ref<NSCharacterSet>& set, const char* bytes, uint16_t c) {
        if (!set) {
            Ref<NSString> members = adoptRef(NSString::alloc()->initWithCString_(bytes));
            set.adopt(NSCharacterSet::alloc()->initWithCharactersInString_(members));
        }
        return set->characterIsMember_(c);
    };
    Ref<NSMutableString> built =
            adoptRef(static_cast<NSMutableString*>(NSMutableString::alloc()->init()));
    uint16_t p = 0;
    words = NSDynamicCast<NSArray>(words);
    uint32_t count = NSNil(words, &NSArray::count);
    for (uint32_t i = 0; i < count; i++) {
        // An element that is no string adds nothing but its blank.
        NSString* word = NSDynamicCast<NSString>(words->objectAtIndex_(i));
        if (omit && word && word->isEqual_(omit)) continue;
        uint16_t c = word && word->length() == 1 ? word->characterAtIndex_(0) : 0;
        if (p && isMember(noSpaceAfter, "([{'<\"\x84", p)) {
        } else if (c && isMember(noSpaceBefore, ",.;:)]}'>\"\x93!?", c)) {
        } else {
            built->appendBytes(" ", 1);
        }
        built->appendString_(word);
        p = c;
    }
    return built->trim();
}

// ---------------------------------------------------------------------------
// Reading.

const uint16_t* NSString::UTF16String() {
    uint16_t* units = __atomic_load_n(&_unistring, __ATOMIC_ACQUIRE);
    if (units) return units;
    // Bytes to units, byte by byte. The form is made once per state of the
    // text, so its log lines come at the first use only.
    auto* block = static_cast<uint16_t*>(
            std::malloc((static_cast<size_t>(_byteLength) + 1) * sizeof(uint16_t)));
    uint32_t n = 0;
    uint32_t firstZero = UINT32_MAX;
    const auto* b = reinterpret_cast<const unsigned char*>(_c_string);
    for (uint32_t i = 0; i < _byteLength; i++) {
        unsigned char c = b[i];
        uint16_t u;
        if (c < 0x80) {
            u = c;
        } else if (c >= 0xC0 && c <= 0xDF) {
            // The next byte is taken whatever it is; at the end of the text
            // the unit is made with 0 and the text ends.
            unsigned char next = i + 1 < _byteLength ? b[i + 1] : 0;
            u = static_cast<uint16_t>(((c & 0x1F) << 6) | (next & 0x3F));
            i++;
        } else {
            LOG(kUnsupported);
            u = '?';
        }
        // C0 80 decodes to a unit 0, which ends the text for everything that
        // walks the form.
        if (u == 0 && firstZero == UINT32_MAX) firstZero = n;
        block[n++] = u;
    }
    block[n] = 0;
    // Two threads racing on a shared string make the same form and the same
    // length; the loser frees its copy.
    __atomic_store_n(&_unitLength, std::min(n, firstZero), __ATOMIC_RELAXED);
    uint16_t* expected = nullptr;
    if (__atomic_compare_exchange_n(&_unistring, &expected, block, false, __ATOMIC_ACQ_REL,
                                    __ATOMIC_ACQUIRE)) {
        return block;
    }
    std::free(block);
    return expected;
}

const char* NSString::CP1250String() {
    auto* out = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(_byteLength) + 1));
    const auto* b = reinterpret_cast<const unsigned char*>(_c_string);
    uint32_t n = 0;
    for (uint32_t i = 0; i < _byteLength; i++) {
        unsigned char c = b[i];
        if (c == 0xC3 && i + 1 < _byteLength) {
            unsigned char single = 0;
            switch (b[i + 1]) {
                case 0xBC:
                    single = 0xFC;
                    break;  // ü
                case 0xB6:
                    single = 0xF6;
                    break;  // ö
                case 0xA4:
                    single = 0xE4;
                    break;  // ä
                case 0x9F:
                    single = 0xDF;
                    break;  // ß
                case 0x9C:
                    single = 0xDC;
                    break;  // Ü
                case 0x96:
                    single = 0xD6;
                    break;  // Ö
                case 0x84:
                    single = 0xC4;
                    break;  // Ä
                default:
                    break;
            }
            if (single) {
                out[n++] = single;
                i++;
                continue;
            }
        }
        // Any other byte, a lead byte of another pair included, is copied as
        // it is; the byte after it is looked at afresh.
        out[n++] = c;
    }
    out[n] = 0;
    NSValue::valueWithPointer_freeOnRelease_(out, true);
    return reinterpret_cast<const char*>(out);
}

uint32_t NSString::length() {
    UTF16String();
    return __atomic_load_n(&_unitLength, __ATOMIC_RELAXED);
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
        h = 37 * h + static_cast<uint32_t>(static_cast<signed char>(_c_string[i]));
    }
    _hash = h;
    _hashKnown = true;
    return h;
}

bool NSString::isEqual_(NSObject* other) {
    if (other == this) return true;
    NSString* s = NSDynamicCast<NSString>(other);
    if (!s) return false;
    return s->_byteLength == _byteLength && std::memcmp(s->_c_string, _c_string, _byteLength) == 0;
}

int NSString::compare_(NSObject* other) {
    NSString* text = NSDynamicCast<NSString>(other);
    if (other && !text) return NSCompareKinds(this, other);
    // strcmp compares as unsigned bytes, so non-ASCII text sorts after ASCII.
    int c = std::strcmp(_c_string, text ? text->_c_string : "");
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

int NSString::intValue() { return std::atoi(_c_string); }

float NSString::floatValue() { return static_cast<float>(std::atof(_c_string)); }

double NSString::doubleValue() { return floatValue(); }

_NSRange NSString::rangeOfString_(NSObject* other) {
    NSString* text = NSDynamicCast<NSString>(other);
    const char* found = text ? std::strstr(_c_string, text->_c_string) : nullptr;
    if (!found) return NSMakeRange(0xFFFFFFFFu, 0);
    return NSMakeRange(static_cast<uint32_t>(found - _c_string), text->length());
}

NSString* NSString::lowercaseString() {
    std::string text(_c_string, _byteLength);
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return NSString::stringWithCString_(text.c_str());
}

NSString* NSString::capitalizedString() {
    std::string text(_c_string, _byteLength);
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z')
        text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return NSString::stringWithCString_(text.c_str());
}

NSString* NSString::substringToIndex_(uint32_t index) {
    return substringWithRange_(NSMakeRange(0, index));
}

NSString* NSString::substringFromIndex_(uint32_t index) {
    uint32_t n = length();
    index = std::min(index, n);
    return substringWithRange_(NSMakeRange(index, n - index));
}

NSString* NSString::substringWithRange_(_NSRange range) {
    // The text ends the range: nothing past its terminator is read.
    uint32_t n = length();
    uint32_t location = std::min(range.location, n);
    uint32_t count = std::min(range.length, n - location);
    return NSString::stringWithCharacters_length_(UTF16String() + location, count);
}

NSMutableString* NSString::stringByAppendingString_(NSObject* other) {
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

NSMutableString* NSString::stringByAppendingFormat_(NSString* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string text = NSFormatBytes(kFormatLimit, format->UTF8String(), ap);
    va_end(ap);
    NSMutableString* s = NSMutableString::stringWithString_(this);
    s->appendBytes(text.data(), static_cast<uint32_t>(text.size()));
    return s;
}

NSString* NSString::trim() { return trimmedPiece(UTF16String(), length(), 0, length()); }

NSMutableArray* NSString::split() { return splitUnits(this, isWhite); }

NSMutableArray* NSString::splitBy_(NSCharacterSet* separators) {
    return splitUnits(this, [separators](uint16_t u) {
        return NSNil(separators, &NSCharacterSet::characterIsMember_, u);
    });
}

NSMutableArray* NSString::componentsSeparatedByString_(NSObject* separators) {
    return splitBy_(NSCharacterSet::characterSetWithCharactersInString_(
            NSDynamicCast<NSString>(separators)));
}

NSMutableArray* NSString::tokenize() {
    NSMutableArray* tokens = NSMutableArray::array();
    NSMutableArray* words = split();
    std::vector<uint32_t> tail;
    for (uint32_t w = 0, count = words->count(); w < count; w++) {
        auto* word = static_cast<NSString*>(words->objectAtIndex_(w));
        const uint16_t* units = word->UTF16String();
        uint32_t n = word->length();
        if (n == 0) continue;
        uint32_t start = 0;
        uint32_t end = n;
        if (isPunctuation(units[0])) {
            tokens->addObject_(NSString::stringWithCharacters_length_(units, 1));
            start = 1;
        }
        tail.clear();
        while (end > start && isPunctuation(units[end - 1])) tail.push_back(--end);
        // A word that was all punctuation has no middle; an empty token would
        // only stand for nothing, so none is made.
        if (end > start)
            tokens->addObject_(NSString::stringWithCharacters_length_(units + start, end - start));
        for (uint32_t at : tail)
            tokens->addObject_(NSString::stringWithCharacters_length_(units + at, 1));
    }
    return tokens;
}

NSObject* NSString::mutableCopyWithZone_(NSZone*) {
    NSMutableString* s = NSMutableString::alloc();
    if (s) s->setBytes(_c_string, _byteLength);
    return s;
}

// ---------------------------------------------------------------------------

NSConstantString::NSConstantString(const char* bytes, uint32_t length) {
    _c_string = const_cast<char*>(bytes);
    _byteLength = length;
    _byteCapacity = 0;  // not ours to free
}

NSMutableString* NSMutableString::string() {
    return newAutoreleased<NSMutableString>(classObject(), &NSString::init);
}

NSMutableString* NSMutableString::stringWithCString_(const char* bytes) {
    return newAutoreleased<NSMutableString>(classObject(), &NSString::initWithCString_, bytes);
}

NSMutableString* NSMutableString::stringWithUTF8String_(const char* bytes) {
    return newAutoreleased<NSMutableString>(classObject(), &NSString::initWithUTF8String_, bytes);
}

NSMutableString* NSMutableString::stringWithCString_encoding_(const char* bytes,
                                                              uint32_t encoding) {
    return newAutoreleased<NSMutableString>(classObject(), &NSString::initWithCString_encoding_,
                                            bytes, encoding);
}

NSMutableString* NSMutableString::stringWithCharacters_length_(const uint16_t* units,
                                                               uint32_t length) {
    return newAutoreleased<NSMutableString>(classObject(), &NSString::initWithCharacters_length_,
                                            units, length);
}

NSMutableString* NSMutableString::stringWithUTF16String_(const uint16_t* units) {
    return newAutoreleased<NSMutableString>(classObject(), &NSString::initWithUTF16String_, units);
}

NSMutableString* NSMutableString::stringWithString_(NSString* other) {
    return newAutoreleased<NSMutableString>(classObject(), &NSString::initWithString_, other);
}

NSMutableString* NSMutableString::stringWithFormat_(const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    NSMutableString* s = formatted<NSMutableString>(classObject(), kFormatLimit, format, ap);
    va_end(ap);
    return s;
}

NSMutableString* NSMutableString::stringWithFormat_(NSString* format, ...) {
    va_list ap;
    va_start(ap, format);
    NSMutableString* s =
            formatted<NSMutableString>(classObject(), kFormatLimit, format->UTF8String(), ap);
    va_end(ap);
    return s;
}

void NSMutableString::appendString_(NSObject* other) {
    NSString* text = NSDynamicCast<NSString>(other);
    if (text) appendBytes(text->UTF8String(), text->byteLength());
}

void NSMutableString::appendFormat_(const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string text = NSFormatBytes(kAppendFormatLimit, format, ap);
    va_end(ap);
    appendBytes(text.data(), static_cast<uint32_t>(text.size()));
}

void NSMutableString::appendFormat_(NSString* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string text = NSFormatBytes(kAppendFormatLimit, format->UTF8String(), ap);
    va_end(ap);
    appendBytes(text.data(), static_cast<uint32_t>(text.size()));
}

NSObject* NSMutableString::copyWithZone_(NSZone* zone) { return mutableCopyWithZone_(zone); }

// ---------------------------------------------------------------------------
// The format operations (stringWithFormat:, stringByAppendingFormat:,
// appendFormat:) are C variadic functions: their arguments can't travel in an
// argument frame, so they are for C++ callers only and not in the tables.

// clang-format off
NS_CLASS_BEGIN(NSString, NSObject)
    NS_METHOD(init)
    NS_METHOD(initWithCString_)
    NS_METHOD(initWithUTF8String_)
    NS_METHOD(initWithCString_encoding_)
    NS_METHOD(initWithData_encoding_)
    NS_METHOD(initWithCharacters_length_)
    NS_METHOD(initWithUTF16String_)
    NS_METHOD(initWithString_)
    NS_METHOD(cString)
    NS_METHOD(UTF8String)
    NS_METHOD(cStringUsingEncoding_)
    NS_METHOD(UTF16String)
    NS_METHOD(CP1250String)
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
    NS_METHOD(split)
    NS_METHOD(splitBy_)
    NS_METHOD(componentsSeparatedByString_)
    NS_METHOD(tokenize)
    NS_METHOD(mutableCopyWithZone_)
    .classMethodNamed<&classForm<&NSString::initWithCString_, const char*>>("stringWithCString:")
    .classMethodNamed<&classForm<&NSString::initWithUTF8String_, const char*>>("stringWithUTF8String:")
    .classMethodNamed<&classForm<&NSString::initWithCString_encoding_, const char*, uint32_t>>("stringWithCString:encoding:")
    .classMethodNamed<&classForm<&NSString::initWithCharacters_length_, const uint16_t*, uint32_t>>("stringWithCharacters:length:")
    .classMethodNamed<&classForm<&NSString::initWithUTF16String_, const uint16_t*>>("stringWithUTF16String:")
    .classMethodNamed<&classForm<&NSString::initWithString_, NSString*>>("stringWithString:")
    .classMethodNamed<&classForm<&NSString::init>>("string")
    NS_CLASS_METHOD(stringWithArray_)
    NS_CLASS_METHOD(stringWithArray_omit_)
NS_CLASS_END(NSString)

NS_CLASS_BEGIN(NSConstantString, NSString)
NS_CLASS_END(NSConstantString)

NS_CLASS_BEGIN(NSMutableString, NSString)
    NS_METHOD(appendString_)
    NS_METHOD(replaceCharactersInRange_withString_)
    NS_METHOD(copyWithZone_)
NS_CLASS_END(NSMutableString)
// clang-format on
