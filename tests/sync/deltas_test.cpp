// Identities, pools and deltas: identity strings and their odd shapes,
// equality, archive bodies (and what a hostile archive can't smuggle in),
// posting, and the delta store's text order and its life across restarts.
#include <gtest/gtest.h>

#include <string>

#include "sync/LXDelta.h"
#include "sync/LXDeltaRepository.h"
#include "sync/LXTransceiver.h"
#include "sync_test_support.h"

using namespace synctest;

namespace {

std::string text(NSString* s) { return s ? s->UTF8String() : "<nil>"; }

std::string fields(LXUser* u) {
    return text(u->firstName()) + "|" + text(u->lastName()) + "|" + text(u->orgUnit()) + "|" +
           text(u->organization()) + "|" + text(u->uniqueId());
}

class DeltasTest : public ::testing::Test {
protected:
    void SetUp() override { pool = NSAutoreleasePool::alloc()->init(); }
    void TearDown() override { pool->release(); }

    LXDelta* delta(const char* from, NSObject* contents) {
        return LXDelta::deltaWithPool_sender_contents_(LXPool::poolWithName_("Rk2pWn"_ns),
                                                       LXUser::userWithString_(ns(from)), contents);
    }

    NSAutoreleasePool* pool = nullptr;
};

TEST_F(DeltasTest, IdentityStrings) {
    LXUser* user = LXUser::userWithString_("John Smith/Sales/Acme-42"_ns);
    EXPECT_EQ(fields(user), "John|Smith|Sales|Acme|42");
    EXPECT_EQ(text(user->description()), "John Smith/Sales/Acme-42");
    EXPECT_TRUE(LXUser::userWithString_(user->description())->isEqual_(user));
    // Only the first hyphen divides: record ids may hold more.
    LXUser* hyphens = LXUser::userWithString_("Jane Doe/R&D/Acme-7f3a-12-b"_ns);
    EXPECT_EQ(fields(hyphens), "Jane|Doe|R&D|Acme|7f3a-12-b");
    EXPECT_EQ(text(hyphens->description()), "Jane Doe/R&D/Acme-7f3a-12-b");
    // A third name word is dropped without notice.
    EXPECT_EQ(fields(LXUser::userWithString_("Anna Maria Lopez/Ops/Acme-1"_ns)),
              "Anna|Maria|Ops|Acme|1");
}

TEST_F(DeltasTest, IdentityStringsOfOtherShapesLeaveTheMissingPartsEmpty) {
    EXPECT_EQ(fields(LXUser::userWithString_("John Smith/Sales/Acme"_ns)),
              "John|Smith|Sales|Acme|");
    EXPECT_EQ(fields(LXUser::userWithString_("Solo-9"_ns)), "Solo||||9");
    EXPECT_EQ(fields(LXUser::userWithString_("John Smith/Sales-9"_ns)), "John|Smith|Sales||9");
    EXPECT_EQ(fields(LXUser::userWithString_(""_ns)), "||||");
    EXPECT_EQ(fields(LXUser::userWithString_(nullptr)), "||||");
    EXPECT_EQ(text(LXUser::userWithString_("Solo-9"_ns)->description()), "Solo //-9");
}

TEST_F(DeltasTest, Equality) {
    LXUser* a = LXUser::userWithString_("John Smith/Sales/Acme-42"_ns);
    // Same name, another record: another user, so a delta to it is posted.
    EXPECT_FALSE(a->isEqual_(LXUser::userWithString_("John Smith/Sales/Acme-43"_ns)));
    EXPECT_FALSE(a->isEqual_(LXUser::userWithString_("John Smith/Sales/Acne-42"_ns)));
    EXPECT_FALSE(a->isEqual_("John Smith/Sales/Acme-42"_ns));
    EXPECT_FALSE(a->isEqual_(nullptr));
    EXPECT_TRUE(LXPool::poolWithName_("Rk2pWn"_ns)->isEqual_(LXPool::poolWithName_(ns("Rk2pWn"))));
    EXPECT_FALSE(LXPool::poolWithName_("Rk2pWn"_ns)->isEqual_(LXPool::poolWithName_("other"_ns)));
}

TEST_F(DeltasTest, DescriptionAndFields) {
    LXDelta* d = delta("John Smith/Sales/Acme-1", NSMutableDictionary::dictionary());
    EXPECT_EQ(d->addressee(), nullptr);
    EXPECT_EQ(text(d->description()),
              "(Rk2pWn) John Smith/Sales/Acme-1 -> (null) (NSMutableDictionary)");
    d->setAddressee_(LXUser::userWithString_("Jane Doe/R&D/Acme-2"_ns));
    EXPECT_EQ(text(d->description()),
              "(Rk2pWn) John Smith/Sales/Acme-1 -> Jane Doe/R&D/Acme-2 (NSMutableDictionary)");
    NSArray* keys = d->attributeKeys();
    ASSERT_EQ(keys->count(), 4u);
    EXPECT_EQ(text(static_cast<NSString*>(keys->objectAtIndex_(0))), "pool");
    EXPECT_EQ(text(static_cast<NSString*>(keys->objectAtIndex_(3))), "contents");
    // Found by name, as archives and containers find them.
    for (const char* name :
         {"LXDelta", "LXPool", "LXUser", "LXDeltaRepository", "LXSocket", "LXTransceiver"})
        EXPECT_NE(NSClassFromCString(name), nullptr) << name;
}

TEST_F(DeltasTest, ArchiveBodies) {
    // LXPool: its name, nothing of the delegate.
    LXPool* pool1 = LXPool::poolWithName_(ns("P"));
    pool1->setDelegate_(NSMutableArray::array());
    EXPECT_EQ(archiveOf(pool1), std::string("\x07\0\0\0LXPool\0"
                                            "\x09\0\0\0NSString\0"
                                            "\x02\0\0\0P\0",
                                            30));
    // LXUser: the five fields as strings, in field order.
    std::string user = archiveOf(LXUser::userWithString_(ns("A B/C/D-E")));
    std::string expected = std::string("\x07\0\0\0LXUser\0", 11);
    for (const char* f : {"A", "B", "C", "D", "E"})
        expected += std::string("\x09\0\0\0NSString\0\x02\0\0\0", 17) + f + std::string(1, '\0');
    EXPECT_EQ(user, expected);

    LXDelta* d = delta("John Smith/Sales/Acme-1",
                       NSDictionary::dictionaryWithObjectsAndKeys_("set"_ns, "action"_ns, nullptr));
    d->setAddressee_(LXUser::userWithString_("Jane Doe/R&D/Acme-2-3"_ns));
    auto* back = static_cast<LXDelta*>(decode(archiveOf(d)));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(text(back->description()), text(d->description()));
    EXPECT_TRUE(back->addressee()->isEqual_(d->addressee()));
    EXPECT_TRUE(back->pool()->isEqual_(d->pool()));
    EXPECT_EQ(back->pool()->delegate(), nullptr);
}

TEST_F(DeltasTest, UnaddressedDeltaKeepsTheArchiveAligned) {
    // A nil addressee travels as the null and comes back nil; what follows
    // in the same archive still reads.
    NSMutableArray* pair = NSMutableArray::array();
    pair->addObject_(delta("John Smith/Sales/Acme-1", ns("x")));
    pair->addObject_(ns("after"));
    auto* back = static_cast<NSArray*>(decode(archiveOf(pair)));
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->count(), 2u);
    EXPECT_EQ(static_cast<LXDelta*>(back->objectAtIndex_(0))->addressee(), nullptr);
    EXPECT_EQ(text(static_cast<NSString*>(back->objectAtIndex_(1))), "after");
}

