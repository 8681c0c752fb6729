// The container journal: a container that journals its changes leaves, at
// each checkpoint, the same files as one that writes its index after every
// change; a torn or damaged journal tail is ignored with a log line and cut
// off before the next append; compaction keeps every object, also when it
// stops at any of its steps.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "foundation/Foundation.h"
#include "storage/LXChecksum.h"
#include "storage/LXContainer.h"
#include "storage/LXManagedObject.h"
#include "tests/storage/container_values.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TestSupport.h"

namespace {

using container_values::ns;
using container_values::object;
using container_values::valueOf;

// Every stored object's value by id.
std::map<int, std::string> contents(LXContainer* container) {
    std::map<int, std::string> out;
    NSArray* ids = container->allIds();
    for (uint32_t i = 0; i < ids->count(); i++) {
        int id = static_cast<NSString*>(ids->objectAtIndex_(i))->intValue();
        out[id] = valueOf(container, id);
    }
    return out;
}

std::string freeList(LXContainer* box) {
    std::string out;
    NSMutableArray* areas = box->freeBlocks();
    for (uint32_t i = 0; i < areas->count(); i++) {
        auto* pair = static_cast<NSArray*>(areas->objectAtIndex_(i));
        out += "(" + std::to_string(static_cast<NSNumber*>(pair->objectAtIndex_(0))->intValue()) +
               "," + std::to_string(static_cast<NSNumber*>(pair->objectAtIndex_(1))->intValue()) +
               ")";
    }
    return out;
}

class ContainerJournal : public ::testing::Test {
protected:
    void SetUp() override {
        pool = NSAutoreleasePool::alloc()->init();
        dir = vt_test::makeTempDir("vt-journal");
    }
    void TearDown() override {
        LXContainer::failWriteForTesting(0);
        pool->release();
        vt_test::removeTree(dir);
    }
    LXContainer* open(const std::string& stem) { return LXContainer::containerWithName_(ns(stem)); }

