// Collections: arrays, dictionaries, sets, index sets and sort descriptors.
// The orders of enumeration are computed here from the hash formulas alone,
// never from the implementation, because they reach archives and users.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "foundation/Foundation.h"

namespace {

// ---------------------------------------------------------------------------
// Independent reference formulas.

uint32_t stringHash(const std::string& text) {
    uint32_t h = 17;
    for (char c : text)
        h = 37 * h + static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c)));
    return h;
}

uint32_t numberHash(double value) {
    return static_cast<uint32_t>(static_cast<uint64_t>(static_cast<int64_t>(std::trunc(value))));
}

// Keys given in order of insertion, listed as a table of `buckets` lists
// them: by bucket, then by insertion.
template <class K>
std::vector<K> tableOrder(const std::vector<K>& inserted, const std::vector<uint32_t>& hashes,
                          uint32_t buckets) {
    std::vector<size_t> index(inserted.size());
    for (size_t i = 0; i < index.size(); i++) index[i] = i;
    std::stable_sort(index.begin(), index.end(),
                     [&](size_t a, size_t b) { return hashes[a] % buckets < hashes[b] % buckets; });
    std::vector<K> out;
    for (size_t i : index) out.push_back(inserted[i]);
    return out;
}

std::vector<std::string> texts(NSArray* array) {
    std::vector<std::string> out;
    for (uint32_t i = 0; i < array->count(); i++) {
        NSObject* o = array->objectAtIndex_(i);
        out.push_back(o ? o->description()->UTF8String() : "(nil)");
    }
    return out;
}

std::vector<double> numbers(NSArray* array) {
    std::vector<double> out;
    for (uint32_t i = 0; i < array->count(); i++)
        out.push_back(static_cast<NSNumber*>(array->objectAtIndex_(i))->doubleValue());
    return out;
}

std::vector<NSObject*> identities(NSArray* array) {
    std::vector<NSObject*> out;
    for (uint32_t i = 0; i < array->count(); i++) out.push_back(array->objectAtIndex_(i));
    return out;
}

NSString* str(const std::string& text) { return NSString::stringWithUTF8String_(text.c_str()); }
NSNumber* num(double v) { return NSNumber::numberWithDouble_(v); }
std::string text(NSString* s) { return s ? s->UTF8String() : "(nil)"; }

// The exchange sort as documented, kept here as the reference that the
// array's sort must match: walk back after an exchange, and only an answer
// of exactly 1 exchanges.
std::vector<NSObject*> exchangeSort(std::vector<NSObject*> work, SEL comparator) {
    size_t i = 0;
    while (i + 1 < work.size()) {
        if (NSSend<int>(work[i], comparator, work[i + 1]) == 1) {
            std::swap(work[i], work[i + 1]);
            i = i == 0 ? 1 : i - 1;
        } else {
            i++;
        }
    }
    return work;
}

// An object with a value and comparisons that answer what they please, and
// a count of the isEqual: calls made to it.
int itemEqualCalls = 0;

class CollItem : public NSObject {
    NS_DECLARE_CLASS(CollItem, NSObject)

public:
    CollItem* initWithValue_(int v) {
        value = v;
        return this;
    }
    // The difference itself: 2 or -5 are answers too, and only 1 exchanges.
    int compareDiff_(CollItem* other) { return value - other->value; }
    bool isEqual_(NSObject* other) override {
        itemEqualCalls++;
        return other && other->isKindOfClass_(CollItem::classObject()) &&
               static_cast<CollItem*>(other)->value == value;
    }
    uint32_t hash() override { return static_cast<uint32_t>(value); }
    NSString* description() override { return NSString::stringWithFormat_("i%d", value); }
    int value = 0;
};

NS_CLASS_BEGIN(CollItem, NSObject)
    NS_METHOD(initWithValue_)
    NS_METHOD(compareDiff_)
    NS_METHOD(isEqual_)
    NS_METHOD(hash)
    NS_METHOD(description)
NS_CLASS_END(CollItem)

CollItem* item(int v) { return NSAutorelease(CollItem::alloc()->initWithValue_(v)); }

// A string whose compare: answers from a random source: nothing about its
// answers can be trusted, so the array must sort it by the exchange sort.
std::mt19937* oddRandom = nullptr;

class OddString : public NSMutableString {
    NS_DECLARE_CLASS(OddString, NSMutableString)

public:
    int compare_(NSString*) { return static_cast<int>((*oddRandom)() % 4) - 1; }  // -1, 0, 1 or 2
};

NS_CLASS_BEGIN(OddString, NSMutableString)
    NS_METHOD(compare_)
NS_CLASS_END(OddString)

// A string that hashes to 0 whatever its text: equal to the plain string of
// its text all the same.
class ZeroHashString : public NSMutableString {
    NS_DECLARE_CLASS(ZeroHashString, NSMutableString)

public:
    uint32_t hash() override { return 0; }
};

NS_CLASS_BEGIN(ZeroHashString, NSMutableString)
    NS_METHOD(hash)
NS_CLASS_END(ZeroHashString)

OddString* odd(const char* t) {
    auto* s = OddString::alloc();
    s->init();
    s->appendString_(str(t));
    return NSAutorelease(s);
}