TEST_F(DeltasTest, HostileArchivesDecodeToNil) {
    // A delta whose pool is a string, and a user whose id is a number: the
    // readers would take one class for another.
    std::string badPool = std::string("\x08\0\0\0LXDelta\0", 12) + archiveOf(ns("Rk2pWn")) +
                          archiveOf(LXUser::userWithString_("A B/C/D-1"_ns)) +
                          archiveOf(LXUser::userWithString_("E F/G/H-2"_ns)) + archiveOf(ns("x"));
    std::string badUser = std::string("\x07\0\0\0LXUser\0", 11);
    for (int i = 0; i < 4; i++) badUser += archiveOf(ns("a"));
    badUser += archiveOf(NSNumber::numberWithInt_(5));
    std::string out = vt_test::logOf([&] {
        EXPECT_EQ(decode(badPool), nullptr);
        EXPECT_EQ(decode(badUser), nullptr);
    });
    EXPECT_NE(out.find("NSUnarchiver: delta whose pool or users are of another class at byte"),
              std::string::npos)
            << out;
    EXPECT_NE(out.find("NSUnarchiver: user field that is not a string at byte"), std::string::npos)
            << out;
}

TEST_F(DeltasTest, PostingStoresForOthersOnly) {
    LXDeltaRepository* store = LXTransceiver::defaultTransceiver()->deltaRepository();
    uint32_t before = store->count();
    LXDelta* d = delta("John Smith/Sales/Acme-1", ns("x"));
    EXPECT_EQ(vt_test::logOf(
                      [&] { d->postTo_(LXUser::userWithString_("John Smith/Sales/Acme-1"_ns)); }),
              "cannot post delta to the same user as sender\n");
    EXPECT_EQ(store->count(), before);
    EXPECT_EQ(d->addressee(), nullptr);
    // The same name with another record id is another user.
    LXUser* other = LXUser::userWithString_("John Smith/Sales/Acme-2"_ns);
    d->postTo_(other);
    EXPECT_EQ(store->count(), before + 1);
    EXPECT_EQ(d->addressee(), other);
}

