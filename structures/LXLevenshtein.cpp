#include "structures/LXLevenshtein.h"

#include <vector>

LXLevenshtein* LXLevenshtein::initWithStrings__(NSString* string1, NSString* string2) {
    NSObject::init();
    _string1.set(string1);
    _string2.set(string2);
    return this;
}

LXLevenshtein* LXLevenshtein::levenshteinWithStrings__(NSString* string1, NSString* string2) {
    return NSAutorelease(LXLevenshtein::alloc()->initWithStrings__(string1, string2));
}

int LXLevenshtein::min___(int a, int b, int c) {
    int m = a < b ? a : b;
    return m < c ? m : c;
}

// The usual table of (length1 + 1) rows by (length2 + 1) columns, kept
// two rows at a time: each row needs only the one above it, and the answer
// is the same at a fraction of the memory for long strings.
uint32_t LXLevenshtein::distance() {
    uint32_t n1 = _string1 ? _string1->length() : 0;
    uint32_t n2 = _string2 ? _string2->length() : 0;
    if (n1 == 0) return n2;
    if (n2 == 0) return n1;
    const uint16_t* s1 = _string1->UTF16String();
    const uint16_t* s2 = _string2->UTF16String();
    std::vector<int> above(n2 + 1), row(n2 + 1);
    for (uint32_t j = 0; j <= n2; j++) above[j] = static_cast<int>(j);
    for (uint32_t i = 1; i <= n1; i++) {
        row[0] = static_cast<int>(i);
        for (uint32_t j = 1; j <= n2; j++) {
            int substitution = above[j - 1] + (s1[i - 1] == s2[j - 1] ? 0 : 1);
            row[j] = min___(above[j] + 1, row[j - 1] + 1, substitution);
        }
        above.swap(row);
    }
    return static_cast<uint32_t>(above[n2]);
}

NS_CLASS_BEGIN(LXLevenshtein, NSObject)
    NS_METHOD(initWithStrings__)
    NS_CLASS_METHOD(levenshteinWithStrings__)
    NS_METHOD(distance)
    NS_METHOD(min___)
    NS_FIELD(_string1)
    NS_FIELD(_string2)
NS_CLASS_END(LXLevenshtein)
