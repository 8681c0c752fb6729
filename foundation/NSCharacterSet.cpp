#include "NSCharacterSet.h"

#include <string>

NSCharacterSet* NSCharacterSet::whitespaceAndNewlineCharacterSet() {
    return characterSetWithCharactersInString_(" \t\n\r"_ns);
}

NSCharacterSet* NSCharacterSet::characterSetWithCharactersInString_(NSString* string) {
    return NSAutorelease(alloc()->initWithCharactersInString_(string));
}

NSCharacterSet* NSCharacterSet::initWithCharactersInString_(NSString* string) {
    setCharacters(string);
    return this;
}

void NSCharacterSet::setCharacters(NSObject* members) {
    // Anything but a string has no characters.
    NSString* string = NSDynamicCast<NSString>(members);
    _characters.set(string);
    _tableSource = nullptr;
    for (uint64_t& word : _table) word = 0;
    // A mutable string may change after this; it is walked at every test.
    if (!string || string->isKindOfClass_(NSMutableString::classObject())) return;
    const uint16_t* units = string->UTF16String();
    uint32_t n = string->length();
    for (uint32_t i = 0; i < n; i++) {
        uint16_t u = units[i];
        if (u < kTableBits) _table[u >> 6] |= uint64_t{1} << (u & 63);
    }
    // A unit above the table can't be stored by a string, but should one
    // ever appear the walk keeps the answers right.
    for (uint32_t i = 0; i < n; i++) {
        if (units[i] >= kTableBits) return;
    }
    _tableSource.set(string);
}

bool NSCharacterSet::characterIsMember_(uint16_t c) {
    NSString* members = _characters.get();
    if (!members) return false;
    if (members == _tableSource.get() && c < kTableBits) return (_table[c >> 6] >> (c & 63)) & 1;
    const uint16_t* units = members->UTF16String();
    uint32_t n = members->length();
    for (uint32_t i = 0; i < n; i++) {
        if (units[i] == c) return true;
    }
    return false;
}

NSMutableCharacterSet* NSMutableCharacterSet::init() {
    setCharacters(""_ns);
    return this;
}

void NSMutableCharacterSet::addCharactersInString_(NSString* string) {
    std::string bytes;
    if (_characters) bytes.assign(_characters->UTF8String(), _characters->byteLength());
    if (NSString* text = NSDynamicCast<NSString>(string))
        bytes.append(text->UTF8String(), text->byteLength());
    Ref<NSString> joined = adoptRef(NSString::alloc()->initWithBytes_length_(
            bytes.data(), static_cast<uint32_t>(bytes.size())));
    setCharacters(joined.get());
}

namespace {
// The class forms as sent by name answer a set of the receiving class.
NSCharacterSet* classSetWithString(Class cls, NSString* string) {
    return NSAutorelease(
            static_cast<NSCharacterSet*>(cls->alloc())->initWithCharactersInString_(string));
}
NSCharacterSet* classWhitespaceSet(Class cls) { return classSetWithString(cls, " \t\n\r"_ns); }
}  // namespace

// clang-format off
NS_CLASS_BEGIN(NSCharacterSet, NSObject)
    NS_METHOD(initWithCharactersInString_)
    NS_METHOD(characterIsMember_)
    .classMethodNamed<&classWhitespaceSet>("whitespaceAndNewlineCharacterSet")
    .classMethodNamed<&classSetWithString>("characterSetWithCharactersInString:")
    NS_FIELD(_characters)
NS_CLASS_END(NSCharacterSet)
// clang-format on

NS_CLASS_BEGIN(NSMutableCharacterSet, NSCharacterSet)
    NS_METHOD(init)
    NS_METHOD(addCharactersInString_)
NS_CLASS_END(NSMutableCharacterSet)
