// The parser of configuration lists: nested lists of atoms written with
// parentheses, no quoting, no escapes, no comments of its own.
//
//   list := white* '(' (white* (list | atom))* white* ')'
//   atom := any character but white, '(' and ')', then anything up to
//           ')' or white ('(' ends no atom)
//   white := blank | tab | line feed | carriage return
//
// Exactly one list is read; whatever follows it is not looked at.
#pragma once

#include <cstdint>

#include "foundation/NSArray.h"
#include "foundation/NSObject.h"
#include "foundation/NSScanner.h"
#include "foundation/NSString.h"

class LXListParser : public NSObject {
    NS_DECLARE_CLASS(LXListParser, NSObject)

public:
    // Lists open at once beyond this make the parse fail with
    // "list nested deeper than 1000 levels"; see LXListParser.cpp for why.
    static constexpr uint32_t kMaxDepth = 1000;

    void dealloc() override;
    // Reads one list: the opening parenthesis first when `openingToRead` is
    // 1, the list's contents straight away when it is 0 (the parenthesis has
    // just been consumed). Answers an autoreleased NSMutableArray of atoms
    // (NSString) and lists (NSMutableArray), or nil after logging
    // "'(' expected" or one "identifier(s) or ')'" per list left open at the
    // end of the text. Needs an autorelease pool.
    NSMutableArray* parse_(uint8_t openingToRead);
    // parse_(1).
    NSMutableArray* parse();
    // Retains the text through a scanner of its own that skips nothing.
    LXListParser* initWithString_(NSString* text);

    // Autoreleased.
    static LXListParser* listParserWithString_(NSString* text);
    // Builds the class-level sets once: the atom terminators and the empty
    // set given to every scanner as its characters to be skipped.
    static void initialize();

    LXListParser() = default;

protected:
    ~LXListParser() override = default;

private:
    Ref<NSScanner> _scanner;
};
