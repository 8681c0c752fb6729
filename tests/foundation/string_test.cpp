// Strings: the encoding limit and its log lines, lengths in 16-bit units
// against bytes, the hash formula, equality across the string classes,
// splitting, trimming, joining words, and the format buffers at their limits.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "foundation/Foundation.h"
#include "tests/support/LogCapture.h"

namespace {

const std::string kUnsupportedLine = "unsupported Unicode character (> 0x07ff)\n";

using vt_test::logOf;

std::string repeatLine(int n) {
    std::string s;
    for (int i = 0; i < n; i++) s += kUnsupportedLine;
    return s;
}

std::vector<std::string> texts(NSArray* array) {
    std::vector<std::string> out;
    for (uint32_t i = 0; i < array->count(); i++)
        out.push_back(static_cast<NSString*>(array->objectAtIndex_(i))->UTF8String());
    return out;
}

using Words = std::vector<std::string>;

class StringTest : public testing::Test {
protected:
    void SetUp() override { pool = NSAutoreleasePool::alloc()->init(); }
    void TearDown() override { pool->release(); }
    static NSString* units(std::vector<uint16_t> u) {
        return NSString::stringWithCharacters_length_(u.data(), static_cast<uint32_t>(u.size()));
    }
    static NSString* bytes(const std::string& b) {
        return NSString::stringWithUTF8String_(b.c_str());
    }
    static NSArray* words(const Words& w) {
        NSMutableArray* a = NSMutableArray::array();
        for (const std::string& s : w) a->addObject_(bytes(s));
        return a;
    }
    NSAutoreleasePool* pool = nullptr;
};

// ---------------------------------------------------------------------------
// The encoding limit.

TEST_F(StringTest, TwoByteUnitsRoundTripAndCountAsOneCharacter) {
    NSString* s = units({'a', 0x00E4, 0x010D, 0x0080, 0x07FF, 0x7F});
    EXPECT_STREQ(s->UTF8String(), "a\xC3\xA4\xC4\x8D\xC2\x80\xDF\xBF\x7F");
    EXPECT_EQ(s->length(), 6u);
    EXPECT_EQ(s->byteLength(), 10u);
    const uint16_t* back = s->UTF16String();
    EXPECT_EQ(std::vector<uint16_t>(back, back + 7),
              (std::vector<uint16_t>{'a', 0x00E4, 0x010D, 0x0080, 0x07FF, 0x7F, 0}));
    uint16_t copied[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    s->getCharacters_(copied);
    EXPECT_EQ(copied[5], 0x7F);
    EXPECT_EQ(copied[6], 0) << "the terminator is copied";
    EXPECT_EQ(copied[7], 1) << "and nothing beyond it";
    // Through the window layer and back.
    NSString* again = NSString::stringWithUTF16String_(s->UTF16String());
    EXPECT_TRUE(again->isEqual_(s));
}

TEST_F(StringTest, UnitsAboveTheLimitBecomeOneQuestionMarkWithOneLine) {
    NSString* s = nullptr;
    EXPECT_EQ(logOf([&] { s = units({'x', 0x20AC, 0x0800, 'y'}); }), repeatLine(2));
    EXPECT_STREQ(s->UTF8String(), "x??y");
    // A unit 0 ends the text early.
    EXPECT_STREQ(units({'a', 0, 'b'})->UTF8String(), "a");
}

TEST_F(StringTest, UnsupportedBytesLogAtTheFirstUseOfTheFormOnly) {
    NSString* s = nullptr;
    EXPECT_EQ(logOf([&] { s = bytes("\xE2\x82\xAC"); }), "")
            << "construction doesn't look at the bytes";
    uint32_t length = 0;
    EXPECT_EQ(logOf([&] { length = s->length(); }), repeatLine(3));
    EXPECT_EQ(length, 3u);
    EXPECT_EQ(logOf([&] {
                  s->length();
                  s->UTF16String();
                  s->characterAtIndex_(1);
                  s->substringFromIndex_(1);
              }),
              "");
    EXPECT_EQ(s->characterAtIndex_(0), '?');
    // A single-byte code page's byte is one question mark.
    EXPECT_EQ(logOf([&] { EXPECT_EQ(bytes("a\xE9z")->length(), 3u); }), repeatLine(1));
}

TEST_F(StringTest, LeadBytesTakeTheNextByteWhateverItIs) {
    // At the end of the text the unit is made with 0 and the text ends.
    NSString* cut = bytes("ab\xC3");
    EXPECT_EQ(cut->length(), 3u);
    EXPECT_EQ(cut->characterAtIndex_(2), 0x00C0);
    // C3 41 makes one unit from both bytes: the 'A' is swallowed.
    NSString* odd =
            bytes("\xC3"
                  "Ab");
    EXPECT_EQ(odd->length(), 2u);
    EXPECT_EQ(odd->characterAtIndex_(0), 0x00C1);
    // C0 80 is a unit 0, which ends the text for everything that walks it.
    NSString* nul = bytes("a\xC0\x80z");
    EXPECT_EQ(nul->length(), 1u);
    EXPECT_STREQ(nul->trim()->UTF8String(), "a");
}

TEST_F(StringTest, AppendingGivesANewFormAndLength) {
    NSMutableString* s = NSMutableString::stringWithUTF8String_("\xC3\xA4");
    EXPECT_EQ(s->length(), 1u);
    s->appendString_(units({0x010D, 'b'}));
    EXPECT_EQ(s->length(), 3u);
    EXPECT_EQ(s->characterAtIndex_(1), 0x010D);
    // A lead byte cut at the end joins the next append's first byte.
    NSMutableString* lead = NSMutableString::stringWithUTF8String_("\xC3");
    EXPECT_EQ(lead->characterAtIndex_(0), 0x00C0);
    lead->appendString_(bytes("\xA4"));
    EXPECT_EQ(lead->length(), 1u);
    EXPECT_EQ(lead->characterAtIndex_(0), 0x00E4);
    // Each state of the text has its own form, so an unsupported byte logs
    // again at the first use after an append.
    NSMutableString* bad = NSMutableString::stringWithUTF8String_("\xFF");
    EXPECT_EQ(logOf([&] { bad->length(); }), repeatLine(1));
    bad->appendString_("x"_ns);
    EXPECT_EQ(logOf([&] { EXPECT_EQ(bad->length(), 2u); }), repeatLine(1));
}

TEST_F(StringTest, AStringAppendedToItselfDoublesThroughEveryGrowth) {
    // Each append outgrows the block, so the text copies from the block
    // that the append replaces; the hash carries on over the copied bytes.
    NSMutableString* s = NSMutableString::stringWithUTF8String_("ab\xC3\xA4");
    std::string expected = "ab\xC3\xA4";
    s->hash();
    for (int i = 0; i < 8; i++) {
        s->appendString_(s);
        expected += expected;
    }
    EXPECT_EQ(std::string(s->UTF8String()), expected);
    EXPECT_EQ(s->length(), 3u * 256);
    EXPECT_EQ(s->hash(), bytes(expected)->hash());
    NSString* twice = s->stringByAppendingString_(s);
    EXPECT_EQ(twice->byteLength(), 2 * s->byteLength());
}

TEST_F(StringTest, ArgumentsThatAreNoStringReadAsNil) {
    // Sent by selector, an argument may be of any class whatever the C++
    // type says; it is never read as text.
    NSString* text = "a,b c"_ns;
    NSMutableArray* array = NSMutableArray::arrayWithObjects_("x"_ns, nullptr);
    NSNumber* number = NSNumber::numberWithInt_(44);
    EXPECT_STREQ(NSSend<NSString*>(text, NS_SEL("stringByAppendingString:"), array)->UTF8String(),
                 "a,b c");
    NSMutableString* grown = NSMutableString::stringWithUTF8String_("x");
    NSSend<void>(grown, NS_SEL("appendString:"), number);
    EXPECT_STREQ(grown->UTF8String(), "x");
    _NSRange r = NSSend<_NSRange>(text, NS_SEL("rangeOfString:"), number);
    EXPECT_EQ(r.location, 0xFFFFFFFFu);
    EXPECT_EQ(r.length, 0u);
    EXPECT_EQ(texts(NSSend<NSArray*>(text, NS_SEL("componentsSeparatedByString:"), number)),
              Words({"a,b c"}))
            << "no separators: one piece";
    EXPECT_EQ(texts(text->componentsSeparatedByString_(nullptr)), Words({"a,b c"}));
    EXPECT_FALSE(NSSendClass<NSCharacterSet*>(NSCharacterSet::classObject(),
                                              NS_SEL("characterSetWithCharactersInString:"), number)
                         ->characterIsMember_('4'));
    NSString* copied =
            NSSendClass<NSString*>(NSString::classObject(), NS_SEL("stringWithString:"), number);
    EXPECT_STREQ(copied->UTF8String(), "");
    EXPECT_STREQ(NSString::stringWithArray_(
                         NSMutableArray::arrayWithObjects_("a"_ns, number, "b"_ns, nullptr))
                         ->UTF8String(),
                 "a  b")
            << "an element that is no string adds only its blank";
}

TEST_F(StringTest, SubstringsStopAtTheEndOfTheText) {
    NSString* s = bytes("ab\xC3\xA4");
    EXPECT_STREQ(s->substringFromIndex_(3)->UTF8String(), "");
    EXPECT_STREQ(s->substringFromIndex_(4)->UTF8String(), "");
    EXPECT_STREQ(s->substringFromIndex_(0xFFFFFFFFu)->UTF8String(), "");
    EXPECT_STREQ(s->substringToIndex_(9)->UTF8String(), "ab\xC3\xA4");
    EXPECT_STREQ(s->substringWithRange_(NSMakeRange(1, 0xFFFFFFFFu))->UTF8String(), "b\xC3\xA4");
    EXPECT_STREQ(s->substringWithRange_(NSMakeRange(7, 2))->UTF8String(), "");
}

TEST_F(StringTest, IndicesCountUnitsButRangeOfStringCountsBytes) {
    NSString* s =
            bytes("\xC3\xA4"
                  "bc\xC4\x8D");
    _NSRange r = s->rangeOfString_("b"_ns);
    EXPECT_EQ(r.location, 2u) << "the byte offset, one above the index";
    EXPECT_EQ(r.length, 1u);
    r = s->rangeOfString_(bytes("c\xC4\x8D"));
    EXPECT_EQ(r.location, 3u);
    EXPECT_EQ(r.length, 2u) << "the argument's 16-bit length";
    r = s->rangeOfString_("x"_ns);
    EXPECT_EQ(r.location, 0xFFFFFFFFu);
    EXPECT_EQ(r.length, 0u);
    EXPECT_STREQ(s->substringToIndex_(2)->UTF8String(),
                 "\xC3\xA4"
                 "b");
    EXPECT_STREQ(s->substringFromIndex_(3)->UTF8String(), "\xC4\x8D");
    EXPECT_STREQ(s->substringWithRange_(NSMakeRange(1, 2))->UTF8String(), "bc");
    // A range one past the end reads the terminator, which ends the text.
    EXPECT_STREQ(s->substringWithRange_(NSMakeRange(2, 3))->UTF8String(), "c\xC4\x8D");
}

// ---------------------------------------------------------------------------
// Hash, equality, order.

uint32_t referenceHash(const std::string& text) {
    int64_t h = 17;
    for (char c : text) h = (h * 37 + static_cast<int8_t>(c)) & 0xFFFFFFFF;
    return static_cast<uint32_t>(h);
}

TEST_F(StringTest, HashFollowsTheFormulaOnRandomTexts) {
    EXPECT_EQ(""_ns->hash(), 17u);
    EXPECT_EQ("a"_ns->hash(), 726u);
    EXPECT_EQ(bytes("\xC3")->hash(), static_cast<uint32_t>(37 * 17 - 61));
    std::mt19937 rng(11);
    for (int round = 0; round < 3000; round++) {
        std::string text(rng() % 40, ' ');
        for (char& c : text) c = static_cast<char>(1 + rng() % 255);
        NSString* s = bytes(text);
        ASSERT_EQ(s->hash(), referenceHash(text)) << round;
        // An append carries a known hash on; it must land on the same value.
        NSMutableString* m = NSMutableString::stringWithString_(s);
        m->hash();
        std::string more(rng() % 8, 'q');
        m->appendString_(bytes(more));
        ASSERT_EQ(m->hash(), referenceHash(text + more)) << round;
    }
}

TEST_F(StringTest, EqualityAndHashAgreeAcrossTheStringClasses) {
    NSString* constant = "gr\xC3\xBC\xC3\x9F"_ns;
    NSString* plain = bytes("gr\xC3\xBC\xC3\x9F");
    NSMutableString* mutableText = NSMutableString::stringWithUTF8String_("gr");
    mutableText->appendString_(bytes("\xC3\xBC\xC3\x9F"));
    NSString* all[] = {constant, plain, mutableText};
    for (NSString* a : all) {
        for (NSString* b : all) {
            EXPECT_TRUE(a->isEqual_(b));
            EXPECT_EQ(a->hash(), b->hash());
            EXPECT_EQ(a->compare_(b), 0);
        }
        EXPECT_FALSE(a->isEqual_(nullptr));
        EXPECT_FALSE(a->isEqual_(NSNumber::numberWithInt_(0)));
        EXPECT_FALSE(a->isEqual_(bytes("gr")));
    }
}

TEST_F(StringTest, CompareGivesExactlyMinusOneZeroOrOneByUnsignedBytes) {
    EXPECT_EQ("a"_ns->compare_("z"_ns), -1);
    EXPECT_EQ("z"_ns->compare_("a"_ns), 1);
    EXPECT_EQ(bytes("\xC3\xA4")->compare_("z"_ns), 1)
            << "non-ASCII sorts by its bytes, after ASCII";
    EXPECT_EQ("B"_ns->compare_("a"_ns), -1) << "no case folding";
    EXPECT_EQ("a"_ns->compare_(nullptr), 1) << "nil reads as the empty string";
    EXPECT_EQ(""_ns->compare_(nullptr), 0);
}

TEST_F(StringTest, ConstantStringsIgnoreCountsAndCopiesFollowTheirClasses) {
    NSString* constant = "kept"_ns;
    constant->retain();
    constant->retain();
    constant->release();
    constant->autorelease();
    for (int i = 0; i < 5; i++) constant->release();
    EXPECT_EQ(constant->retainCount(), 1u);
    EXPECT_STREQ(constant->UTF8String(), "kept");
    EXPECT_EQ(constant->copy(), constant);

    Ref<NSObject> mutableCopy = adoptRef(constant->mutableCopy());
    EXPECT_TRUE(mutableCopy->isMemberOfClass_(NSMutableString::classObject()));
    EXPECT_TRUE(mutableCopy->isEqual_(constant));
    NSString* plain = bytes("p");
    Ref<NSObject> same = adoptRef(plain->copy());
    EXPECT_EQ(same.get(), plain);
    Ref<NSObject> other = adoptRef(mutableCopy->copy());
    EXPECT_NE(other.get(), mutableCopy.get()) << "a mutable string's copy is a new one";
    EXPECT_TRUE(other->isMemberOfClass_(NSMutableString::classObject()));
}

// ---------------------------------------------------------------------------
// Classes of results, in C++ and by name.

TEST_F(StringTest, ClassFormsMakeTheReceivingClass) {
    Class mutableClass = NSMutableString::classObject();
    Class plainClass = NSString::classObject();
    EXPECT_TRUE(NSSendClass(mutableClass, NS_SEL("string"))->isMemberOfClass_(mutableClass));
    EXPECT_TRUE(NSSendClass(plainClass, NS_SEL("string"))->isMemberOfClass_(plainClass));
    NSObject* byName = NSSendClass(mutableClass, NS_SEL("stringWithUTF8String:"), "t");
    EXPECT_TRUE(byName->isMemberOfClass_(mutableClass));
    EXPECT_STREQ(static_cast<NSString*>(byName)->UTF8String(), "t");
    const uint16_t u[] = {0xE4, 0};
    byName = NSSendClass(mutableClass, NS_SEL("stringWithCharacters:length:"), u, uint32_t{1});
    EXPECT_TRUE(byName->isMemberOfClass_(mutableClass));
    // stringWithArray: is always plain (and a one-letter word consults a set).
    NSObject* joined = nullptr;
    EXPECT_EQ(logOf([&] {
                  joined = NSSendClass(mutableClass, NS_SEL("stringWithArray:"), words({"a"}));
              }),
              repeatLine(1));
    EXPECT_TRUE(joined->isMemberOfClass_(plainClass));

    EXPECT_TRUE(
            NSMutableString::stringWithCharacters_length_(u, 1)->isMemberOfClass_(mutableClass));
    EXPECT_TRUE(NSMutableString::stringWithFormat_("%d", 1)->isMemberOfClass_(mutableClass));
    NSMutableString* m = NSMutableString::stringWithUTF8String_(" Ab c ");
    for (NSString* derived :
         {m->trim(), m->lowercaseString(), m->capitalizedString(), m->substringFromIndex_(1),
          m->substringToIndex_(1), m->substringWithRange_(NSMakeRange(0, 1))})
        EXPECT_TRUE(derived->isMemberOfClass_(plainClass));
    EXPECT_TRUE("a"_ns->stringByAppendingFormat_("%d", 2)->isMemberOfClass_(mutableClass));
}

// ---------------------------------------------------------------------------
// Trimming and splitting.

TEST_F(StringTest, TrimRemovesTheFourWhiteCharactersOnly) {
    EXPECT_STREQ(" \t x \r\n"_ns->trim()->UTF8String(), "x");
    EXPECT_STREQ("   "_ns->trim()->UTF8String(), "");
    EXPECT_STREQ(""_ns->trim()->UTF8String(), "");
    EXPECT_STREQ("a b"_ns->trim()->UTF8String(), "a b");
    EXPECT_STREQ(
            "\x0B"
            "x\x0C"_ns->trim()
                    ->UTF8String(),
            "\x0B"
            "x\x0C");
    EXPECT_STREQ(bytes(" \xC3\xA4 ")->trim()->UTF8String(), "\xC3\xA4");
}

TEST_F(StringTest, SplitKeepsEmptyPiecesAndNeverTestsTheFirstCharacter) {
    EXPECT_EQ(texts(""_ns->split()), Words{""});
    EXPECT_EQ(texts(" "_ns->split()), Words{""});
    EXPECT_EQ(texts("a  b"_ns->split()), (Words{"a", "", "b"}));
    EXPECT_EQ(texts(" a\tb\n"_ns->split()), (Words{"a", "b", ""}));

    NSCharacterSet* comma = NSCharacterSet::characterSetWithCharactersInString_(","_ns);
    EXPECT_EQ(texts("a,,b"_ns->splitBy_(comma)), (Words{"a", "", "b"}));
    EXPECT_EQ(texts(",a"_ns->splitBy_(comma)), Words{",a"});
    EXPECT_EQ(texts(",,"_ns->splitBy_(comma)), (Words{",", ""}));
    EXPECT_EQ(texts(" a , b "_ns->splitBy_(comma)), (Words{"a", "b"})) << "every piece is trimmed";
    EXPECT_EQ(texts(bytes("\xC3\xA4,\xC4\x8D")->splitBy_(comma)), (Words{"\xC3\xA4", "\xC4\x8D"}));
    EXPECT_EQ(texts("a,b"_ns->splitBy_(nullptr)), Words{"a,b"});

    // The argument is a set of separators, not a separator string.
    EXPECT_EQ(texts("a, b"_ns->componentsSeparatedByString_(", "_ns)), (Words{"a", "", "b"}));
    EXPECT_EQ(texts("k=v;w"_ns->componentsSeparatedByString_(";="_ns)), (Words{"k", "v", "w"}));
}

TEST_F(StringTest, TokenizeBreaksWordsAtTheirPunctuation) {
    EXPECT_EQ(texts("(a.b), \"c\""_ns->tokenize()), (Words{"(", "a.b", ",", ")", "\"", "c", "\""}));
    EXPECT_EQ(texts("x  y"_ns->tokenize()), (Words{"x", "y"})) << "empty words are dropped";
    EXPECT_EQ(texts(", ()"_ns->tokenize()), (Words{",", "(", ")"})) << "no empty middle token";
    EXPECT_EQ(texts("hi!"_ns->tokenize()), Words{"hi!"});
}

// ---------------------------------------------------------------------------
// Joining words.

TEST_F(StringTest, StringWithArraySpacesWordsAndLogsWhenTheSetsAreConsulted) {
    NSString* s = nullptr;
    // Two sets consulted, one line each: the before-set for ',' and the
    // after-set once ',' is the previous word.
    EXPECT_EQ(logOf([&] {
                  s = NSString::stringWithArray_(words({"Hello", ",", "world", "!"}));
              }),
              repeatLine(2));
    EXPECT_STREQ(s->UTF8String(), "Hello, world!");
    // The question mark is in both sets.
    EXPECT_EQ(logOf([&] {
                  s = NSString::stringWithArray_(words({"why", "?", "not"}));
              }),
              repeatLine(2));
    EXPECT_STREQ(s->UTF8String(), "why?not");
    // No single-character word, no set consulted, no line.
    EXPECT_EQ(logOf([&] { s = NSString::stringWithArray_(words({"ab", "cd"})); }), "");
    EXPECT_STREQ(s->UTF8String(), "ab cd");
    EXPECT_EQ(logOf([&] { s = NSString::stringWithArray_(NSMutableArray::array()); }), "");
    EXPECT_STREQ(s->UTF8String(), "");

    logOf([&] {
        EXPECT_STREQ(NSString::stringWithArray_(words({"f", "(", "x", ")", "'", "y", "'"}))
                             ->UTF8String(),
                     "f (x)'y'");
        // Only single characters suppress blanks; the omitted word is
        // skipped without changing the previous character.
        EXPECT_STREQ(NSString::stringWithArray_(words({"a", "b.", "(c", "d"}))->UTF8String(),
                     "a b. (c d");
        EXPECT_STREQ(
                NSString::stringWithArray_omit_(words({"(", "-", "x", "-"}), "-"_ns)->UTF8String(),
                "(x");
        EXPECT_STREQ(NSString::stringWithArray_omit_(words({" ", "a"}), nullptr)->UTF8String(),
                     "a");
    });
}

// ---------------------------------------------------------------------------
// Formats and their buffers.

// The buffers hold 100,000 and 1000 bytes, terminator included: longer
// output is cut to the last whole character before the limit.
TEST_F(StringTest, FormatBuffersAreCutSafelyAtTheirLimits) {
    auto format = [](size_t fill, const char* tail) {
        return NSString::stringWithFormat_("%s%s", std::string(fill, 'x').c_str(), tail);
    };
    EXPECT_EQ(format(99999, "")->byteLength(), 99999u) << "fits exactly";
    EXPECT_EQ(format(100000, "")->byteLength(), 99999u);
    EXPECT_EQ(format(300000, "")->byteLength(), 99999u);
    // A two-byte character that would straddle the cut is dropped whole.
    NSString* straddle = format(99998, "\xC3\xA4");
    EXPECT_EQ(straddle->byteLength(), 99998u);
    EXPECT_EQ(format(99997, "\xC3\xA4")->byteLength(), 99999u) << "one that fits is kept";
    EXPECT_EQ(logOf([&] { EXPECT_EQ(straddle->length(), 99998u); }), "");
    // A %c of 0 ends the text, as it is read up to its NUL.
    EXPECT_EQ(NSString::stringWithFormat_("ab%cde", 0)->byteLength(), 2u);

    NSMutableString* m = NSMutableString::stringWithUTF8String_("ab");
    m->appendFormat_("%s", std::string(999, 'y').c_str());
    EXPECT_EQ(m->byteLength(), 2u + 999u);
    m->appendFormat_("%s", std::string(1000, 'y').c_str());
    EXPECT_EQ(m->byteLength(), 2u + 999u + 999u);
    m->appendFormat_("%s\xC3\xA4", std::string(998, 'y').c_str());
    EXPECT_EQ(m->byteLength(), 2u + 999u + 999u + 998u);

    NSString* prefix = "pre"_ns;
    EXPECT_EQ(prefix->stringByAppendingFormat_("%s", std::string(99999, 'z').c_str())->byteLength(),
              3u + 99999u);
    EXPECT_EQ(
            prefix->stringByAppendingFormat_("%s", std::string(100000, 'z').c_str())->byteLength(),
            3u + 99999u);
}

// ---------------------------------------------------------------------------
// The remaining readers.

TEST_F(StringTest, CaseFloatsAndCodePage) {
    EXPECT_STREQ(bytes("\xC3\x84"
                       "BC-x")
                         ->lowercaseString()
                         ->UTF8String(),
                 "\xC3\x84"
                 "bc-x");
    EXPECT_STREQ("hello world"_ns->capitalizedString()->UTF8String(), "Hello world");
    EXPECT_STREQ(""_ns->capitalizedString()->UTF8String(), "");
    EXPECT_STREQ(bytes("\xC3\xA4x")->capitalizedString()->UTF8String(), "\xC3\xA4x");

    EXPECT_EQ("0.1"_ns->doubleValue(), static_cast<double>(0.1f)) << "only a float's precision";

    const char* cp =
            bytes("\xC3\xBC\xC3\xB6\xC3\xA4\xC3\x9F\xC3\x9C\xC3\x96\xC3\x84-\xC4\x8D\xC3\xA9\xC3")
                    ->CP1250String();
    EXPECT_STREQ(cp, "\xFC\xF6\xE4\xDF\xDC\xD6\xC4-\xC4\x8D\xC3\xA9\xC3");
    EXPECT_STREQ(bytes("\xC3\xC3\xBC")->CP1250String(), "\xC3\xFC");
}

TEST_F(StringTest, InitWithDataStopsAtANul) {
    NSData* data = NSData::dataWithBytes_length_("ab\0cd", 5);
    Ref<NSString> s = adoptRef(NSString::alloc()->initWithData_encoding_(data, 4));
    EXPECT_STREQ(s->UTF8String(), "ab");
    Ref<NSString> whole = adoptRef(
            NSString::alloc()->initWithData_encoding_(NSData::dataWithBytes_length_("xyz", 3), 0));
    EXPECT_STREQ(whole->UTF8String(), "xyz");
    Ref<NSString> none = adoptRef(NSString::alloc()->initWithData_encoding_(nullptr, 0));
    EXPECT_STREQ(none->UTF8String(), "");
}

}  // namespace