class Collections : public ::testing::Test {
protected:
    void SetUp() override { pool = NSAutoreleasePool::alloc()->init(); }
    void TearDown() override { pool->release(); }
    NSAutoreleasePool* pool = nullptr;
};

// ---------------------------------------------------------------------------
// Arrays.

TEST_F(Collections, ArrayGrowsByDoublingAndKeepsOrder) {
    NSMutableArray* a = NSMutableArray::arrayWithCapacity_(10);
    for (int i = 0; i < 11; i++) a->addObject_(num(i));
    EXPECT_EQ(a->valueForKey_("capacity"_ns)->description()->UTF8String(), std::string("20"));
    EXPECT_EQ(numbers(a), (std::vector<double>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));

    NSMutableArray* empty = NSMutableArray::arrayWithCapacity_(0);
    for (int i = 0; i < 3; i++) empty->addObject_(num(i));
    EXPECT_EQ(numbers(empty), (std::vector<double>{0, 1, 2}));
    EXPECT_STREQ(empty->valueForKey_("capacity"_ns)->description()->UTF8String(), "4");

    // An initWithObjects: array starts at 16.
    NSArray* listed = NSArray::alloc()->initWithObjects_("x"_ns, "y"_ns, nullptr);
    EXPECT_EQ(listed->count(), 2u);
    EXPECT_STREQ(listed->valueForKey_("capacity"_ns)->description()->UTF8String(), "16");
    listed->release();
}

TEST_F(Collections, ArrayRemovalAndTheSortedByMark) {
    NSMutableArray* a = NSArray::arrayWithObjects_(num(3), num(1), num(2), nullptr);
    a->removeObjectAtIndex_(3);  // == count: ignored
    a->removeObjectAtIndex_(UINT32_MAX);
    EXPECT_EQ(numbers(a), (std::vector<double>{3, 1, 2}));

    NSMutableArray* s = a->sortedArrayUsingSelector_(NS_SEL("compare:"));
    EXPECT_EQ(numbers(s), (std::vector<double>{1, 2, 3}));
    EXPECT_EQ(s->sortedBy(), NS_SEL("compare:"));
    s->removeObjectAtIndex_(0);
    EXPECT_EQ(s->sortedBy(), NS_SEL("compare:"));
    s->replaceObjectAtIndex_withObject_(0, num(7));
    EXPECT_EQ(s->sortedBy(), nullptr);
    s->setSortedBy_(NS_SEL("compare:"));
    s->addObject_(num(9));
    EXPECT_EQ(s->sortedBy(), nullptr);

    // The empty sort: a new empty array without the mark.
    NSMutableArray* none = NSMutableArray::array()->sortedArrayUsingSelector_(NS_SEL("compare:"));
    EXPECT_EQ(none->count(), 0u);
    EXPECT_EQ(none->sortedBy(), nullptr);

    // removeObject: takes the first equal element only; removeAllObjects keeps
    // the capacity.
    NSMutableArray* d = NSArray::arrayWithObjects_(str("a"), str("b"), str("a"), nullptr);
    d->removeObject_(str("a"));
    EXPECT_EQ(texts(d), (std::vector<std::string>{"b", "a"}));
    d->removeObject_(str("zz"));
    EXPECT_EQ(d->count(), 2u);
    d->removeAllObjects();
    EXPECT_EQ(d->count(), 0u);
    EXPECT_STREQ(d->valueForKey_("capacity"_ns)->description()->UTF8String(), "10");
}

TEST_F(Collections, IndexOfObjectLinearByIsEqualOrBinaryBySortedBy) {
    NSMutableArray* a = NSArray::arrayWithObjects_(str("x"), str("y"), nullptr);
    EXPECT_EQ(a->indexOfObject_(NSMutableString::stringWithUTF8String_("y")), 1);
    EXPECT_EQ(a->indexOfObject_(str("z")), -1);

    // Not really sorted, but marked: the binary search answers, not isEqual:.
    // 3 against the middle 1 goes up, against 2 up again: not found, though
    // it is at index 0.
    NSMutableArray* b = NSArray::arrayWithObjects_(num(3), num(1), num(2), nullptr);
    EXPECT_EQ(b->indexOfObject_(num(3)), 0);
    b->setSortedBy_(NS_SEL("compare:"));
    EXPECT_EQ(b->indexOfObject_(num(3)), -1);

    // Among equal elements the search stops at the first middle that
    // answers 0.
    NSMutableArray* c = NSArray::arrayWithObjects_(num(1), num(2), num(2), num(2), num(3), nullptr)
                                ->sortedArrayUsingSelector_(NS_SEL("compare:"));
    EXPECT_EQ(c->indexOfObject_(num(2)), 2);
    EXPECT_EQ(c->indexOfObject_(num(1)), 0);
    EXPECT_EQ(c->indexOfObject_(num(3)), 4);
    EXPECT_EQ(c->indexOfObject_(num(0)), -1);
    EXPECT_EQ(c->indexOfObject_(num(9)), -1);

    // No isEqual: at all on the sorted path.
    NSMutableArray* items = NSArray::arrayWithObjects_(item(5), item(6), item(7), nullptr);
    items->setSortedBy_(NS_SEL("compareDiff:"));
    itemEqualCalls = 0;
    EXPECT_EQ(items->indexOfObject_(item(6)), 1);
    // 8 - 6 = 2 is "anything else": upwards, past the end.
    EXPECT_EQ(items->indexOfObject_(item(8)), -1);
    EXPECT_EQ(itemEqualCalls, 0);
}

