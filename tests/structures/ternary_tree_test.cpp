// The ternary tree (walk, signed byte order, allKeys order, balance, the
// fuzzy search and its dependence on shape) and the Levenshtein distance
// against a plain recursive definition.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "foundation/Foundation.h"
#include "structures/LXLevenshtein.h"
#include "structures/LXTernaryTree.h"
#include "tests/support/LogCapture.h"

namespace {

NSString* ns(const std::string& text) { return NSString::stringWithUTF8String_(text.c_str()); }

std::vector<std::string> strings(NSArray* array) {
    std::vector<std::string> out;
    for (uint32_t i = 0; i < array->count(); i++) {
        out.push_back(static_cast<NSString*>(array->objectAtIndex_(i))->UTF8String());
    }
    return out;
}

std::set<std::string> sorted(NSArray* array) {
    std::vector<std::string> v = strings(array);
    return std::set<std::string>(v.begin(), v.end());
}

class TernaryTreeTest : public ::testing::Test {
protected:
    void SetUp() override {
        pool = NSAutoreleasePool::alloc()->init();
        tree = static_cast<LXTernaryTree*>(
                NSAutorelease(LXTernaryTree::alloc()->initWithCapacity_(100)));
    }
    void TearDown() override { pool->release(); }
    void put(std::vector<std::string> keys) {
        for (const std::string& k : keys) tree->setObject_forKey_(ns(k + "!"), ns(k));
    }
    std::set<std::string> fuzzy(const std::string& key, uint32_t distance) {
        return sorted(tree->fuzzyKeys_distance_(ns(key), distance));
    }
    NSAutoreleasePool* pool = nullptr;
    LXTernaryTree* tree = nullptr;
};

TEST_F(TernaryTreeTest, SetAndGet) {
    EXPECT_EQ(tree->objectForKey_("car"_ns), nullptr);
    EXPECT_EQ(tree->maxLevel(), 0u);
    EXPECT_TRUE(strings(tree->allKeys()).empty());
    EXPECT_TRUE(fuzzy("car", 3).empty());
    NSObject* first = ns("first");
    NSObject* second = ns("second");
    tree->setObject_forKey_(first, "car"_ns);
    tree->setObject_forKey_(second, "car"_ns);
    EXPECT_EQ(tree->count(), 1u);
    EXPECT_EQ(tree->objectForKey_("car"_ns), second);
    EXPECT_EQ(first->retainCount(), 1u) << "the old value is released";
    EXPECT_EQ(second->retainCount(), 2u);
    put({"cart", "ca"});
    EXPECT_EQ(tree->count(), 3u);
    EXPECT_EQ(tree->objectForKey_("c"_ns), nullptr) << "a prefix is no key";
    EXPECT_EQ(tree->objectForKey_("carts"_ns), nullptr);
    EXPECT_NE(tree->objectForKey_("ca"_ns), nullptr);
    // The key is the description.
    tree->setObject_forKey_("n"_ns, NSNumber::numberWithInt_(42));
    EXPECT_EQ(tree->objectForKey_("42"_ns), "n"_ns);
}

TEST_F(TernaryTreeTest, RefusedKeysAndValues) {
    EXPECT_EQ(vt_test::logOf([&] {
                  tree->setObject_forKey_("v"_ns, ""_ns);
                  tree->setObject_forKey_("v"_ns, ns(std::string(1000, 'a')));
                  tree->setObject_forKey_(nullptr, "a"_ns);
              }),
              "LXTernaryTree: key of 0 bytes refused\nLXTernaryTree: key of 1000 bytes refused\n"
              "LXTernaryTree: nil object refused\n");
    EXPECT_EQ(tree->count(), 0u);
    tree->setObject_forKey_("v"_ns, ns(std::string(999, 'a')));
    EXPECT_EQ(tree->count(), 1u);
    EXPECT_EQ(strings(tree->allKeys()), std::vector<std::string>{std::string(999, 'a')});
}

TEST_F(TernaryTreeTest, AllKeysOrderIsSignedAndLongerFirst) {
    put({"car", "cart"});
    EXPECT_EQ(strings(tree->allKeys()), (std::vector<std::string>{"cart", "car"}));
    // Bytes from 0x80 up are negative: "é" (C3 A9) sorts below "a".
    put({"b", "\xC3\xA9t\xC3\xA9", "a", "z"});
    // Root c: equal (cart, car), then low b, whose low is é (below b and,
    // signed, below a too: a is é's high), then c's high z.
    EXPECT_EQ(strings(tree->allKeys()),
              (std::vector<std::string>{"cart", "car", "b", "\xC3\xA9t\xC3\xA9", "a", "z"}));
}

TEST_F(TernaryTreeTest, BalanceKeepsKeysAndNeverGrows) {
    std::mt19937 random(7);
    std::vector<std::string> keys;
    for (char c = 'a'; c <= 'z'; c++) keys.push_back(std::string(1, c) + "x");  // sorted: a chain
    for (int i = 0; i < 200; i++) {
        std::string k;
        for (int n = 1 + static_cast<int>(random() % 6); n > 0; n--)
            k += static_cast<char>('a' + random() % 5);
        keys.push_back(k);
    }
    put(keys);
    std::vector<std::string> before = strings(tree->allKeys());
    uint32_t levelBefore = tree->maxLevel();
    tree->balance();
    EXPECT_LT(tree->maxLevel(), levelBefore) << "the sorted chain of first bytes folds up";
    EXPECT_EQ(sorted(tree->allKeys()), std::set<std::string>(before.begin(), before.end()));
    for (const std::string& k : keys) EXPECT_NE(tree->objectForKey_(ns(k)), nullptr) << k;
    uint32_t levelAfter = tree->maxLevel();
    tree->balance();
    EXPECT_EQ(tree->maxLevel(), levelAfter) << "balancing twice changes nothing";

    // Three keys a, b, c in order: a chain of height 2 becomes b over a, c.
    LXTernaryTree* small = static_cast<LXTernaryTree*>(
            NSAutorelease(LXTernaryTree::alloc()->initWithCapacity_(0)));
    for (const char* k : {"a", "b", "c"}) small->setObject_forKey_("v"_ns, ns(k));
    EXPECT_EQ(small->maxLevel(), 2u);
    small->balance();
    EXPECT_EQ(small->maxLevel(), 1u);
    EXPECT_EQ(strings(small->allKeys()), (std::vector<std::string>{"b", "a", "c"}));
    // Of two, the smaller becomes the top.
    LXTernaryTree* two = static_cast<LXTernaryTree*>(
            NSAutorelease(LXTernaryTree::alloc()->initWithCapacity_(0)));
    for (const char* k : {"b", "a"}) two->setObject_forKey_("v"_ns, ns(k));
    two->balance();
    EXPECT_EQ(strings(two->allKeys()), (std::vector<std::string>{"a", "b"}));
}

TEST_F(TernaryTreeTest, FuzzyCases) {
    put({"car"});
    EXPECT_EQ(fuzzy("car", 0), std::set<std::string>{"car"});
    EXPECT_TRUE(fuzzy("cat", 0).empty());
    EXPECT_EQ(fuzzy("cars", 1), std::set<std::string>{"car"});
    EXPECT_EQ(fuzzy("cr", 1), std::set<std::string>{"car"});
    EXPECT_TRUE(fuzzy("ca", 1).empty()) << "an inserted last byte is not among the edits tried";
    EXPECT_EQ(fuzzy("carts", 2), std::set<std::string>{"car"});
    put({"cat"});
    EXPECT_EQ(fuzzy("car", 0), std::set<std::string>{"car"}) << "exactly the key, nothing else";
    NSArray* once = tree->fuzzyKeys_distance_("car"_ns, 2);
    EXPECT_EQ(strings(once).size(), sorted(once).size()) << "each key once";
}

TEST_F(TernaryTreeTest, FuzzyResultsDependOnTheShape) {
    put({"cart", "cast"});
    EXPECT_EQ(fuzzy("caxt", 1), std::set<std::string>{"cast"});
    LXTernaryTree* other = static_cast<LXTernaryTree*>(
            NSAutorelease(LXTernaryTree::alloc()->initWithCapacity_(0)));
    for (const char* k : {"cast", "cart"}) other->setObject_forKey_("v"_ns, ns(k));
    EXPECT_EQ(sorted(other->fuzzyKeys_distance_("caxt"_ns, 1)), std::set<std::string>{"cart"});
}

TEST_F(TernaryTreeTest, FuzzyFindsOnlyKeysOfTheTree) {
    std::mt19937 random(11);
    std::set<std::string> stored;
    for (int i = 0; i < 150; i++) {
        std::string k;
        for (int n = 1 + static_cast<int>(random() % 5); n > 0; n--)
            k += static_cast<char>('a' + random() % 4);
        stored.insert(k);
        tree->setObject_forKey_("v"_ns, ns(k));
    }
    for (int i = 0; i < 40; i++) {
        std::string probe;
        for (int n = 1 + static_cast<int>(random() % 6); n > 0; n--)
            probe += static_cast<char>('a' + random() % 5);
        uint32_t distance = random() % 3;
        std::set<std::string> found = fuzzy(probe, distance);
        for (const std::string& k : found) EXPECT_TRUE(stored.count(k)) << probe << " gave " << k;
        if (distance == 0) {
            EXPECT_EQ(found,
                      stored.count(probe) ? std::set<std::string>{probe} : std::set<std::string>{});
        }
    }
}

// The definition itself, by recursion with a memo: independent of the
// table that the class fills.
unsigned editDistance(const std::u16string& a, const std::u16string& b) {
    std::vector<std::vector<int>> memo(a.size() + 1, std::vector<int>(b.size() + 1, -1));
    std::function<int(size_t, size_t)> d = [&](size_t i, size_t j) -> int {
        if (i == 0) return static_cast<int>(j);
        if (j == 0) return static_cast<int>(i);
        int& m = memo[i][j];
        if (m >= 0) return m;
        m = std::min({d(i - 1, j) + 1, d(i, j - 1) + 1,
                      d(i - 1, j - 1) + (a[i - 1] == b[j - 1] ? 0 : 1)});
        return m;
    };
    return static_cast<unsigned>(d(a.size(), b.size()));
}

NSString* fromUnits(const std::u16string& s) {
    return NSString::stringWithCharacters_length_(reinterpret_cast<const uint16_t*>(s.data()),
                                                  static_cast<uint32_t>(s.size()));
}

TEST(LevenshteinTest, KnownAndRandomPairs) {
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    EXPECT_EQ(LXLevenshtein::levenshteinWithStrings__("kitten"_ns, "sitting"_ns)->distance(), 3u);
    EXPECT_EQ(LXLevenshtein::levenshteinWithStrings__(""_ns, "abc"_ns)->distance(), 3u);
    EXPECT_EQ(LXLevenshtein::levenshteinWithStrings__("abc"_ns, nullptr)->distance(), 3u);
    EXPECT_EQ(LXLevenshtein::levenshteinWithStrings__("same"_ns, "same"_ns)->distance(), 0u);
    // 16-bit characters, not bytes: "é" against "e" is one substitution.
    EXPECT_EQ(
            LXLevenshtein::levenshteinWithStrings__(ns("\xC3\xA9t\xC3\xA9"), "ete"_ns)->distance(),
            2u);
    EXPECT_EQ(LXLevenshtein::levenshteinWithStrings__(""_ns, ""_ns)->min___(4, -2, 3), -2);

    std::mt19937 random(99);
    const char16_t alphabet[] = {u'a', u'b', u'c', u'\u00e9', u'\u0161'};
    for (int i = 0; i < 300; i++) {
        std::u16string a, b;
        for (int n = static_cast<int>(random() % 12); n > 0; n--) a += alphabet[random() % 5];
        for (int n = static_cast<int>(random() % 12); n > 0; n--) b += alphabet[random() % 5];
        LXLevenshtein* l = LXLevenshtein::levenshteinWithStrings__(fromUnits(a), fromUnits(b));
        ASSERT_EQ(l->distance(), editDistance(a, b));
    }
    pool->release();
}

}  // namespace
