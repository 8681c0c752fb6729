// Container batches: the index file is written once, at the end; nothing of
// a batch is visible to another opener before that; and the blocks that the
// index on disk still names are never overwritten inside a batch, so a stop
// inside one leaves the container exactly as it was before it.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "foundation/Foundation.h"
#include "storage/LXContainer.h"
#include "storage/LXManagedObject.h"
#include "tests/support/RunProgram.h"

namespace {

NSString* ns(const std::string& text) { return NSString::stringWithUTF8String_(text.c_str()); }

LXManagedObject* object(const std::string& value) {
    LXManagedObject* o = LXManagedObject::managedObject();
    o->setObject_forKeyPath_(ns(value), "value"_ns);
    return o;
}

std::string valueOf(LXContainer* container, int identifier) {
    LXManagedObject* o = container->objectWithId_(identifier);
    NSObject* value = o ? o->objectForKeyPath_("value"_ns) : nullptr;
    return value ? static_cast<NSString*>(value)->UTF8String() : "<none>";
}

// The offset of the first free area.
int firstFree(LXContainer* container) {
    auto* pair = static_cast<NSArray*>(container->freeBlocks()->objectAtIndex_(0));
    return static_cast<NSNumber*>(pair->objectAtIndex_(0))->intValue();
}

// The offsets of the free areas, the open end last.
std::string freeOffsets(LXContainer* container) {
    std::string out;
    NSMutableArray* areas = container->freeBlocks();
    for (uint32_t i = 0; i < areas->count(); i++) {
        auto* pair = static_cast<NSArray*>(areas->objectAtIndex_(i));
        out += std::to_string(static_cast<NSNumber*>(pair->objectAtIndex_(0))->intValue()) + " ";
    }
    return out;
}

class ContainerBatchTest : public ::testing::Test {
protected:
    void SetUp() override {
        pool = NSAutoreleasePool::alloc()->init();
        dir = vt_test::makeTempDir("vt-batch");
        stem = dir + "/box";
    }
    void TearDown() override {
        LXContainer::failWriteForTesting(0);
        pool->release();
        vt_test::removeTree(dir);
    }
    LXContainer* open() { return LXContainer::containerWithName_(ns(stem)); }
    std::string indexBytes() { return vt_test::readFile(stem + ".vci"); }

    NSAutoreleasePool* pool = nullptr;
    std::string dir;
    std::string stem;
};

TEST_F(ContainerBatchTest, IndexIsWrittenOnceAtTheEnd) {
    LXContainer* box = open();
    ASSERT_EQ(box->store_type_(object("before"), "Thing"_ns), 1);
    std::string committed = indexBytes();

    box->beginBatch();
    EXPECT_TRUE(box->inBatch());
    for (int i = 0; i < 50; i++) ASSERT_EQ(box->store_type_(object("v" + std::to_string(i)), "Thing"_ns), i + 2);
    LXManagedObject* first = box->objectWithId_(1);
    first->setObject_forKeyPath_("changed"_ns, "value"_ns);
    ASSERT_EQ(box->store_(first), 1);
    // This process reads the batch at once; the file and other openers don't.
    EXPECT_EQ(valueOf(box, 51), "v49");
    EXPECT_EQ(valueOf(box, 1), "changed");
    EXPECT_EQ(indexBytes(), committed);
    LXContainer* other = open();
    EXPECT_EQ(other->allIds()->count(), 1u);
    EXPECT_EQ(valueOf(other, 1), "before");

    EXPECT_TRUE(box->endBatch());
    EXPECT_FALSE(box->inBatch());
    EXPECT_NE(indexBytes(), committed);
    LXContainer* reopened = open();
    EXPECT_EQ(reopened->allIdsForType_("Thing"_ns)->count(), 51u);
    EXPECT_EQ(valueOf(reopened, 1), "changed");
    EXPECT_EQ(valueOf(reopened, 26), "v24");
    EXPECT_EQ(reopened->maxId(), 51);
}

// A new version and a removal inside a batch free blocks that the index on
// disk still names: until endBatch they are not handed out again, so a
// stop (here: another opener, which reads exactly what a restart would)
// finds the old objects intact.
TEST_F(ContainerBatchTest, FreedBlocksWaitForTheEndOfTheBatch) {
    LXContainer* box = open();
    ASSERT_EQ(box->store_(object("aaaa")), 1);  // at 0
    ASSERT_EQ(box->store_(object("bbbb")), 2);  // behind it
    int end = firstFree(box);  // the end of block 2

    box->beginBatch();
    LXManagedObject* a = box->objectWithId_(1);
    a->setObject_forKeyPath_("AAAA"_ns, "value"_ns);
    ASSERT_EQ(box->store_(a), 1);
    ASSERT_TRUE(box->remove_(box->objectWithId_(2)));
    ASSERT_EQ(box->store_(object("cccc")), 3);
    ASSERT_EQ(box->store_(object("dddd")), 4);
    EXPECT_GT(firstFree(box), end);  // all four went behind the old blocks

    LXContainer* afterStop = open();
    EXPECT_EQ(valueOf(afterStop, 1), "aaaa");
    EXPECT_EQ(valueOf(afterStop, 2), "bbbb");
    EXPECT_EQ(afterStop->allIds()->count(), 2u);

    ASSERT_TRUE(box->endBatch());
    // Now the old blocks of 1 and 2 are one free area at 0.
    EXPECT_EQ(firstFree(box), 0);
    LXContainer* reopened = open();
    EXPECT_EQ(valueOf(reopened, 1), "AAAA");
    EXPECT_EQ(valueOf(reopened, 3), "cccc");
    EXPECT_EQ(valueOf(reopened, 4), "dddd");
    EXPECT_EQ(reopened->allIds()->count(), 3u);
    EXPECT_EQ(freeOffsets(reopened), freeOffsets(box));
}

TEST_F(ContainerBatchTest, NestingMisuseAndAFailedEnd) {
    LXContainer* box = open();
    EXPECT_FALSE(box->endBatch());  // no batch
    std::string empty = indexBytes();

    box->beginBatch();
    box->beginBatch();
    ASSERT_EQ(box->store_(object("x")), 1);
    EXPECT_TRUE(box->endBatch());  // inner: nothing written yet
    EXPECT_EQ(indexBytes(), empty);
    LXContainer::failWriteForTesting(1);
    EXPECT_FALSE(box->endBatch());  // the index write fails
    EXPECT_EQ(indexBytes(), empty);
    EXPECT_EQ(open()->allIds()->count(), 0u);

    // The changes stay in memory; the next index write carries them.
    box->beginBatch();
    EXPECT_TRUE(box->endBatch());
    LXContainer* reopened = open();
    EXPECT_EQ(valueOf(reopened, 1), "x");
}

}  // namespace
