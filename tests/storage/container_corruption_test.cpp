// Damaged files: copies of a container of a few dozen records with random
// bytes changed in the index or the data file. Whatever the damage, reading
// never crashes or hangs, `container check` and `container dump` give the
// same verdict, and a store never lands on a record that was readable
// before it (a damaged index refuses the store instead).
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>

#include "foundation/Foundation.h"
#include "storage/LXContainer.h"
#include "storage/LXManagedObject.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TestSupport.h"

#ifndef VANTOR_ADMIN_PATH
#error "the build passes the path of vantor-admin as VANTOR_ADMIN_PATH"
#endif

namespace {

using vt_test::readFile;
using vt_test::writeFile;

// The fixed start of the random sequence that picks the damage.
constexpr uint32_t kDamageSequence = 20261123;
constexpr int kRecords = 36;

NSString* ns(const std::string& text) { return NSString::stringWithUTF8String_(text.c_str()); }

class ContainerCorruption : public testing::Test {
protected:
    void SetUp() override {
        pool = NSAutoreleasePool::alloc()->init();
        dir = vt_test::makeTempDir("vt-corruption");
        ASSERT_FALSE(dir.empty());
        // Records of a few fields each; some stored again and some removed,
        // so that the data file has holes and stale blocks.
        std::string stem = dir + "/pristine";
        LXContainer* box = LXContainer::alloc()->initWithName_(ns(stem));
        std::vector<NSMutableDictionary*> records;
        for (int i = 0; i < kRecords; i++) {
            NSMutableDictionary* record = NSMutableDictionary::dictionaryWithCapacity_(1 + i % 4);
            record->setObject_forKey_(ns("name " + std::to_string(i)), ns("name"));
            record->setObject_forKey_(NSNumber::numberWithInt_(i * 7), ns("n"));
            if (i % 3 == 0)
                record->setObject_forKey_(NSArray::arrayWithObjects_(ns("a"), ns("b"), nullptr),
                                          ns("tags"));
            ASSERT_EQ(box->set_(record), i + 1);
            records.push_back(record);
        }
        for (int i = 0; i < kRecords; i += 5) {
            records[i]->setObject_forKey_(ns("changed"), ns("name"));
            ASSERT_EQ(box->set_(records[i]), i + 1);
        }
        for (int i = 2; i < kRecords; i += 9) box->delete_(records[i]);
        // The copies are of the files at rest: the journal written into the
        // index (the records, alive in the pool, still hold the container).
        ASSERT_TRUE(box->checkpoint());
        box->release();
        // The truth that damage hides: which ids are stored, and where.
        LXContainer* reopened = LXContainer::alloc()->initWithName_(ns(stem));
        auto* table = static_cast<LXManagedObject*>(reopened->valueForKey_(ns("index")));
        NSArray* ids = reopened->allIds();
        for (uint32_t i = 0; i < ids->count(); i++) {
            NSString* id = static_cast<NSString*>(ids->objectAtIndex_(i));
            auto number = [&](const char* level) {
                NSString* path = ns(std::string("objects.") + level + "." + id->UTF8String());
                return static_cast<NSNumber*>(table->objectForKeyPath_(path))->intValue();
            };
            blocks[id->intValue()] = {number("pos"), number("length")};
        }
        reopened->release();
        ASSERT_EQ(blocks.size(), static_cast<size_t>(kRecords - 4));
        index = readFile(stem + ".vci");
        data = readFile(stem + ".vcd");
        ASSERT_FALSE(index.empty());
        ASSERT_FALSE(data.empty());
    }
    void TearDown() override {
        pool->release();
        vt_test::removeTree(dir);
    }

    // A copy of the container with `count` random bytes of one file changed.
    std::string damagedCopy(std::mt19937* random, bool inIndex, int count) {
        std::string vci = index;
        std::string vcd = data;
        std::string& target = inIndex ? vci : vcd;
        for (int i = 0; i < count; i++) {
            size_t at = (*random)() % target.size();
            target[at] = static_cast<char>(target[at] ^ (1 + (*random)() % 255));
        }
        std::string stem = dir + "/copy";
        writeFile(stem + ".vci", vci);
        writeFile(stem + ".vcd", vcd);
        return stem;
    }