TEST_F(DeltasTest, RepositoryOrderIsTheTextOrderOfIds) {
    ScopedWorkDir dir;
    LXDeltaRepository* store = LXDeltaRepository::alloc()->init();
    EXPECT_EQ(store->count(), 0u);
    EXPECT_EQ(store->firstDelta(), nullptr);
    {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        std::vector<LXDelta*> early;
        for (int i = 1; i <= 11; i++) {
            LXDelta* d = delta("John Smith/Sales/Acme-1", ns("delta " + std::to_string(i)));
            d->setAddressee_(LXUser::userWithString_("Jane Doe/R&D/Acme-2"_ns));
            store->addDelta_(d);
            if (i <= 8) early.push_back(d);
        }
        for (LXDelta* d : early) store->removeDelta_(d);
        inner->release();
    }
    // Ids 9, 10 and 11 are left: "10" sorts first.
    EXPECT_EQ(store->count(), 3u);
    {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        LXDelta* first = store->firstDelta();
        ASSERT_NE(first, nullptr);
        EXPECT_EQ(text(static_cast<NSString*>(first->contents())), "delta 10");
        store->removeDelta_(first);
        EXPECT_EQ(text(static_cast<NSString*>(store->firstDelta()->contents())), "delta 11");
        inner->release();
    }
    store->release();
}

TEST_F(DeltasTest, RepositorySurvivesARestart) {
    ScopedWorkDir dir;
    {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        LXDeltaRepository* store = LXDeltaRepository::alloc()->init();
        for (const char* word : {"one", "two"}) {
            LXDelta* d = delta("John Smith/Sales/Acme-1", ns(word));
            d->setAddressee_(LXUser::userWithString_("Jane Doe/R&D/Acme-2-b"_ns));
            store->addDelta_(d);
        }
        inner->release();
        store->release();
    }
    {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        LXDeltaRepository* store = LXDeltaRepository::alloc()->init();
        EXPECT_EQ(store->count(), 2u);
        LXDelta* first = store->firstDelta();
        ASSERT_NE(first, nullptr);
        EXPECT_EQ(text(first->description()),
                  "(Rk2pWn) John Smith/Sales/Acme-1 -> Jane Doe/R&D/Acme-2-b (NSString)");
        EXPECT_EQ(text(static_cast<NSString*>(first->contents())), "one");
        store->removeDelta_(first);
        EXPECT_EQ(store->count(), 1u);
        inner->release();
        store->release();
    }
    LXDeltaRepository* store = LXDeltaRepository::alloc()->init();
    EXPECT_EQ(store->count(), 1u);
    EXPECT_EQ(text(static_cast<NSString*>(store->firstDelta()->contents())), "two");
    store->release();
}

}  // namespace
