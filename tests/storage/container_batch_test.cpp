// Container batches: with the journal they only count their depth. Every
// change inside one is committed as it is made, so another opener (which
// reads what a restart would) sees it at once; endBatch writes no index
// unless a journal write failed inside the batch.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "foundation/Foundation.h"
#include "storage/LXContainer.h"
#include "storage/LXManagedObject.h"
#include "tests/storage/container_values.h"
#include "tests/support/RunProgram.h"

namespace {

using container_values::ns;
using container_values::object;
using container_values::valueOf;

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

TEST_F(ContainerBatchTest, ChangesAreCommittedAsTheyAreMade) {
    LXContainer* box = open();
    ASSERT_EQ(box->store_type_(object("before"), "Thing"_ns), 1);
    ASSERT_TRUE(box->checkpoint());
    std::string committed = indexBytes();

    box->beginBatch();
    EXPECT_TRUE(box->inBatch());
    for (int i = 0; i < 50; i++)
        ASSERT_EQ(box->store_type_(object("v" + std::to_string(i)), "Thing"_ns), i + 2);
    LXManagedObject* first = box->objectWithId_(1);
    first->setObject_forKeyPath_("changed"_ns, "value"_ns);
    ASSERT_EQ(box->store_(first), 1);
    ASSERT_TRUE(box->remove_(box->objectWithId_(2)));
    EXPECT_EQ(indexBytes(), committed) << "the changes are in the journal";
    LXContainer* other = open();
    EXPECT_EQ(other->allIdsForType_("Thing"_ns)->count(), 50u);
    EXPECT_EQ(valueOf(other, 1), "changed");
    EXPECT_EQ(valueOf(other, 51), "v49");
    EXPECT_EQ(valueOf(other, 2), "<none>");
    EXPECT_EQ(freeOffsets(other), freeOffsets(box));

    EXPECT_TRUE(box->endBatch());
    EXPECT_FALSE(box->inBatch());
    EXPECT_EQ(indexBytes(), committed) << "endBatch writes no index";
    EXPECT_EQ(open()->maxId(), 51);
}

// A block freed inside a batch is free at once: the journal entry that
// frees it is on disk before any later block can be written there.
TEST_F(ContainerBatchTest, FreedBlocksAreReusedAtOnce) {
    LXContainer* box = open();
    ASSERT_EQ(box->store_(object("aaaa")), 1);  // at 0
    ASSERT_EQ(box->store_(object("bbbb")), 2);  // behind it
    box->beginBatch();
    ASSERT_TRUE(box->remove_(box->objectWithId_(1)));
    EXPECT_EQ(firstFree(box), 0);
    ASSERT_EQ(box->store_(object("cccc")), 3);
    EXPECT_EQ(valueOf(open(), 3), "cccc");
    EXPECT_EQ(valueOf(open(), 2), "bbbb");
    EXPECT_TRUE(box->endBatch());
}

TEST_F(ContainerBatchTest, NestingMisuseAndAFailedJournalWrite) {
    LXContainer* box = open();
    EXPECT_FALSE(box->endBatch());  // no batch
    std::string empty = indexBytes();

    box->beginBatch();
    box->beginBatch();
    ASSERT_EQ(box->store_(object("x")), 1);
    EXPECT_TRUE(box->endBatch());  // inner
    // The block is written, its journal entry is not.
    LXContainer::failWriteForTesting(2);
    EXPECT_EQ(box->store_(object("y")), -1);
    EXPECT_EQ(indexBytes(), empty);
    EXPECT_EQ(open()->allIds()->count(), 1u);
    // The outermost end writes the whole index, which carries the change.
    EXPECT_TRUE(box->endBatch());
    EXPECT_NE(indexBytes(), empty);
    LXContainer* reopened = open();
    EXPECT_EQ(valueOf(reopened, 1), "x");
    EXPECT_EQ(valueOf(reopened, 2), "y");

    // And when that write fails too, endBatch says so.
    box->beginBatch();
    LXContainer::failWriteForTesting(2);
    EXPECT_EQ(box->store_(object("z")), -1);
    LXContainer::failWriteForTesting(1);
    EXPECT_FALSE(box->endBatch());
    EXPECT_EQ(open()->allIds()->count(), 2u);
    EXPECT_TRUE(box->checkpoint());
    EXPECT_EQ(valueOf(open(), 3), "z");
}

}  // namespace