    // The archive of every record that reads back, by id, through the
    // object layer as the client reads them. Empty for a store that
    // refuses to open.
    std::map<int, std::string> readable(const std::string& stem) {
        std::map<int, std::string> found;
        vt_test::logOf([&] {
            LXContainer* box = LXContainer::alloc()->initWithName_(ns(stem));
            NSArray* ids = box->allIds();
            for (uint32_t i = 0; i < ids->count(); i++) {
                int id = static_cast<NSString*>(ids->objectAtIndex_(i))->intValue();
                LXManagedObject* managed = box->objectWithId_(id);
                auto* record = static_cast<NSMutableDictionary*>(
                        box->queryById_class_(id, NSMutableDictionary::classObject()));
                // Walking the rebuilt dictionary is what crashed on a
                // record whose count disagreed with its buckets.
                if (managed && record && record->allKeys()->count() == record->count()) {
                    found[id] = vt_test::archiveBytes(managed);
                }
            }
            box->release();
        });
        return found;
    }

    vt_test::ProgramResult admin(const std::string& arguments, const std::string& input = "") {
        // Bounded: a hang ends as status 124.
        return vt_test::runProgram(
                "timeout 60 " + vt_test::quoteShell(VANTOR_ADMIN_PATH) + " " + arguments, input);
    }

    // A store into the copy: refused when the copy does not open cleanly.
    // A copy that opens lists every stored id (a damaged index that lost
    // some would give their blocks to new objects); no record readable
    // before the store changes; and while the index is intact, no byte of
    // any stored block changes.
    void storeLeavesRecords(const std::string& stem, bool throughProgram, bool indexDamaged) {
        std::string vci = readFile(stem + ".vci");
        std::string vcd = readFile(stem + ".vcd");
        bool damaged = false;
        std::map<int, bool> listed;
        vt_test::logOf([&] {
            LXContainer* box = LXContainer::alloc()->initWithName_(ns(stem));
            damaged = box->isDamaged();
            NSArray* ids = box->allIds();
            for (uint32_t i = 0; i < ids->count(); i++)
                listed[static_cast<NSString*>(ids->objectAtIndex_(i))->intValue()] = true;
            box->release();
        });
        if (!damaged) {
            for (const auto& entry : blocks)
                EXPECT_TRUE(listed.count(entry.first)) << "id " << entry.first << " is not listed";
            EXPECT_EQ(listed.size(), blocks.size());
        }
        std::map<int, std::string> before = readable(stem);
        bool stored = false;
        if (throughProgram) {
            vt_test::ProgramResult store =
                    admin("container store " + vt_test::quoteShell(stem), R"({"k":"new"})");
            ASSERT_TRUE(store.status == 0 || store.status == 1)
                    << "store: status " << store.status << store.err;
            stored = store.status == 0;
        } else {
            vt_test::logOf([&] {
                LXContainer* box = LXContainer::alloc()->initWithName_(ns(stem));
                NSMutableDictionary* record = NSMutableDictionary::dictionary();
                record->setObject_forKey_(ns(std::string(300, 'x')), ns("k"));
                stored = box->set_(record) > 0;
                box->release();
            });
        }
        if (damaged) {
            EXPECT_FALSE(stored) << "a damaged store took a change";
            EXPECT_EQ(readFile(stem + ".vci"), vci);
            EXPECT_EQ(readFile(stem + ".vcd"), vcd);
            return;
        }
        std::map<int, std::string> after = readable(stem);
        for (const auto& [id, bytes] : before) {
            auto it = after.find(id);
            ASSERT_NE(it, after.end()) << "record " << id << " was lost by the store";
            EXPECT_EQ(it->second, bytes) << "record " << id << " was written over";
        }
        if (!indexDamaged) {
            std::string written = readFile(stem + ".vcd");
            for (const auto& [id, block] : blocks) {
                EXPECT_EQ(written.substr(block.first, block.second),
                          vcd.substr(block.first, block.second))
                        << "the block of " << id << " was written over";
            }
        }
    }

