// A cursor over one string that takes runs of characters in or out of a set.
// It skips nothing by itself: callers scan white space explicitly.
#pragma once

#include <cstdint>

#include "NSCharacterSet.h"
#include "NSObject.h"
#include "NSString.h"

class NSScanner : public NSObject {
    NS_DECLARE_CLASS(NSScanner, NSObject)

public:
    // Retains the string; the scan location starts at 0.
    NSScanner* initWithString_(NSString* string);
    // Autoreleased.
    static NSScanner* scannerWithString_(NSString* string);

    // An index into the 16-bit form of the string.
    uint32_t scanLocation() { return _scanLocation; }
    void setScanLocation_(uint32_t location) { _scanLocation = location; }
    NSString* string() { return _string.get(); }
    // Stored and never consulted.
    void setCharactersToBeSkipped_(NSCharacterSet* set) { _skipSet.set(set); }

    // Takes characters from the scan location on while they are in the set
    // and advances past them. The taken text, possibly empty, is stored
    // through `into` (which must not be null) as a new autoreleased
    // NSMutableString. True when at least one character was taken; at the
    // end of the string, false at once.
    bool scanCharactersFromSet_intoString_(NSCharacterSet* set, NSString** into);
    // The same, taking characters while they are not in the set; the
    // stopping character is not consumed.
    bool scanUpToCharactersFromSet_intoString_(NSCharacterSet* set, NSString** into);

    NSScanner() = default;

protected:
    ~NSScanner() override = default;

private:
    bool scan(NSCharacterSet* set, bool members, NSString** into);

    Ref<NSString> _string;
    uint32_t _scanLocation = 0;
    Ref<NSCharacterSet> _skipSet;
};