    NSAutoreleasePool* pool = nullptr;
    std::string dir;
};

// Random stores, new versions and removes, the same on two containers: one
// journals, the other is checkpointed after every change (the index
// rewritten each time). At each checkpoint of the first both pairs of files
// are byte for byte the same; between checkpoints, another opener of the
// first (which replays its journal) sees what the second holds. Enough
// changes for the journal to pass its floor and checkpoint by itself; the
// data stays too small for compaction.
TEST_F(ContainerJournal, CheckpointsGiveTheFilesOfAnIndexWrittenAfterEveryChange) {
    for (uint32_t sequence : {7u, 11u, 2026u}) {
        SCOPED_TRACE("sequence " + std::to_string(sequence));
        std::string journaled = dir + "/j" + std::to_string(sequence);
        std::string reference = dir + "/r" + std::to_string(sequence);
        LXContainer* box = open(journaled);
        LXContainer* ref = open(reference);
        std::mt19937 random(sequence);
        int checkpoints = 0;
        int automatic = 0;
        for (int step = 0; step < 3000; step++) {
            NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
            NSArray* ids = ref->allIds();
            uint32_t count = ids->count();
            uint32_t dice = random() % 10;
            std::string value(1 + random() % 120, static_cast<char>('a' + step % 26));
            if (count < 5 || (count < 60 && dice < 4)) {
                // Long type names make long entries: the journal passes its
                // floor sooner.
                NSString* type = random() % 3 == 0 ? nullptr
                                                   : (dice % 2 ? "OddRecordsOfTheJournalTest"_ns
                                                               : "EvenRecordsOfTheJournalTest"_ns);
                int a = box->store_type_(object(value), type);
                int b = ref->store_type_(object(value), type);
                ASSERT_EQ(a, b);
                ASSERT_GT(a, 0);
            } else {
                int id = static_cast<NSString*>(ids->objectAtIndex_(random() % count))->intValue();
                LXManagedObject* mine = box->objectWithId_(id);
                LXManagedObject* theirs = ref->objectWithId_(id);
                ASSERT_NE(mine, nullptr) << "id " << id;
                if (dice < 8) {
                    mine->setObject_forKeyPath_(ns(value), "value"_ns);
                    theirs->setObject_forKeyPath_(ns(value), "value"_ns);
                    ASSERT_EQ(box->store_(mine), id);
                    ASSERT_EQ(ref->store_(theirs), id);
                } else {
                    ASSERT_TRUE(box->remove_(mine));
                    ASSERT_TRUE(ref->remove_(theirs));
                }
            }
            int64_t before = box->journalLength();
            ASSERT_TRUE(ref->checkpoint());
            if (before == 0 && step > 0) automatic++;
            if (random() % 50 == 0 || step == 2999) {
                LXContainer* reader = LXContainer::alloc()->initWithName_(ns(journaled));
                ASSERT_FALSE(reader->isDamaged());
                EXPECT_EQ(contents(reader), contents(ref)) << "step " << step;
                EXPECT_EQ(freeList(reader), freeList(ref)) << "step " << step;
                EXPECT_EQ(reader->maxId(), ref->maxId());
                EXPECT_EQ(reader->size(), ref->size());
                reader->release();
            }
            // Checkpoints at random early on, then none until the journal
            // makes its own.
            if ((step < 800 && random() % 100 == 0) || step == 2999) {
                ASSERT_TRUE(box->checkpoint());
                checkpoints++;
                EXPECT_EQ(box->journalLength(), 0);
                EXPECT_FALSE(vt_test::readFile(journaled + ".vcj").size()) << "the journal is gone";
                ASSERT_EQ(vt_test::readFile(journaled + ".vci"),
                          vt_test::readFile(reference + ".vci"))
                        << "step " << step;
                ASSERT_EQ(vt_test::readFile(journaled + ".vcd"),
                          vt_test::readFile(reference + ".vcd"))
                        << "step " << step;
            }
            inner->release();
        }
        EXPECT_GT(checkpoints, 3);
        EXPECT_GE(automatic, 1) << "the journal should pass its floor";
        EXPECT_LT(ref->size(), 64 * 1024) << "compaction would part the two";
    }
}

// Writes three entries, then damages the journal's last entry in each way
// a stop or a bad disk leaves it.
TEST_F(ContainerJournal, TornOrDamagedTailIsIgnored) {
    std::string stem = dir + "/torn";
    std::string journal = stem + ".vcj";
    std::string journalBefore;
    std::string full;
    {
        LXContainer* box = LXContainer::alloc()->initWithName_(ns(stem));
        ASSERT_EQ(box->store_type_(object("one"), "T"_ns), 1);
        ASSERT_EQ(box->store_type_(object("two"), "T"_ns), 2);
        journalBefore = vt_test::readFile(journal);
        ASSERT_EQ(box->store_type_(object("three"), "T"_ns), 3);
        full = vt_test::readFile(journal);
        // The files as a killed process leaves them: the release writes the
        // journal into the index, so the index from before goes back.
        std::string index = vt_test::readFile(stem + ".vci");
        box->release();
        vt_test::writeFile(stem + ".vci", index);
    }
    // Each case starts from these files: the cases before wrote blocks.
    std::string index = vt_test::readFile(stem + ".vci");
    std::string data = vt_test::readFile(stem + ".vcd");
    ASSERT_GT(full.size(), journalBefore.size());
    size_t last = journalBefore.size();
    struct Case {
        const char* name;
        std::string bytes;
    };
    std::string flipped = full;
    flipped[last + 12] =
            static_cast<char>(flipped[last + 12] ^ 0x40);  // the payload: checksum fails
    std::string badLength = full;
    badLength[last + 2] = 0x7F;  // a length beyond the end
    std::vector<Case> cases = {
            {"cut in the length", full.substr(0, last + 3)},
            {"cut in the payload", full.substr(0, full.size() - 1)},
            {"a flipped bit", flipped},
            {"a length beyond the end", badLength},
            {"zeros appended", full + std::string(40, '\0')},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        vt_test::writeFile(stem + ".vci", index);
        vt_test::writeFile(stem + ".vcd", data);
        vt_test::writeFile(journal, c.bytes);
        LXContainer* box = nullptr;
        std::string log = vt_test::logOf([&] { box = open(stem); });
        ASSERT_FALSE(box->isDamaged()) << log;
        size_t tail = c.bytes.size() - (c.bytes.size() > full.size() ? full.size() : last);
        size_t at = c.bytes.size() > full.size() ? full.size() : last;
        EXPECT_EQ(log, "LXContainer " + stem + ": ignoring a damaged journal tail of " +
                               std::to_string(tail) + " bytes at offset " + std::to_string(at) +
                               "\n");
        std::map<int, std::string> expected = {{1, "one"}, {2, "two"}};
        if (c.bytes.size() > full.size()) expected[3] = "three";
        EXPECT_EQ(contents(box), expected);
        // The next append cuts the tail off first, so its entry replays.
        ASSERT_EQ(box->store_type_(object("four"), "T"_ns), static_cast<int>(expected.size()) + 1);
        LXContainer* reader = nullptr;
        log = vt_test::logOf([&] { reader = open(stem); });
        EXPECT_EQ(log, "");
        EXPECT_EQ(valueOf(reader, static_cast<int>(expected.size()) + 1), "four");
        EXPECT_EQ(reader->allIdsForType_("T"_ns)->count(), expected.size() + 1);
        EXPECT_EQ(freeList(reader), freeList(box));
    }

    // A journal without its header is ignored as a whole.
    vt_test::writeFile(stem + ".vci", index);
    vt_test::writeFile(journal, "VC");
    LXContainer* box = nullptr;
    std::string log = vt_test::logOf([&] { box = open(stem); });
    EXPECT_EQ(log, "LXContainer " + stem + ": ignoring a journal of 2 bytes without its header\n");
    EXPECT_EQ(box->allIds()->count(), 0u);
}

// Synchronous appends write the same journal, forced to the disk.
TEST_F(ContainerJournal, SynchronousAppendsWriteTheSameJournal) {
    LXContainer* plain = open(dir + "/plain");
    LXContainer* synced = open(dir + "/synced");
    synced->setSynchronous_(true);
    for (LXContainer* box : {plain, synced}) {
        ASSERT_EQ(box->store_type_(object("one"), "T"_ns), 1);
        ASSERT_EQ(box->store_(object("two")), 2);
        ASSERT_TRUE(box->remove_(box->objectWithId_(1)));
    }
    EXPECT_EQ(vt_test::readFile(dir + "/synced.vcj"), vt_test::readFile(dir + "/plain.vcj"));
    EXPECT_EQ(contents(open(dir + "/synced")), (std::map<int, std::string>{{2, "two"}}));
}

std::string le32(uint32_t value) {
    std::string out;
    for (int i = 0; i < 4; i++) out.push_back(static_cast<char>(value >> (8 * i)));
    return out;
}

// An entry that replays into an index the checks refuse (a block placed on
// the bytes of another, with a right checksum) makes the store damaged, as
// such an index would.
TEST_F(ContainerJournal, IndexChecksApplyAfterReplay) {
    std::string stem = dir + "/checked";
    LXContainer* box = open(stem);
    ASSERT_EQ(box->store_(object("aaaa")), 1);
    ASSERT_EQ(box->store_(object("bbbb")), 2);
    // Store, new, id 3, offset 0, length 10, no type.
    std::string payload = std::string("\x01\x01", 2) + le32(3) + le32(0) + le32(10) + le32(0);
    std::string entry = le32(static_cast<uint32_t>(payload.size())) +
                        le32(LXCrc32(payload.data(), payload.size())) + payload;
    vt_test::writeFile(stem + ".vcj", vt_test::readFile(stem + ".vcj") + entry);
    LXContainer* damaged = nullptr;
    std::string log = vt_test::logOf([&] { damaged = open(stem); });
    EXPECT_TRUE(damaged->isDamaged());
    EXPECT_EQ(log, "LXContainer " + stem + ": damaged store, left untouched: " + stem +
                           ".vci with " + stem +
                           ".vcj replayed places two blocks on the same bytes at 0\n");
}

// A data file mostly free is compacted at a checkpoint; on demand as well.
// The objects stay, the files are a container that opens, and the data
// file holds no free space.
TEST_F(ContainerJournal, CompactionKeepsEveryObject) {
    std::string stem = dir + "/compact";
    LXContainer* box = open(stem);
    std::map<int, std::string> expected;
    for (int i = 0; i < 200; i++) {
        std::string value(600, static_cast<char>('a' + i % 26));
        int id = box->store_type_(object(value), "T"_ns);
        ASSERT_EQ(id, i + 1);
        expected[id] = value;
    }
    for (int id = 1; id <= 200; id++) {
        if (id % 5 == 0) continue;
        ASSERT_TRUE(box->remove_(box->objectWithId_(id)));
        expected.erase(id);
    }
    int32_t before = box->size();
    EXPECT_EQ(vt_test::logOf([&] { ASSERT_TRUE(box->checkpoint()); }), "")
            << "compaction is silent";
    EXPECT_LT(box->size(), before / 4);
    EXPECT_EQ(static_cast<int64_t>(vt_test::readFile(stem + ".vcd").size()), box->size());
    EXPECT_EQ(freeList(box), "(" + std::to_string(box->size()) + ",2147483647)");
    EXPECT_EQ(contents(box), expected);
    LXContainer* reopened = open(stem);
    EXPECT_EQ(contents(reopened), expected);
    EXPECT_EQ(reopened->allIdsForType_("T"_ns)->count(), 40u);
    EXPECT_EQ(reopened->maxId(), 200);

    // Stored after it, a new object goes behind the last block.
    ASSERT_EQ(box->store_(object("new")), 201);
    ASSERT_TRUE(box->compact());
    EXPECT_EQ(valueOf(open(stem), 201), "new");
}

// A queue as the relay keeps one: new objects stored at the back, the
// oldest removed at the front, the queue growing and draining, so that
// checkpoints come by themselves and find most of the data file free. A checkpoint inside a remove
// or a new version compacts only after the change has let go of its old block: a block freed at its
// place from before the compaction would mark another object's bytes free, and a later store would
// write over them.
TEST_F(ContainerJournal, CompactionInTheMiddleOfAQueueLosesNothing) {
    std::string stem = dir + "/queue";
    LXContainer* box = open(stem);
    std::map<int, std::string> expected;
    int next = 0;
    int compacted = 0;
    for (int round = 0; round < 6000; round++) {
        NSAutoreleasePoolScope scope;
        std::string value(300 + round % 200, static_cast<char>('a' + round % 26));
        int id = box->store_type_(object(value), "T"_ns);
        ASSERT_GT(id, 0);
        expected[id] = value;
        // A new version of one in the middle now and then.
        if (round % 7 == 0 && expected.size() > 2) {
            int middle = std::next(expected.begin(), static_cast<long>(expected.size() / 2))->first;
            LXManagedObject* stored = box->objectWithId_(middle);
            stored->setObject_forKeyPath_(ns(value + "!"), "value"_ns);
            ASSERT_EQ(box->store_(stored), middle);
            expected[middle] = value + "!";
        }
        int32_t before = box->size();
        // The queue grows to hundreds and drains again, as collects come.
        size_t keep = (round / 300) % 2 == 0 ? 400 : 20;
        while (expected.size() > keep) {
            ASSERT_TRUE(box->remove_(box->objectWithId_(expected.begin()->first)));
            expected.erase(expected.begin());
        }
        if (box->size() < before) compacted++;
        if (round % 500 == 0 || box->size() < before) {
            ASSERT_EQ(contents(box), expected) << "round " << round;
        }
        next = id;
    }
    EXPECT_GT(compacted, 0) << "the test needs compactions inside removes";
    EXPECT_EQ(contents(box), expected);
    EXPECT_EQ(contents(open(stem)), expected);
    EXPECT_EQ(box->maxId(), next);
}

// A compaction stopped at each of its steps in turn (a child process that
// ends at the n-th step of writing): every open afterwards finds every
// object, and a leftover of the stopped compaction is finished or ignored.
TEST_F(ContainerJournal, CompactionStoppedAtEachStep) {
    std::string base = dir + "/base";
    std::map<int, std::string> expected;
    {
        LXContainer* box = LXContainer::alloc()->initWithName_(ns(base));
        for (int i = 0; i < 30; i++) {
            std::string value(100 + i, static_cast<char>('a' + i % 26));
            int id = box->store_type_(object(value), "T"_ns);
            if (i % 3) {
                ASSERT_TRUE(box->remove_(box->objectWithId_(id)));
            } else {
                expected[id] = value;
            }
        }
        ASSERT_TRUE(box->checkpoint());
        ASSERT_GT(box->size(), 0);
        // Two entries more, so that the compaction's checkpoint has a
        // journal to remove.
        ASSERT_TRUE(box->remove_(box->objectWithId_(1)));
        expected.erase(1);
        ASSERT_EQ(box->store_type_(object("last"), "T"_ns), 31);
        expected[31] = "last";
        // The files as a killed process leaves them (the release writes
        // the journal into the index).
        vt_test::writeFile(dir + "/keep.vcj", vt_test::readFile(base + ".vcj"));
        vt_test::writeFile(dir + "/keep.vci", vt_test::readFile(base + ".vci"));
        box->release();
    }
    int finished = 0;
    int completedAtOpen = 0;
    for (int step = 1; step <= 14 && finished == 0; step++) {
        SCOPED_TRACE("step " + std::to_string(step));
        std::string stem = dir + "/s" + std::to_string(step);
        vt_test::writeFile(stem + ".vci", vt_test::readFile(dir + "/keep.vci"));
        vt_test::writeFile(stem + ".vcd", vt_test::readFile(base + ".vcd"));
        vt_test::writeFile(stem + ".vcj", vt_test::readFile(dir + "/keep.vcj"));
        fflush(stdout);
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            LXContainer* box = LXContainer::alloc()->initWithName_(ns(stem));
            LXContainer::crashAtWriteForTesting(step, 1000 * step / 15);
            _exit(box->compact() ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status));
        if (WEXITSTATUS(status) == 0) {
            finished++;
        } else {
            ASSERT_EQ(WEXITSTATUS(status), LXContainer::kCrashStatusForTesting);
        }
        std::string log;
        LXContainer* box = nullptr;
        log = vt_test::logOf([&] { box = open(stem); });
        ASSERT_FALSE(box->isDamaged()) << log;
        EXPECT_EQ(contents(box), expected) << log;
        if (log.find("completed a compaction that had stopped") != std::string::npos)
            completedAtOpen++;
        // And it takes changes, which a further open reads.
        ASSERT_EQ(box->store_type_(object("after"), "T"_ns), 32);
        EXPECT_EQ(valueOf(open(stem), 32), "after");
    }
    EXPECT_EQ(finished, 1) << "the last step passed should be one where the compaction completes";
    EXPECT_EQ(completedAtOpen, 2) << "stops between the removal of the index and the last rename";
}

}  // namespace