TEST_F(Collections, ExchangeSortIsStableAndOnlyOneExchanges) {
    NSNumber* two1 = num(2);
    NSNumber* two2 = num(2);
    NSNumber* two3 = num(2.0);
    NSMutableArray* a =
            NSArray::arrayWithObjects_(num(1), two1, num(3), two2, num(0), two3, nullptr);
    NSMutableArray* s = a->sortedArrayUsingSelector_(NS_SEL("compare:"));
    EXPECT_EQ(numbers(s), (std::vector<double>{0, 1, 2, 2, 2, 3}));
    EXPECT_EQ(s->objectAtIndex_(2), two1);
    EXPECT_EQ(s->objectAtIndex_(3), two2);
    EXPECT_EQ(s->objectAtIndex_(4), two3);
    EXPECT_EQ(numbers(a), (std::vector<double>{1, 2, 3, 2, 0, 2}));  // the receiver is untouched

    // compareDiff: answers the difference: 3 - 1 = 2 is not 1, so 3 stays
    // before 1; 2 - 1 = 1 exchanges.
    NSMutableArray* items = NSArray::arrayWithObjects_(item(3), item(1), nullptr);
    EXPECT_EQ(texts(items->sortedArrayUsingSelector_(NS_SEL("compareDiff:"))),
              (std::vector<std::string>{"i3", "i1"}));
    items = NSArray::arrayWithObjects_(item(2), item(1), item(4), item(3), item(9), nullptr);
    EXPECT_EQ(texts(items->sortedArrayUsingSelector_(NS_SEL("compareDiff:"))),
              (std::vector<std::string>{"i1", "i2", "i3", "i4", "i9"}));
    items = NSArray::arrayWithObjects_(item(5), item(4), item(2), nullptr);
    // 5,4 -> 4,5; back to 0: 4,5 stays; 5,2 (3) stays.
    EXPECT_EQ(texts(items->sortedArrayUsingSelector_(NS_SEL("compareDiff:"))),
              (std::vector<std::string>{"i4", "i5", "i2"}));
}

// The fast sort that the array uses for compare: of strings and of numbers
// must give exactly the exchange sort's order, object for object.
TEST_F(Collections, SortMatchesTheExchangeSortOnRandomInput) {
    std::mt19937 random(20240611);
    const SEL compare = NS_SEL("compare:");
    const char* alphabet[] = {"",          "a", "b", "ab", "B", "\xc3\xa9", "\xc3\xa9t\xc3\xa9",
                              "a\xc3\xa9", "z", "~"};
    for (int round = 0; round < 60; round++) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        size_t n = random() % 120;
        // Strings of three kinds: immutable, mutable and constant, with many
        // equal texts and bytes above 0x7F (compared unsigned).
        NSMutableArray* strings = NSMutableArray::array();
        for (size_t i = 0; i < n; i++) {
            std::string t = std::string(alphabet[random() % 10]) + alphabet[random() % 3];
            switch (random() % 3) {
                case 0:
                    strings->addObject_(str(t));
                    break;
                case 1:
                    strings->addObject_(NSMutableString::stringWithUTF8String_(t.c_str()));
                    break;
                default:
                    strings->addObject_(random() % 2 ? "ab"_ns : "\xc3\xa9"_ns);
                    break;
            }
        }
        EXPECT_EQ(identities(strings->sortedArrayUsingSelector_(compare)),
                  exchangeSort(identities(strings), compare))
                << "strings, round " << round;

        // Numbers of mixed kinds: integers, fractions, negatives, both zeros,
        // infinities, huge values, booleans; few distinct values.
        NSMutableArray* nums = NSMutableArray::array();
        const double values[] = {0.0, -0.0, 1, 1.5, -1, -1.5, 1e300, -INFINITY, INFINITY, 3};
        for (size_t i = 0; i < n; i++) {
            switch (random() % 3) {
                case 0:
                    nums->addObject_(num(values[random() % 10]));
                    break;
                case 1:
                    nums->addObject_(NSNumber::numberWithInt_(static_cast<int>(random() % 5) - 2));
                    break;
                default:
                    nums->addObject_(NSNumber::numberWithBool_(random() % 2));
                    break;
            }
        }
        EXPECT_EQ(identities(nums->sortedArrayUsingSelector_(compare)),
                  exchangeSort(identities(nums), compare))
                << "numbers, round " << round;

        // What can't be trusted goes to the exchange sort: a NaN, a nil in
        // the middle, a string class with its own compare:.
        NSMutableArray* withNaN = static_cast<NSMutableArray*>(nums->mutableCopy());
        withNaN->addObject_(num(NAN));
        withNaN->addObject_(num(-2));
        EXPECT_EQ(identities(withNaN->sortedArrayUsingSelector_(compare)),
                  exchangeSort(identities(withNaN), compare));
        withNaN->release();

        NSMutableArray* withNil = static_cast<NSMutableArray*>(strings->mutableCopy());
        withNil->addObject_(nullptr);
        withNil->addObject_(str("a"));
        EXPECT_EQ(identities(withNil->sortedArrayUsingSelector_(compare)),
                  exchangeSort(identities(withNil), compare));
        withNil->release();

        NSMutableArray* oddOnes = static_cast<NSMutableArray*>(strings->mutableCopy());
        oddOnes->addObject_(odd("m"));
        oddOnes->addObject_(odd("a"));
        std::mt19937 r1(round), r2(round);
        oddRandom = &r1;
        std::vector<NSObject*> sorted = identities(oddOnes->sortedArrayUsingSelector_(compare));
        oddRandom = &r2;
        EXPECT_EQ(sorted, exchangeSort(identities(oddOnes), compare));
        oddOnes->release();
        inner->release();
    }
}

