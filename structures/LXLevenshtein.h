// The edit distance of two strings over their 16-bit characters, each
// insertion, deletion and substitution costing 1.
#pragma once

#include <cstdint>

#include "foundation/NSString.h"

class LXLevenshtein : public NSObject {
    NS_DECLARE_CLASS(LXLevenshtein, NSObject)

public:
    // Retains both; nil counts as the empty string.
    LXLevenshtein* initWithStrings__(NSString* string1, NSString* string2);
    static LXLevenshtein* levenshteinWithStrings__(NSString* string1, NSString* string2);
    uint32_t distance();
    int min___(int a, int b, int c);

protected:
    ~LXLevenshtein() override = default;

private:
    Ref<NSString> _string1;
    Ref<NSString> _string2;
};
