// Character sets: the members are the characters of one string, and the
// scanner and the string operations (trim, split) test membership in them.
#pragma once

#include <cstdint>

#include "NSObject.h"
#include "NSString.h"

class NSCharacterSet : public NSObject {
    NS_DECLARE_CLASS(NSCharacterSet, NSObject)

public:
    // A new autoreleased set of exactly blank, tab, line feed and carriage
    // return; every call makes a new one.
    static NSCharacterSet* whitespaceAndNewlineCharacterSet();
    // Autoreleased set of the string's characters; the string is retained,
    // not copied.
    static NSCharacterSet* characterSetWithCharactersInString_(NSString* string);

    // The string is retained, not copied: a mutable string changed later
    // changes the members.
    NSCharacterSet* initWithCharactersInString_(NSString* string);
    // True when the unit occurs in the 16-bit form of the members.
    bool characterIsMember_(uint16_t c);

    NSCharacterSet() = default;

protected:
    ~NSCharacterSet() override = default;
    // Replaces the members and rebuilds the lookup table.
    void setCharacters(NSObject* members);

    Ref<NSString> _characters;

private:
    // Membership by table instead of a walk over the members. Characters
    // never exceed 0x07FF, so 2048 bits cover all of them. The table is made
    // when the members are set, from an immutable string only, and used only
    // while _characters is still that string (key access may replace the
    // field behind our back); otherwise the walk answers. The source is
    // retained so that its address can't be reused by another string.
    static constexpr uint32_t kTableBits = 0x0800;
    Ref<NSString> _tableSource;
    uint64_t _table[kTableBits / 64] = {};
};

class NSMutableCharacterSet : public NSCharacterSet {
    NS_DECLARE_CLASS(NSMutableCharacterSet, NSCharacterSet)

public:
    // No members.
    NSMutableCharacterSet* init() override;
    // The members become a new string: the old members, then the string's
    // characters. Duplicates are harmless.
    void addCharactersInString_(NSString* string);

    NSMutableCharacterSet() = default;

protected:
    ~NSMutableCharacterSet() override = default;
};