TEST_F(Collections, EnumeratorIsALiveCursorEndingAtNil) {
    NSMutableArray* a = NSArray::arrayWithObjects_(str("a"), nullptr);
    NSEnumerator* e = a->objectEnumerator();
    a->addObject_(str("b"));
    EXPECT_EQ(text(static_cast<NSString*>(e->nextObject())), "a");
    EXPECT_EQ(text(static_cast<NSString*>(e->nextObject())), "b");
    EXPECT_EQ(e->nextObject(), nullptr);
    a->addObject_(nullptr);
    a->addObject_(str("hidden"));
    EXPECT_EQ(e->nextObject(), nullptr);

    // addObjectsFromArray: stops at the nil too, and an array added to
    // itself gets its elements once more.
    NSMutableArray* b = NSMutableArray::array();
    b->addObjectsFromArray_(a);
    EXPECT_EQ(texts(b), (std::vector<std::string>{"a", "b"}));
    b->addObjectsFromArray_(b);
    EXPECT_EQ(texts(b), (std::vector<std::string>{"a", "b", "a", "b"}));
}

TEST_F(Collections, ArrayEqualityHashCopiesAndDescriptions) {
    NSMutableArray* a =
            NSArray::arrayWithObjects_(str("text"), NSNumber::numberWithInt_(5), nullptr);
    EXPECT_EQ(text(a->description()), "[text, 5]");
    EXPECT_EQ(text(NSMutableArray::array()->description()), "[]");
    EXPECT_EQ(text(a->componentsJoinedByString_("-"_ns)), "text-5");
    EXPECT_EQ(a->hash(), 37 * (37 * 17u + stringHash("text")) + 5u);

    NSMutableArray* copy = static_cast<NSMutableArray*>(a->copy());
    EXPECT_NE(copy, a);
    EXPECT_TRUE(copy->isKindOfClass_(NSMutableArray::classObject()));
    EXPECT_EQ(copy->objectAtIndex_(0), a->objectAtIndex_(0));  // shallow
    EXPECT_TRUE(copy->isEqual_(a));
    copy->addObject_(str("more"));
    EXPECT_FALSE(copy->isEqual_(a));
    EXPECT_FALSE(a->isEqual_(
            NSArray::arrayWithObjects_(NSNumber::numberWithInt_(5), str("text"), nullptr)));
    copy->release();

    NSMutableArray* sub = a->subarrayWithRange_(NSMakeRange(1, 1));
    EXPECT_EQ(texts(sub), (std::vector<std::string>{"5"}));
    // Whatever class receives it, arrayWithObjects: makes a mutable array.
    EXPECT_TRUE(NSArray::arrayWithArray_(a)->isMemberOfClass_(NSMutableArray::classObject()));
    NSObject* viaName =
            NSSendClass<NSObject*>(NSClassFromCString("NSArray"), NS_SEL("arrayWithArray:"), a);
    EXPECT_TRUE(viaName->isEqual_(a));
}

// ---------------------------------------------------------------------------
// Dictionaries.

std::vector<std::string> someStringKeys() {
    std::vector<std::string> keys = {"a", "k", "", "name", "\xc3\xa9t\xc3\xa9", "\xff", "Z", "zz"};
    for (int i = 0; i < 300; i++) keys.push_back("key" + std::to_string(i * 7919 % 1000));
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    std::shuffle(keys.begin(), keys.end(), std::mt19937(7));
    return keys;
}