    NSAutoreleasePool* pool = nullptr;
    std::string dir;
    std::map<int, std::pair<int, int>> blocks;  // id -> offset, length
    std::string index;
    std::string data;
};

// In process, through LXContainer alone: many damaged copies.
TEST_F(ContainerCorruption, ReadingAndStoringInProcess) {
    std::mt19937 random(kDamageSequence);
    for (int round = 0; round < 600; round++) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        bool inIndex = round % 2 == 0;
        std::string stem = damagedCopy(&random, inIndex, 1 + static_cast<int>(random() % 3));
        storeLeavesRecords(stem, false, inIndex);
        inner->release();
        if (HasFailure()) {
            ADD_FAILURE() << "round " << round;
            return;
        }
    }
}

// Every reading command of vantor-admin and a store, on fewer copies: each
// is a few processes.
TEST_F(ContainerCorruption, AdminCommands) {
    std::mt19937 random(kDamageSequence + 1);
    int agreedFailures = 0;
    for (int round = 0; round < 60; round++) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        bool inIndex = round % 2 == 0;
        std::string stem = damagedCopy(&random, inIndex, 1 + static_cast<int>(random() % 3));
        std::string quoted = vt_test::quoteShell(stem);
        vt_test::ProgramResult dump = admin("container dump " + quoted);
        vt_test::ProgramResult check = admin("container check " + quoted);
        ASSERT_TRUE(dump.status == 0 || dump.status == 1)
                << "round " << round << ": dump status " << dump.status;
        ASSERT_TRUE(check.status == 0 || check.status == 1)
                << "round " << round << ": check status " << check.status;
        EXPECT_EQ(dump.status, check.status)
                << "round " << round << ": dump says " << dump.err << "check says " << check.out;
        if (check.status == 1) agreedFailures++;
        storeLeavesRecords(stem, true, inIndex);
        inner->release();
        if (HasFailure()) return;
    }
    EXPECT_GT(agreedFailures, 10) << "the damage should be found in many copies";
}

// The fault of a sign flipped in a record's stored count: a dictionary of
// 2^32 - N entries rebuilt from N buckets.
TEST_F(ContainerCorruption, NegativeCountInARecord) {
    std::string stem = dir + "/pristine";
    vt_test::ProgramResult first = admin("container check " + vt_test::quoteShell(stem));
    ASSERT_EQ(first.status, 0) << first.out;
    // Record 2 stored again with the sign of its count flipped, as one bit
    // of its block would flip it.
    {
        LXContainer* box = LXContainer::containerWithName_(ns(stem));
        LXManagedObject* record = box->objectWithId_(2);
        ASSERT_NE(record, nullptr);
        double count = static_cast<NSNumber*>(record->objectForKey_(ns("count")))->doubleValue();
        record->setObject_forKey_(NSNumber::numberWithDouble_(-count), ns("count"));
        ASSERT_EQ(box->store_(record), 2);
    }
    vt_test::ProgramResult dump = admin("container dump " + vt_test::quoteShell(stem));
    vt_test::ProgramResult check = admin("container check " + vt_test::quoteShell(stem));
    EXPECT_EQ(dump.status, 1);
    EXPECT_NE(dump.err.find("makes no NSMutableDictionary: the dictionary's count is not its "
                            "number of entries"),
              std::string::npos)
            << dump.err;
    EXPECT_EQ(check.status, 1);
    EXPECT_NE(check.out.find("damaged: object "), std::string::npos) << check.out;
    std::string log = vt_test::logOf([&] {
        LXContainer* box = LXContainer::containerWithName_(ns(stem));
        int broken = 0;
        NSArray* ids = box->allIds();
        for (uint32_t i = 0; i < ids->count(); i++) {
            int id = static_cast<NSString*>(ids->objectAtIndex_(i))->intValue();
            if (!box->queryById_class_(id, NSMutableDictionary::classObject())) broken++;
        }
        EXPECT_EQ(broken, 1);
        EXPECT_EQ(box->query_(NSMutableDictionary::classObject())->count(), ids->count() - 1);
    });
    EXPECT_NE(log.find("count is not its number of entries"), std::string::npos) << log;
}

}  // namespace
