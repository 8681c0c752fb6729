// Character sets and the scanner: membership (including the fast table
// against the plain walk), and what a scan takes, stores and leaves.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSCharacterSet.h"
#include "foundation/NSScanner.h"
#include "foundation/NSString.h"

namespace {

class ScannerTest : public testing::Test {
protected:
    void SetUp() override { pool = NSAutoreleasePool::alloc()->init(); }
    void TearDown() override { pool->release(); }
    static NSString* units(std::vector<uint16_t> u) {
        return NSString::stringWithCharacters_length_(u.data(), static_cast<uint32_t>(u.size()));
    }
    NSAutoreleasePool* pool = nullptr;
};

TEST_F(ScannerTest, WhitespaceSetIsExactlyFourCharactersAndNewEachTime) {
    NSCharacterSet* white = NSCharacterSet::whitespaceAndNewlineCharacterSet();
    for (char c : {' ', '\t', '\n', '\r'})
        EXPECT_TRUE(white->characterIsMember_(static_cast<uint16_t>(c))) << c;
    for (int c : {0, 0x0B, 0x0C, 0xA0, 0x85, 0x2028, int{'a'}})
        EXPECT_FALSE(white->characterIsMember_(static_cast<uint16_t>(c))) << c;
    EXPECT_NE(white, NSCharacterSet::whitespaceAndNewlineCharacterSet());
}

TEST_F(ScannerTest, MembersOfARetainedMutableStringFollowItsChanges) {
    NSMutableString* text = NSMutableString::stringWithUTF8String_("ab");
    NSCharacterSet* set = NSCharacterSet::characterSetWithCharactersInString_(text);
    EXPECT_FALSE(set->characterIsMember_(0xE4));
    text->appendString_(units({0xE4}));
    EXPECT_TRUE(set->characterIsMember_(0xE4));
    EXPECT_TRUE(set->characterIsMember_('a'));
}

TEST_F(ScannerTest, MutableSetStartsEmptyAndAppendsMembers) {
    NSMutableCharacterSet* set = NSAutorelease(NSMutableCharacterSet::alloc()->init());
    set->addCharactersInString_("ab"_ns);
    set->addCharactersInString_(units({0x010D, 'a'}));
    auto* members = static_cast<NSString*>(set->valueForKey_("characters"_ns));
    ASSERT_NE(members, nullptr);
    EXPECT_STREQ(members->UTF8String(),
                 "ab\xC4\x8D"
                 "a");
    EXPECT_TRUE(set->characterIsMember_(0x010D));
    EXPECT_FALSE(set->characterIsMember_(0x010C));
}

// The table answers exactly as the walk over the members would.
TEST_F(ScannerTest, MembershipMatchesALinearWalkForRandomSets) {
    std::mt19937 rng(7);
    for (int round = 0; round < 200; round++) {
        std::vector<uint16_t> members(rng() % 12);
        for (uint16_t& u : members) u = static_cast<uint16_t>(1 + rng() % 0x07FF);
        NSCharacterSet* set = NSCharacterSet::characterSetWithCharactersInString_(units(members));
        for (uint32_t c = 0; c < 0x0900; c++) {
            bool walked = false;
            for (uint16_t u : members) walked |= u == c;
            ASSERT_EQ(set->characterIsMember_(static_cast<uint16_t>(c)), walked) << c;
        }
        ASSERT_FALSE(set->characterIsMember_(0xFFFF));
    }
}

TEST_F(ScannerTest, ScansTakeRunsAndAlwaysStoreANewMutableString) {
    // A two-byte character as member and as terminator; locations count units.
    NSString* text = units({0xE4, 0xE4, ' ', 'b', 0xE4});
    NSScanner* scanner = NSScanner::scannerWithString_(text);
    NSCharacterSet* umlaut = NSCharacterSet::characterSetWithCharactersInString_(units({0xE4}));
    NSString* into = nullptr;
    ASSERT_TRUE(scanner->scanCharactersFromSet_intoString_(umlaut, &into));
    EXPECT_STREQ(into->UTF8String(), "\xC3\xA4\xC3\xA4");
    EXPECT_EQ(scanner->scanLocation(), 2u);
    // Nothing taken: false, and an empty mutable string is stored all the same.
    into = "sentinel"_ns;
    EXPECT_FALSE(scanner->scanCharactersFromSet_intoString_(umlaut, &into));
    EXPECT_EQ(into->length(), 0u);
    EXPECT_TRUE(into->isKindOfClass_(NSMutableString::classObject()));
    EXPECT_EQ(scanner->scanLocation(), 2u);
    ASSERT_TRUE(scanner->scanUpToCharactersFromSet_intoString_(umlaut, &into));
    EXPECT_STREQ(into->UTF8String(), " b");
    EXPECT_TRUE(into->isKindOfClass_(NSMutableString::classObject()));
    EXPECT_EQ(scanner->scanLocation(), 4u);  // the stopping character stays
}

TEST_F(ScannerTest, AtOrPastTheEndBothScansFailAtOnce) {
    NSScanner* scanner = NSScanner::scannerWithString_("ab"_ns);
    scanner->setCharactersToBeSkipped_(
            NSCharacterSet::characterSetWithCharactersInString_("ab"_ns));
    NSCharacterSet* none = NSCharacterSet::characterSetWithCharactersInString_(""_ns);
    for (uint32_t at : {2u, 3u, 1000u}) {
        scanner->setScanLocation_(at);
        NSString* into = nullptr;
        EXPECT_FALSE(scanner->scanUpToCharactersFromSet_intoString_(none, &into));
        ASSERT_NE(into, nullptr);
        EXPECT_EQ(into->length(), 0u);
        EXPECT_EQ(scanner->scanLocation(), at);
    }
}

}  // namespace