TEST_F(Collections, StringKeysListInTableOrder) {
    std::vector<std::string> keys = someStringKeys();
    std::vector<uint32_t> hashes;
    for (auto& k : keys) hashes.push_back(stringHash(k));

    NSMutableDictionary* ten = NSMutableDictionary::dictionary();
    auto* big = static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->init());
    NSMutableDictionary* some = NSMutableDictionary::dictionaryWithCapacity_(37);
    NSMutableDictionary* zero =
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(0));
    for (auto& k : keys) {
        ten->setObject_forKey_(str("v" + k), str(k));
        big->insertValue_forKey_(str("v" + k), str(k));
        some->setObject_forKey_(str("v" + k), str(k));
        zero->setObject_forKey_(str(k), str(k));
    }
    EXPECT_EQ(ten->bucketCount(), 10u);
    EXPECT_EQ(big->bucketCount(), 1024u);
    EXPECT_EQ(zero->bucketCount(), 10u);
    EXPECT_EQ(texts(ten->allKeys()), tableOrder(keys, hashes, 10));
    EXPECT_EQ(texts(big->allKeys()), tableOrder(keys, hashes, 1024));
    EXPECT_EQ(texts(some->allKeys()), tableOrder(keys, hashes, 37));
    EXPECT_EQ(texts(zero->allKeys()), tableOrder(keys, hashes, 10));
    std::vector<std::string> values;
    for (auto& k : tableOrder(keys, hashes, 1024)) values.push_back("v" + k);
    EXPECT_EQ(texts(big->allValues()), values);

    // A copy has one bucket per entry and takes the entries in the
    // source's order; so does a mutableCopy.
    NSMutableDictionary* copy = static_cast<NSMutableDictionary*>(big->copy());
    std::vector<std::string> source = tableOrder(keys, hashes, 1024);
    std::vector<uint32_t> sourceHashes;
    for (auto& k : source) sourceHashes.push_back(stringHash(k));
    EXPECT_EQ(copy->bucketCount(), static_cast<uint32_t>(keys.size()));
    EXPECT_EQ(texts(copy->allKeys()),
              tableOrder(source, sourceHashes, static_cast<uint32_t>(keys.size())));
    EXPECT_TRUE(copy->isEqual_(big));
    EXPECT_TRUE(big->isEqual_(ten));
    NSObject* again = ten->mutableCopy();
    EXPECT_EQ(static_cast<NSDictionary*>(again)->bucketCount(), static_cast<uint32_t>(keys.size()));
    again->release();
    copy->release();
    big->release();
    zero->release();

    // A dictionary of the immutable class is shared by copy, and copied by
    // mutableCopy.
    NSDictionary* fixed = NSDictionary::alloc()->initWithObjectsAndKeys_(num(1), "a"_ns, nullptr);
    NSObject* same = fixed->copy();
    EXPECT_EQ(same, fixed);
    same->release();
    auto* changeable = static_cast<NSDictionary*>(fixed->mutableCopy());
    EXPECT_TRUE(changeable->isMemberOfClass_(NSMutableDictionary::classObject()));
    EXPECT_EQ(changeable->bucketCount(), 1u);
    changeable->release();
    fixed->release();

    // A known pair: a (726) and k (736) share bucket 6 of 10 and list
    // in the order they came.
    EXPECT_EQ(stringHash("a"), 726u);
    NSMutableDictionary* ak = NSMutableDictionary::dictionary();
    ak->setObject_forKey_(num(1), "k"_ns);
    ak->setObject_forKey_(num(2), "a"_ns);
    ak->setObject_forKey_(num(3), "b"_ns);  // 727: bucket 7
    EXPECT_EQ(texts(ak->allKeys()), (std::vector<std::string>{"k", "a", "b"}));
    EXPECT_EQ(text(ak->description()), "{k:1, a:2, b:3}");
    EXPECT_EQ(text(NSMutableDictionary::dictionary()->description()), "{}");
}

TEST_F(Collections, NumberKeysListInTableOrder) {
    std::vector<double> keys = {0,
                                1,
                                -1,
                                2.7,
                                -2.7,
                                10,
                                11,
                                1023,
                                1024,
                                1025,
                                5e9,
                                -5e9,
                                4294967296.0 + 6,
                                123456.5,
                                -0.5,
                                1e20,
                                -1e20,
                                31,
                                64};
    for (int i = 0; i < 200; i++) keys.push_back((i * 37 % 211) - 60.25);
    std::vector<uint32_t> hashes;
    for (double k : keys) hashes.push_back(numberHash(k));
    EXPECT_EQ(numberHash(-1), 0xFFFFFFFFu);
    EXPECT_EQ(numberHash(2.7), 2u);

    for (uint32_t buckets : {10u, 1024u, 97u}) {
        NSMutableDictionary* d = NSMutableDictionary::dictionaryWithCapacity_(buckets);
        for (double k : keys) d->setObject_forKey_(num(k * 2), num(k));
        EXPECT_EQ(d->count(), keys.size());
        EXPECT_EQ(numbers(d->allKeys()), tableOrder(keys, hashes, buckets))
                << buckets << " buckets";
        EXPECT_EQ(static_cast<NSNumber*>(d->objectForKey_(num(-2.7)))->doubleValue(), -5.4);
    }

    // A set of numbers is the same table: setWithArray: takes one bucket
    // per element.
    NSMutableArray* list = NSMutableArray::array();
    for (double k : keys) list->addObject_(num(k));
    NSMutableSet* set = NSSet::setWithArray_(list);
    EXPECT_EQ(set->dict()->bucketCount(), static_cast<uint32_t>(keys.size()));
    EXPECT_EQ(numbers(set->allObjects()),
              tableOrder(keys, hashes, static_cast<uint32_t>(keys.size())));
}

