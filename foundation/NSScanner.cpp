#include "NSScanner.h"

NSScanner* NSScanner::initWithString_(NSString* string) {
    _string.set(string);
    _scanLocation = 0;
    return this;
}

NSScanner* NSScanner::scannerWithString_(NSString* string) {
    return NSAutorelease(alloc()->initWithString_(string));
}

bool NSScanner::scanCharactersFromSet_intoString_(NSCharacterSet* set, NSString** into) {
    return scan(set, true, into);
}

bool NSScanner::scanUpToCharactersFromSet_intoString_(NSCharacterSet* set, NSString** into) {
    return scan(set, false, into);
}

// One pass over the 16-bit form and one string for the taken run, so that
// scanning a whole text is linear in its length.
bool NSScanner::scan(NSCharacterSet* set, bool members, NSString** into) {
    const uint16_t* units = nullptr;
    uint32_t n = 0;
    if (_string) {
        units = _string->UTF16String();
        n = _string->length();
    }
    uint32_t start = _scanLocation;
    uint32_t end = start;
    // A nil set has no members, as a message to nil answers 0.
    while (end < n && (set ? set->characterIsMember_(units[end]) : false) == members) end++;
    static const uint16_t kNone[1] = {0};
    const uint16_t* run = end > start ? units + start : kNone;
    auto* taken = static_cast<NSMutableString*>(
            NSMutableString::alloc()->initWithCharacters_length_(run, end - start));
    *into = NSAutorelease(taken);
    _scanLocation = end;
    return end > start;
}

NS_CLASS_BEGIN(NSScanner, NSObject)
    NS_METHOD(initWithString_)
    NS_METHOD(scanLocation)
    NS_METHOD(setScanLocation_)
    NS_METHOD(string)
    NS_METHOD(setCharactersToBeSkipped_)
    NS_METHOD(scanCharactersFromSet_intoString_)
    NS_METHOD(scanUpToCharactersFromSet_intoString_)
    NS_CLASS_METHOD(scannerWithString_)
    NS_FIELD(_string)
    NS_FIELD(_scanLocation)
    NS_FIELD(_skipSet)
NS_CLASS_END(NSScanner)