TEST_F(Collections, RemovalAndReinsertionWithinABucket) {
    NSMutableDictionary* d = NSMutableDictionary::dictionary();
    d->setObject_forKey_(num(1), "a"_ns);
    d->setObject_forKey_(num(2), "k"_ns);
    d->setObject_forKey_(num(3), "u"_ns);  // 17*37+117 = 746: bucket 6 as well
    EXPECT_EQ(texts(d->allKeys()), (std::vector<std::string>{"a", "k", "u"}));

    // Replacing keeps the place and the count.
    d->setObject_forKey_(num(9), "a"_ns);
    EXPECT_EQ(texts(d->allKeys()), (std::vector<std::string>{"a", "k", "u"}));
    EXPECT_EQ(texts(d->allValues()), (std::vector<std::string>{"9", "2", "3"}));
    EXPECT_EQ(d->count(), 3u);

    // Removed and added again: to the end of the bucket.
    d->removeObjectForKey_("a"_ns);
    d->setObject_forKey_(num(1), "a"_ns);
    EXPECT_EQ(texts(d->allKeys()), (std::vector<std::string>{"k", "u", "a"}));

    // Absent keys: nothing changes, by either path of removal.
    d->removeObjectForKey_("zz"_ns);
    d->insertValue_forKey_(nullptr, "b"_ns);
    EXPECT_EQ(d->count(), 3u);
    d->insertValue_forKey_(nullptr, "k"_ns);
    EXPECT_EQ(d->count(), 2u);
    EXPECT_EQ(d->objectForKey_("k"_ns), nullptr);

    // The last key of a bucket gone: the slot is the shared null again,
    // and the next key there starts a new bucket.
    auto* table = static_cast<NSArray*>(d->valueForKey_("array"_ns));
    d->removeObjectForKey_("u"_ns);
    d->removeObjectForKey_("a"_ns);
    EXPECT_EQ(table->objectAtIndex_(6), NSNull::null());
    EXPECT_EQ(d->count(), 0u);
    d->setObject_forKey_(num(4), "k"_ns);
    ASSERT_TRUE(table->objectAtIndex_(6)->isKindOfClass_(NSMutableArray::classObject()));
    EXPECT_EQ(texts(static_cast<NSArray*>(table->objectAtIndex_(6))),
              (std::vector<std::string>{"k", "4"}));

    // removeAllObjects keeps the bucket count.
    d->removeAllObjects();
    EXPECT_EQ(d->count(), 0u);
    EXPECT_EQ(d->bucketCount(), 10u);
    EXPECT_EQ(table->objectAtIndex_(6), NSNull::null());
}

TEST_F(Collections, LookupAsksEachStoredKeyInOrder) {
    NSMutableDictionary* d = NSMutableDictionary::dictionary();
    for (int v : {3, 13, 23, 4}) d->setObject_forKey_(num(v), item(v));
    EXPECT_EQ(texts(d->allKeys()), (std::vector<std::string>{"i3", "i13", "i23", "i4"}));
    itemEqualCalls = 0;
    EXPECT_EQ(static_cast<NSNumber*>(d->objectForKey_(item(23)))->intValue(), 23);
    EXPECT_EQ(itemEqualCalls, 3);
    itemEqualCalls = 0;
    EXPECT_EQ(d->objectForKey_(item(33)), nullptr);
    EXPECT_EQ(itemEqualCalls, 3);

    // Strings of one bucket with other hashes are passed over; a string of
    // a class with its own hash is still asked, and found by its text.
    NSMutableDictionary* one = NSMutableDictionary::dictionaryWithCapacity_(1);
    one->setObject_forKey_(num(1), "ab"_ns);
    one->setObject_forKey_(num(2), str("cd"));
    one->setObject_forKey_(num(3), num(5));
    EXPECT_EQ(
            static_cast<NSNumber*>(one->objectForKey_(NSMutableString::stringWithUTF8String_("cd")))
                    ->intValue(),
            2);
    EXPECT_EQ(static_cast<NSNumber*>(one->objectForKey_(NSNumber::numberWithInt_(5)))->intValue(),
              3);
    EXPECT_EQ(one->objectForKey_(num(5.5)), nullptr);  // the same hash, not equal
    EXPECT_EQ(one->objectForKey_(num(6)), nullptr);
    ZeroHashString* zero = static_cast<ZeroHashString*>(ZeroHashString::alloc()->init());
    zero->appendString_("cd"_ns);
    EXPECT_EQ(zero->hash(), 0u);
    EXPECT_EQ(static_cast<NSNumber*>(one->objectForKey_(zero))->intValue(), 2);
    one->setObject_forKey_(num(7), zero);
    EXPECT_EQ(one->count(), 3u);
    EXPECT_EQ(static_cast<NSNumber*>(one->objectForKey_("cd"_ns))->intValue(), 7);
    zero->release();
}

TEST_F(Collections, KeysAreCopiesValuesAreRetained) {
    NSMutableDictionary* d = NSMutableDictionary::dictionary();
    NSMutableString* key = NSMutableString::stringWithUTF8String_("ab");
    NSMutableString* value = NSMutableString::stringWithUTF8String_("v");
    d->setObject_forKey_(value, key);
    key->appendString_("c"_ns);
    value->appendString_("w"_ns);
    EXPECT_EQ(text(static_cast<NSString*>(d->objectForKey_("ab"_ns))),
              "vw");  // the same value object
    EXPECT_EQ(d->objectForKey_("abc"_ns), nullptr);
    EXPECT_EQ(texts(d->allKeys()), (std::vector<std::string>{"ab"}));
    EXPECT_NE(d->allKeys()->objectAtIndex_(0), key);

    // Immutable keys are shared by their copy.
    NSString* shared = str("shared");
    d->setObject_forKey_(num(1), shared);
    EXPECT_EQ(d->allKeysForObject_(num(1))->objectAtIndex_(0), shared);

    // An array as key is copied as well.
    NSMutableArray* arrayKey = NSArray::arrayWithObjects_(str("x"), nullptr);
    d->setObject_forKey_(num(2), arrayKey);
    arrayKey->addObject_(str("y"));
    EXPECT_NE(d->objectForKey_(NSArray::arrayWithObjects_(str("x"), nullptr)), nullptr);
    EXPECT_EQ(d->objectForKey_(arrayKey), nullptr);
}

TEST_F(Collections, MergingEqualityHashAndAttributes) {
    NSMutableDictionary* a =
            NSDictionary::dictionaryWithObjectsAndKeys_(num(1), "a"_ns, num(2), "b"_ns, nullptr);
    NSMutableDictionary* b = NSDictionary::dictionaryWithObjectsAndKeys_(num(20), "b"_ns, num(3),
                                                                         "c"_ns, nullptr, "x"_ns);
    EXPECT_EQ(b->count(), 2u);  // ends at the first nil value
    a->addEntriesFromDictionary_(b);
    EXPECT_EQ(a->count(), 3u);
    EXPECT_EQ(text(a->description()), "{a:1, b:20, c:3}");
    NSDictionary* copy = static_cast<NSDictionary*>(a->copy());
    EXPECT_EQ(copy->count(), 3u);
    EXPECT_EQ(copy->bucketCount(), 3u);
    copy->release();

    EXPECT_EQ(texts(a->allKeysForObject_(num(20))), (std::vector<std::string>{"b"}));
    a->setObject_forKey_(num(20), "a"_ns);
    EXPECT_EQ(texts(a->allKeysForObject_(num(20))), (std::vector<std::string>{"a", "b"}));

    // Equal contents in other bucket counts are equal; the hash follows the
    // enumeration order.
    NSDictionary* big = NSDictionary::alloc()->initWithObjectsAndKeys_(
            num(20), "a"_ns, num(20), "b"_ns, num(3), "c"_ns, nullptr);
    EXPECT_EQ(big->bucketCount(), 1024u);
    EXPECT_TRUE(big->isEqual_(a));
    EXPECT_TRUE(a->isEqual_(big));
    uint32_t h = 17;
    for (const char* k : {"a", "b", "c"}) {  // 726, 727, 728: the same order in 10 and 1024 buckets
        h = 37 * h + stringHash(k);
        h = 37 * h + (k[0] == 'c' ? 3u : 20u);
    }
    EXPECT_EQ(a->hash(), h);
    EXPECT_EQ(big->hash(), h);
    big->insertValue_forKey_(num(4), "c"_ns);
    EXPECT_FALSE(big->isEqual_(a));
    big->release();

    EXPECT_EQ(texts(a->attributeKeys()), (std::vector<std::string>{"count", "array"}));
    EXPECT_EQ(texts(NSMutableSet::set()->attributeKeys()), (std::vector<std::string>{"dict"}));

    // Through the runtime: setObject:forKey: by name, the classes by name.
    NSObject* d = NSSendClass<NSObject*>(NSClassFromCString("NSMutableDictionary"),
                                         NS_SEL("dictionaryWithCapacity:"), 3u);
    NSSend<void>(d, NS_SEL("setObject:forKey:"), num(1), "one"_ns);
    EXPECT_EQ(static_cast<NSDictionary*>(d)->count(), 1u);
    for (const char* name : {"NSSet", "NSMutableSet", "NSCountedSet", "NSIndexSet",
                             "NSMutableIndexSet", "NSSortDescriptor"}) {
        EXPECT_NE(NSClassFromCString(name), nullptr) << name;
    }
}

// ---------------------------------------------------------------------------
// Sets, counted sets, index sets, sort descriptors.

TEST_F(Collections, SetsAreDictionariesOfMembers) {
    NSMutableSet* s = NSMutableSet::set();
    EXPECT_EQ(s->dict()->bucketCount(), 10u);
    NSString* first = str("k");
    s->addObject_(first);
    s->addObject_("a"_ns);
    s->addObject_(str("k"));  // equal: the first member stays
    EXPECT_EQ(s->count(), 2u);
    EXPECT_EQ(s->allObjects()->objectAtIndex_(0), first);
    EXPECT_EQ(text(s->description()), "<set> [k, a]");
    EXPECT_EQ(text(NSMutableSet::set()->description()), "<set> []");
    EXPECT_TRUE(s->member_(str("a")));
    EXPECT_FALSE(s->member_(str("b")));
    EXPECT_EQ(s->hash(), s->allObjects()->hash());

    NSEnumerator* e = s->objectEnumerator();
    EXPECT_EQ(e->nextObject(), first);
    EXPECT_EQ(text(static_cast<NSString*>(e->nextObject())), "a");
    EXPECT_EQ(e->nextObject(), nullptr);

    NSMutableSet* t =
            NSSet::setWithArray_(NSArray::arrayWithObjects_(str("a"), str("z"), str("a"), nullptr));
    EXPECT_EQ(t->dict()->bucketCount(), 3u);
    EXPECT_EQ(t->count(), 2u);
    EXPECT_TRUE(s->intersectsSet_(t));
    EXPECT_FALSE(s->isEqual_(t));
    t->removeObject_("z"_ns);
    t->addObject_("k"_ns);
    EXPECT_TRUE(s->isEqual_(t));
    EXPECT_FALSE(s->intersectsSet_(NSMutableSet::set()));
    EXPECT_EQ(NSSet::setWithArray_(NSMutableArray::array())->dict()->bucketCount(), 10u);

    NSMutableSet* copy = static_cast<NSMutableSet*>(s->copy());
    EXPECT_TRUE(copy->isMemberOfClass_(NSMutableSet::classObject()));
    EXPECT_EQ(copy->dict()->bucketCount(), 2u);
    EXPECT_TRUE(copy->isEqual_(s));
    copy->release();
    NSMutableSet* emptyCopy = static_cast<NSMutableSet*>(NSMutableSet::set()->mutableCopy());
    EXPECT_EQ(emptyCopy->dict()->bucketCount(), 10u);
    emptyCopy->release();
}

TEST_F(Collections, CountedSetCountsMembers) {
    NSCountedSet* c = static_cast<NSCountedSet*>(NSCountedSet::alloc()->init());
    c->addObject_(str("x"));
    c->addObject_(str("x"));
    c->addObject_(str("y"));
    c->removeObject_(str("x"));
    c->removeObject_(str("absent"));
    EXPECT_TRUE(c->member_(str("x")));
    EXPECT_EQ(c->countForObject_(str("x")), 1u);
    EXPECT_EQ(c->countForObject_(str("absent")), 0u);
    EXPECT_EQ(c->count(), 2u);
    c->addObject_(str("y"));

    NSCountedSet* copy = static_cast<NSCountedSet*>(c->copy());
    EXPECT_TRUE(copy->isMemberOfClass_(NSCountedSet::classObject()));
    EXPECT_EQ(copy->countForObject_(str("y")), 2u);
    EXPECT_EQ(copy->dict()->bucketCount(), 2u);
    c->removeObject_(str("y"));
    EXPECT_EQ(copy->countForObject_(str("y")), 2u);  // a copy, not a view

    c->removeObject_(str("x"));
    EXPECT_FALSE(c->member_(str("x")));
    EXPECT_EQ(c->count(), 1u);
    copy->release();
    c->release();
}

TEST_F(Collections, IndexSetListsByIndexModuloTen) {
    NSMutableIndexSet* s = NSMutableIndexSet::indexSet();
    s->addIndex_(11);
    s->addIndex_(2);
    s->addIndex_(20);
    s->addIndex_(11);
    EXPECT_EQ(s->count(), 3u);
    EXPECT_TRUE(s->containsIndex_(20));
    EXPECT_FALSE(s->containsIndex_(21));
    std::vector<int> order;
    NSEnumerator* e = s->indexEnumerator();
    for (NSObject* o = e->nextObject(); o; o = e->nextObject())
        order.push_back(static_cast<NSNumber*>(o)->intValue());
    EXPECT_EQ(order, (std::vector<int>{20, 11, 2}));
    EXPECT_EQ(NSIndexSet::indexSet()->count(), 0u);
}

TEST_F(Collections, SortDescriptorSendsItsSelector) {
    NSMutableString* key = NSMutableString::stringWithUTF8String_("name");
    uint32_t before = key->retainCount();
    NSSortDescriptor* plain = NSSortDescriptor::alloc()->initWithKey_ascending_(key, false);
    EXPECT_EQ(key->retainCount(), before + 1);
    EXPECT_EQ(plain->compareObject_toObject_(num(1), num(2)), -1);
    EXPECT_EQ(plain->compareObject_toObject_(str("b"), str("a")), 1);
    NSSortDescriptor* diff = NSSortDescriptor::alloc()->initWithKey_ascending_selector_(
            key, true, NS_SEL("compareDiff:"));
    EXPECT_EQ(diff->compareObject_toObject_(item(9), item(2)), 7);
    EXPECT_EQ(diff->compareObject_toObject_(nullptr, item(2)), 0);
    plain->release();
    diff->release();
    EXPECT_EQ(key->retainCount(), before);
}

TEST_F(Collections, ArgumentsOfAnotherClassReadAsNil) {
    // Sent by selector, a collection argument may be of any class; what is
    // not of the expected one is taken as nil, never read as a collection.
    NSObject* text = str("not a collection");
    NSMutableArray* array =
            NSSend<NSMutableArray*>(NSMutableArray::alloc(), NS_SEL("initWithArray:"), text);
    EXPECT_EQ(array->count(), 0u);
    NSSend<void>(array, NS_SEL("addObjectsFromArray:"), text);
    EXPECT_EQ(array->count(), 0u);
    array->release();
    NSEnumerator* e = NSSend<NSEnumerator*>(NSEnumerator::alloc(), NS_SEL("initWithArray:"), text);
    EXPECT_EQ(e->nextObject(), nullptr);
    e->release();

    NSMutableDictionary* d = NSMutableDictionary::dictionaryWithCapacity_(10);
    NSSend<void>(d, NS_SEL("addEntriesFromDictionary:"),
                 NSArray::arrayWithObjects_(num(1), nullptr));
    EXPECT_EQ(d->count(), 0u);

    NSMutableSet* set =
            NSSendClass<NSMutableSet*>(NSSet::classObject(), NS_SEL("setWithArray:"), text);
    EXPECT_EQ(set->count(), 0u);
    set->addObject_(num(1));
    NSSend<void>(set, NS_SEL("addObjectsFromArray:"), text);
    EXPECT_EQ(set->count(), 1u);
    EXPECT_FALSE(NSSend<bool>(set, NS_SEL("intersectsSet:"),
                              NSArray::arrayWithObjects_(num(1), nullptr)));
}

}  // namespace
