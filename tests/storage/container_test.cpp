// Containers: allocation by first fit, ids, type sets, the index and block
// bytes, failed writes, the states a stop or a damaged disk leaves, managed
// objects and the object layer with its mapping.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "foundation/Foundation.h"
#include "foundation/NSSet.h"
#include "storage/LXContainer.h"
#include "storage/LXManagedObject.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestSupport.h"

namespace {

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

NSString* ns(const std::string& text) { return NSString::stringWithUTF8String_(text.c_str()); }

using vt_test::archiveBytes;

// -1 for a missing value, -2 for an object that is no managed object (an
// index file that does not decode).
int intAt(NSObject* object, const char* path) {
    if (!object || !object->isKindOfClass_(LXManagedObject::classObject())) return -2;
    NSObject* value = static_cast<LXManagedObject*>(object)->objectForKeyPath_(ns(path));
    return value && value->isKindOfClass_(NSNumber::classObject())
                   ? static_cast<NSNumber*>(value)->intValue()
                   : -1;
}

// Rewrites the index file of a stem after `edit` has changed it.
void editIndex(const std::string& stem, void (*edit)(LXManagedObject* index)) {
    NSObject* index = NSUnarchiver::unarchiveObjectWithFile_(ns(stem + ".vci"));
    ASSERT_NE(index, nullptr);
    edit(static_cast<LXManagedObject*>(index));
    ASSERT_TRUE(NSArchiver::archiveRootObject_toFile_(index, ns(stem + ".vci")));
}

// Moves the entry of `key` in `level` to `renamed`, as one changed byte
// of its name in the file would.
void renameKey(NSMutableDictionary* level, const char* key, const char* renamed) {
    level->setObject_forKey_(level->objectForKey_(ns(key)), ns(renamed));
    level->removeObjectForKey_(ns(key));
}

class ContainerTest : public ::testing::Test {
protected:
    void SetUp() override {
        pool = NSAutoreleasePool::alloc()->init();
        dir = vt_test::makeTempDir("vt-container");
        stem = dir + "/box";
    }
    void TearDown() override {
        LXContainer::failWriteForTesting(0);
        pool->release();
        vt_test::removeTree(dir);
    }

    LXContainer* open() {
        LXContainer* box = LXContainer::containerWithName_(ns(stem));
        opened.push_back(box);
        return box;
    }
    std::string indexPath() const { return stem + ".vci"; }
    // The index file once every container opened here has written its
    // journal into it: the files at rest.
    std::string indexAtRest() {
        for (LXContainer* box : opened) box->checkpoint();
        return indexPath();
    }
    std::string dataPath() const { return stem + ".vcd"; }

    // A managed object whose block is exactly `length` bytes: a payload
    // string sized against the archive of the same object with an empty one
    // (every id is a number of the same size in the archive).
    LXManagedObject* objectOfLength(int length) {
        LXManagedObject* probe = LXManagedObject::managedObject();
        // Not a constant string: the archive names the actual class.
        probe->setObject_forKeyPath_(ns(""), "p"_ns);
        probe->setObject_forKeyPath_(NSNumber::numberWithInt_(1), "__meta.id"_ns);
        int base = static_cast<int>(archiveBytes(probe).size());
        EXPECT_GE(length, base);
        LXManagedObject* object = LXManagedObject::managedObject();
        object->setObject_forKeyPath_(ns(std::string(length - base, 'x')), "p"_ns);
        return object;
    }

    // The offset of an id as the index on disk says.
    int offsetOnDisk(int identifier) {
        NSObject* index = NSUnarchiver::unarchiveObjectWithFile_(ns(indexAtRest()));
        return intAt(index, ("objects.pos." + std::to_string(identifier)).c_str());
    }

    static std::string freeList(LXContainer* box) {
        std::string out;
        NSMutableArray* areas = box->freeBlocks();
        for (uint32_t i = 0; i < areas->count(); i++) {
            NSArray* pair = static_cast<NSArray*>(areas->objectAtIndex_(i));
            out += "(" +
                   std::to_string(static_cast<NSNumber*>(pair->objectAtIndex_(0))->intValue()) +
                   "," +
                   std::to_string(static_cast<NSNumber*>(pair->objectAtIndex_(1))->intValue()) +
                   ")";
        }
        return out;
    }

    NSAutoreleasePool* pool = nullptr;
    std::string dir;
    std::string stem;
    std::vector<LXContainer*> opened;  // autoreleased, alive until TearDown
};

// ---------------------------------------------------------------------------
// The storage layer.

TEST_F(ContainerTest, FreshIndexHoldsOnlyMetaAndAnEmptyDataFile) {
    LXContainer* box = open();
    EXPECT_FALSE(box->isDamaged());
    EXPECT_EQ(readFile(dataPath()), "");
    NSObject* index = NSUnarchiver::unarchiveObjectWithFile_(ns(indexAtRest()));
    ASSERT_NE(index, nullptr);
    EXPECT_EQ(static_cast<NSDictionary*>(index)->count(), 1u);
    EXPECT_EQ(intAt(index, "meta.filesize"), 0);
    EXPECT_EQ(intAt(index, "meta.maxid"), 0);
    EXPECT_FALSE(exists(indexPath() + ".tmp"));
    EXPECT_EQ(freeList(box), "(0,2147483647)");
    EXPECT_EQ(box->allIds()->count(), 0u);
}

TEST_F(ContainerTest, FirstFitByPosition) {
    LXContainer* box = open();
    LXManagedObject* a = objectOfLength(300);
    LXManagedObject* b = objectOfLength(250);
    LXManagedObject* c = objectOfLength(250);
    EXPECT_EQ(box->store_(a), 1);
    EXPECT_EQ(box->store_(b), 2);
    EXPECT_EQ(box->store_(c), 3);
    EXPECT_EQ(offsetOnDisk(1), 0);
    EXPECT_EQ(offsetOnDisk(2), 300);
    EXPECT_EQ(offsetOnDisk(3), 550);
    EXPECT_EQ(box->size(), 800);

    // A hole of 250 between two blocks is listed before the open end.
    ASSERT_TRUE(box->remove_(b));
    EXPECT_EQ(freeList(box), "(300,250)(800,2147483647)");
    EXPECT_EQ(box->freeBlockForLength_(250), 300);
    EXPECT_EQ(box->freeBlockForLength_(251), 800);
    EXPECT_EQ(box->size(), 800) << "remove leaves meta.filesize";

    // A new version of the first object doesn't fit the hole: it goes
    // behind the last block, and 0 to 550 is free.
    EXPECT_EQ(box->store_(a), 1);
    EXPECT_EQ(offsetOnDisk(1), 800);
    EXPECT_EQ(freeList(box), "(0,550)(1100,2147483647)");

    // An exact fit and a smaller one both take the lowest offset.
    LXManagedObject* d = objectOfLength(250);
    EXPECT_EQ(box->store_(d), 4);
    EXPECT_EQ(offsetOnDisk(4), 0);
    LXManagedObject* e = objectOfLength(300);
    EXPECT_EQ(box->store_(e), 5);
    EXPECT_EQ(offsetOnDisk(5), 250)
            << "what remained of the hole is free by itself, and an exact fit";
    EXPECT_EQ(freeList(box), "(1100,2147483647)");

    // Same length, no hole: a new version never lands on its old block.
    EXPECT_EQ(box->store_(d), 4);
    EXPECT_EQ(offsetOnDisk(4), 1100);
    EXPECT_EQ(freeList(box), "(0,250)(1350,2147483647)");
}

// The free areas the container keeps as it goes must be, after every
// operation, the ones derived from the index as documented: pairs sorted
// by offset, a cursor from 0, the gaps, and the room behind the last block.
std::string derivedFreeList(LXContainer* box) {
    LXManagedObject* index = static_cast<LXManagedObject*>(box->valueForKey_("index"_ns));
    NSArray* ids = box->allIds_(false);
    std::vector<std::pair<int, int>> pairs;
    for (uint32_t i = 0; i < ids->count(); i++) {
        NSString* id = static_cast<NSString*>(ids->objectAtIndex_(i));
        int pos = intAt(index, ("objects.pos." + std::string(id->UTF8String())).c_str());
        int length = intAt(index, ("objects.length." + std::string(id->UTF8String())).c_str());
        pairs.emplace_back(pos, pos + length);
    }
    std::sort(pairs.begin(), pairs.end());
    std::string out;
    int cursor = 0;
    for (const auto& pair : pairs) {
        if (cursor < pair.first)
            out += "(" + std::to_string(cursor) + "," + std::to_string(pair.first - cursor) + ")";
        cursor = pair.second;
    }
    return out + "(" + std::to_string(cursor) + ",2147483647)";
}

TEST_F(ContainerTest, FreeAreasFollowTheIndexThroughRandomWork) {
    LXContainer* box = open();
    std::vector<LXManagedObject*> live;
    unsigned state = 7;
    auto next = [&state](unsigned n) {
        state = state * 1103515245u + 12345u;
        return (state >> 8) % n;
    };
    for (int step = 0; step < 400; step++) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        unsigned dice = next(10);
        int length = 240 + static_cast<int>(next(200));
        if (live.empty() || dice < 5) {
            LXManagedObject* object = objectOfLength(length);
            long expected = box->freeBlockForLength_(length);
            // Some typed (their blocks are longer than `length`), so that
            // the byte comparison below meets sets.
            bool typed = dice == 1;
            ASSERT_GT(box->store_type_(object, typed ? "R"_ns : nullptr), 0);
            if (!typed) {
                EXPECT_EQ(offsetOnDisk(intAt(object, "__meta.id")), expected);
            }
            live.push_back(static_cast<LXManagedObject*>(object->retain()));
        } else if (dice < 8) {
            LXManagedObject* object = live[next(static_cast<unsigned>(live.size()))];
            object->setObject_forKeyPath_(ns(std::string(next(200), 'y')), "p"_ns);
            ASSERT_GT(box->store_(object), 0);
        } else {
            size_t k = next(static_cast<unsigned>(live.size()));
            ASSERT_TRUE(box->remove_(live[k]));
            live[k]->release();
            live.erase(live.begin() + static_cast<long>(k));
        }
        ASSERT_EQ(freeList(box), derivedFreeList(box)) << "step " << step;
        if (step % 10 == 0) {
            // The index file is what NSArchiver makes of the index (the
            // container encodes it itself, keeping the buckets of its
            // large dictionaries from one write to the next).
            ASSERT_EQ(readFile(indexAtRest()), archiveBytes(box->valueForKey_("index"_ns)))
                    << "step " << step;
        }
        inner->release();
    }
    EXPECT_GT(live.size(), 64u) << "the block table grows to the size whose buckets are kept";
    LXContainer* reopened = open();
    EXPECT_EQ(freeList(reopened), freeList(box));
    for (LXManagedObject* object : live) object->release();
}

TEST_F(ContainerTest, IdsAfterRemovalsAndReopen) {
    {
        LXContainer* box = open();
        LXManagedObject* objects[3];
        for (int i = 0; i < 3; i++) {
            objects[i] = objectOfLength(260);
            EXPECT_EQ(box->store_(objects[i]), i + 1);
        }
        for (auto* object : objects) EXPECT_TRUE(box->remove_(object));
        EXPECT_EQ(box->allIds()->count(), 0u);
        EXPECT_EQ(freeList(box), "(0,2147483647)");
    }
    NSObject* index = NSUnarchiver::unarchiveObjectWithFile_(ns(indexAtRest()));
    EXPECT_EQ(intAt(index, "meta.maxid"), 3);
    NSObject* positions = static_cast<LXManagedObject*>(index)->objectForKeyPath_("objects.pos"_ns);
    ASSERT_NE(positions, nullptr) << "objects stays, empty, when its last entry goes";
    EXPECT_EQ(static_cast<NSDictionary*>(positions)->count(), 0u);

    LXContainer* again = open();
    LXManagedObject* next = objectOfLength(260);
    EXPECT_EQ(again->store_(next), 4);
    EXPECT_EQ(offsetOnDisk(4), 0) << "the tail of removed blocks is reused";
    EXPECT_EQ(again->size(), 780);
}

TEST_F(ContainerTest, StoredObjectsReadBackNewEachTime) {
    LXContainer* box = open();
    LXManagedObject* record = LXManagedObject::managedObject();
    record->setObject_forKeyPath_("Alice"_ns, "name"_ns);
    record->setObject_forKeyPath_(NSNumber::numberWithInt_(42), "address.zip"_ns);
    int identifier = box->store_type_(record, "Person"_ns);
    ASSERT_EQ(identifier, 1);
    EXPECT_EQ(intAt(record, "__meta.id"), 1);
    EXPECT_TRUE(record->objectForKeyPath_("__meta.type"_ns)->isEqual_("Person"_ns));

    LXManagedObject* first = box->objectWithId_(1);
    LXManagedObject* second = LXContainer::containerWithName_(ns(stem))->objectWithId_(1);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_NE(first, record);
    EXPECT_TRUE(first->isEqual_(record));
    EXPECT_TRUE(first->objectForKeyPath_("name"_ns)->isEqual_("Alice"_ns));
    EXPECT_EQ(intAt(second, "address.zip"), 42);
    EXPECT_TRUE(second->objectForKeyPath_("__meta.type"_ns)->isEqual_("Person"_ns));
    EXPECT_EQ(box->objectWithId_(2), nullptr) << "an id the index doesn't know";
}

TEST_F(ContainerTest, BlocksAreEncipheredArchivesAndTheIndexIsPlain) {
    LXContainer* box = open();
    LXManagedObject* record = LXManagedObject::managedObject();
    record->setObject_forKeyPath_("abc"_ns, "s"_ns);
    ASSERT_EQ(box->store_(record), 1);

    std::string plain = archiveBytes(record);
    std::string block = readFile(dataPath());
    ASSERT_EQ(block.size(), plain.size());
    const char key[] = "Rk2pWn";
    for (size_t i = 0; i < plain.size(); i++) {
        ASSERT_EQ(static_cast<unsigned char>(block[i]),
                  static_cast<unsigned char>(plain[i] ^ ~key[i % 6]))
                << "byte " << i;
    }
    // The first byte is the low byte of the class name's length, 16.
    EXPECT_EQ(static_cast<unsigned char>(block[0]), 0x10 ^ 0xAD);

    // The index file is the archive of the index as it is in memory.
    NSObject* index = box->valueForKey_("index"_ns);
    EXPECT_EQ(readFile(indexAtRest()), archiveBytes(index));
    EXPECT_EQ(intAt(index, "objects.length.1"), static_cast<int>(plain.size()));
    EXPECT_EQ(intAt(index, "meta.filesize"), static_cast<int>(plain.size()));
    EXPECT_EQ(intAt(index, "meta.maxid"), 1);
}

TEST_F(ContainerTest, TypeSets) {
    LXContainer* box = open();
    LXManagedObject* typed = LXManagedObject::managedObject();
    LXManagedObject* other = LXManagedObject::managedObject();
    LXManagedObject* plain = LXManagedObject::managedObject();
    EXPECT_EQ(box->store_type_(typed, "Invoice"_ns), 1);
    EXPECT_EQ(box->store_type_(other, "Invoice"_ns), 2);
    EXPECT_EQ(box->store_(plain), 3);

    NSArray* invoices = box->allIdsForType_("Invoice"_ns);
    EXPECT_EQ(invoices->count(), 2u);
    EXPECT_GE(invoices->indexOfObject_("1"_ns), 0);
    EXPECT_GE(invoices->indexOfObject_("2"_ns), 0);
    EXPECT_EQ(box->allIds()->count(), 3u);
    NSArray* unknown = box->allIdsForType_("Nothing"_ns);
    ASSERT_NE(unknown, nullptr);
    EXPECT_EQ(unknown->count(), 0u);
    EXPECT_EQ(plain->objectForKeyPath_("__meta.type"_ns), nullptr);

    // A stored object keeps its type, whatever a later store says.
    EXPECT_EQ(box->store_type_(typed, "Receipt"_ns), 1);
    EXPECT_EQ(box->allIdsForType_("Receipt"_ns)->count(), 0u);
    EXPECT_TRUE(typed->objectForKeyPath_("__meta.type"_ns)->isEqual_("Invoice"_ns));

    box->remove_(typed);
    box->remove_(other);
    EXPECT_EQ(box->allIdsForType_("Invoice"_ns)->count(), 0u);
    NSObject* index = NSUnarchiver::unarchiveObjectWithFile_(ns(indexAtRest()));
    NSObject* set = static_cast<LXManagedObject*>(index)->objectForKeyPath_("types.Invoice"_ns);
    ASSERT_NE(set, nullptr) << "the set stays, empty";
    EXPECT_TRUE(set->isKindOfClass_(NSMutableSet::classObject()));
    EXPECT_EQ(LXContainer::containerWithName_(ns(stem))->allIds()->count(), 1u);
}

TEST_F(ContainerTest, FailedWrites) {
    LXContainer* box = open();
    LXManagedObject* first = objectOfLength(300);
    ASSERT_EQ(box->store_(first), 1);
    std::string committed = readFile(indexAtRest());

    // The block can't be written: nothing changes, and the object gets no id.
    LXManagedObject* second = objectOfLength(300);
    LXContainer::failWriteForTesting(1);
    std::string log = vt_test::logOf([&] { EXPECT_EQ(box->store_type_(second, "T"_ns), -1); });
    EXPECT_EQ(log.rfind("LXContainer " + stem + ": can't write a block of ", 0), 0u) << log;
    EXPECT_NE(log.find(" bytes at 300\n"), std::string::npos) << log;
    EXPECT_EQ(second->uniqueId(), nullptr);
    EXPECT_EQ(second->objectForKeyPath_("__meta.type"_ns), nullptr);
    EXPECT_EQ(box->maxId(), 1);
    EXPECT_EQ(readFile(indexAtRest()), committed);

    // The block is written, its journal entry is not: the files stand as
    // they were, and the next change writes the whole index, which carries
    // both changes.
    LXContainer::failWriteForTesting(2);
    EXPECT_EQ(box->store_type_(second, "T"_ns), -1);
    EXPECT_EQ(readFile(indexPath()), committed);
    EXPECT_EQ(LXContainer::containerWithName_(ns(stem))->allIds()->count(), 1u);
    LXManagedObject* third = objectOfLength(300);
    EXPECT_EQ(box->store_(third), 3);
    EXPECT_NE(readFile(indexPath()), committed);
    EXPECT_EQ(box->journalLength(), 0);
    LXContainer* reopened = LXContainer::containerWithName_(ns(stem));
    EXPECT_EQ(reopened->allIds()->count(), 3u);
    EXPECT_EQ(reopened->allIdsForType_("T"_ns)->count(), 1u);

    LXContainer::failWriteForTesting(1);
    EXPECT_FALSE(box->remove_(third));
    EXPECT_FALSE(box->remove_(LXManagedObject::managedObject())) << "never stored";

    // An id that is no positive number would make the index unreadable.
    LXContainer::failWriteForTesting(0);
    LXManagedObject* forged = objectOfLength(300);
    forged->setObject_forKeyPath_("x"_ns, "__meta.id"_ns);
    EXPECT_EQ(vt_test::logOf([&] {
                  EXPECT_EQ(box->store_(forged), -1);
                  EXPECT_FALSE(box->remove_(forged));
              }),
              "LXContainer " + stem +
                      ": refusing to store an object whose id is not a positive number\n");
    EXPECT_FALSE(LXContainer::containerWithName_(ns(stem))->isDamaged());
}

// ---------------------------------------------------------------------------
// Opening what a stop or a damaged disk leaves.

TEST_F(ContainerTest, MissingIndexBesideItsTemporaryFileIsRenamedAtOpen) {
    {
        LXContainer* box = open();
        box->store_(objectOfLength(300));
        box->store_(objectOfLength(300));
    }
    ASSERT_EQ(rename(indexPath().c_str(), (indexPath() + ".tmp").c_str()), 0);
    LXContainer* box = nullptr;
    EXPECT_EQ(vt_test::logOf([&] { box = open(); }),
              "LXContainer " + stem + ": the index was missing; completed the rename of " +
                      indexPath() + ".tmp\n");
    EXPECT_FALSE(box->isDamaged());
    EXPECT_TRUE(exists(indexPath()));
    EXPECT_FALSE(exists(indexPath() + ".tmp"));
    EXPECT_EQ(box->allIds()->count(), 2u);
    EXPECT_NE(box->objectWithId_(2), nullptr);
}

// A damaged store is opened refusing: it reports, answers nothing, and
// leaves every byte of both files (and of any temporary file) alone.
TEST_F(ContainerTest, DamagedStoresAreReportedAndLeftUntouched) {
    struct Case {
        const char* name;
        void (*damage)(const std::string& stem);
        std::string expectedLine;  // after "LXContainer <stem>: damaged store, left untouched: "
    };
    const Case cases[] = {
            {"garbage index", [](const std::string& s) { writeFile(s + ".vci", "not an archive"); },
             "%s.vci does not decode to a container index"},
            {"index of another shape",
             [](const std::string& s) {
                 NSArchiver::archiveRootObject_toFile_("just a string"_ns, ns(s + ".vci"));
             },
             "%s.vci does not decode to a container index"},
            {"truncated index",
             [](const std::string& s) {
                 std::string bytes = readFile(s + ".vci");
                 writeFile(s + ".vci", bytes.substr(0, bytes.size() / 2));
             },
             "%s.vci does not decode to a container index"},
            {"short data file",
             [](const std::string& s) {
                 std::string bytes = readFile(s + ".vcd");
                 writeFile(s + ".vcd", bytes.substr(0, bytes.size() - 1));
             },
             "the data file holds 599 bytes, the index places blocks up to 600"},
            {"missing data file", [](const std::string& s) { remove((s + ".vcd").c_str()); },
             "the data file holds 0 bytes, the index places blocks up to 600"},
            {"data file without index", [](const std::string& s) { remove((s + ".vci").c_str()); },
             "the data file exists without an index"},
            // An index that decodes but whose shape is off: read as it
            // stands, each would let a store write over a live block.
            {"objects level renamed",
             [](const std::string& s) {
                 editIndex(s, [](LXManagedObject* i) { renameKey(i, "objects", "objdcts"); });
             },
             "%s.vci holds an unknown key 'objdcts'"},
            {"pos level renamed",
             [](const std::string& s) {
                 editIndex(s, [](LXManagedObject* i) {
                     renameKey(static_cast<NSMutableDictionary*>(i->objectForKey_("objects"_ns)),
                               "pos", "pms");
                 });
             },
             "%s.vci holds an unknown key 'pms'"},
            {"objects level gone",
             [](const std::string& s) {
                 editIndex(s, [](LXManagedObject* i) { i->removeObjectForKey_("objects"_ns); });
             },
             "%s.vci has given out ids but has no objects level"},
            {"length of an id gone",
             [](const std::string& s) {
                 editIndex(s, [](LXManagedObject* i) {
                     i->removeObjectForKeyPath_("objects.length.2"_ns);
                 });
             },
             "%s.vci has no objects.pos and objects.length of the same ids"},
            {"id written with a leading zero",
             [](const std::string& s) {
                 editIndex(s, [](LXManagedObject* i) {
                     renameKey(static_cast<NSMutableDictionary*>(
                                       i->objectForKeyPath_("objects.pos"_ns)),
                               "2", "02");
                     renameKey(static_cast<NSMutableDictionary*>(
                                       i->objectForKeyPath_("objects.length"_ns)),
                               "2", "02");
                 });
             },
             "%s.vci holds a block entry that is not an id with an offset and a length"},
            {"id above maxid",
             [](const std::string& s) {
                 editIndex(s, [](LXManagedObject* i) {
                     i->setObject_forKeyPath_(NSNumber::numberWithInt_(1), "meta.maxid"_ns);
                 });
             },
             "%s.vci holds id 2, above meta.maxid 1"},
            {"maxid that is no number",
             [](const std::string& s) {
                 editIndex(s, [](LXManagedObject* i) {
                     i->setObject_forKeyPath_(ns("2"), "meta.maxid"_ns);
                 });
             },
             "%s.vci holds a meta.filesize or meta.maxid that is no count"},
            {"blocks on the same bytes",
             [](const std::string& s) {
                 editIndex(s, [](LXManagedObject* i) {
                     i->setObject_forKeyPath_(NSNumber::numberWithInt_(100), "objects.pos.2"_ns);
                 });
             },
             "%s.vci places two blocks on the same bytes at 100"},
            {"filesize below the blocks",
             [](const std::string& s) {
                 editIndex(s, [](LXManagedObject* i) {
                     i->setObject_forKeyPath_(NSNumber::numberWithInt_(10), "meta.filesize"_ns);
                 });
             },
             "%s.vci places blocks up to 600, beyond its meta.filesize 10"},
            {"type listing an object not stored",
             [](const std::string& s) {
                 editIndex(s, [](LXManagedObject* i) {
                     NSMutableSet* ids = NSMutableSet::set();
                     ids->addObject_(ns("7"));
                     i->setObject_forKeyPath_(ids, "types.T"_ns);
                 });
             },
             "%s.vci lists under type T an object that is not stored"},
            {"type that is no set",
             [](const std::string& s) {
                 editIndex(s, [](LXManagedObject* i) {
                     i->setObject_forKeyPath_(ns("1"), "types.T"_ns);
                 });
             },
             "%s.vci holds a type that is not a set of ids"},
            {"undecodable temporary file without index",
             [](const std::string& s) {
                 remove((s + ".vci").c_str());
                 writeFile(s + ".vci.tmp", "\x10\x00\x00\x00LXManag");
             },
             "%s.vci.tmp does not decode to a container index"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string s = dir + "/" + std::to_string(&c - cases);
        {
            LXContainer* box = LXContainer::containerWithName_(ns(s));
            box->store_(objectOfLength(300));
            box->store_(objectOfLength(300));
            box->checkpoint();
        }
        c.damage(s);
        std::string index = readFile(s + ".vci");
        std::string data = readFile(s + ".vcd");
        std::string tmp = readFile(s + ".vci.tmp");
        bool hadData = exists(s + ".vcd");

        LXContainer* box = nullptr;
        std::string log = vt_test::logOf([&] { box = LXContainer::containerWithName_(ns(s)); });
        std::string why = c.expectedLine;
        if (why.rfind("%s", 0) == 0) why = s + why.substr(2);
        // The decoder may say why first; the container's line ends the log.
        std::string line = "LXContainer " + s + ": damaged store, left untouched: " + why + "\n";
        ASSERT_GE(log.size(), line.size()) << log;
        EXPECT_EQ(log.substr(log.size() - line.size()), line);
        EXPECT_TRUE(box->isDamaged());

        LXManagedObject* fresh = LXManagedObject::managedObject();
        EXPECT_EQ(box->store_(fresh), -1);
        EXPECT_EQ(fresh->uniqueId(), nullptr);
        EXPECT_EQ(box->objectWithId_(1), nullptr);
        EXPECT_EQ(box->allIds()->count(), 0u);
        EXPECT_EQ(box->allIdsForType_("T"_ns)->count(), 0u);
        EXPECT_EQ(box->query_(NSObject::classObject())->count(), 0u);
        EXPECT_EQ(box->set_(NSObject::alloc()->init()->autorelease()), -1);
        EXPECT_EQ(readFile(s + ".vci"), index);
        EXPECT_EQ(readFile(s + ".vcd"), data);
        EXPECT_EQ(readFile(s + ".vci.tmp"), tmp);
        EXPECT_EQ(exists(s + ".vcd"), hadData);
    }
}

TEST_F(ContainerTest, LostFreeTailIsReportedButNotDamage) {
    LXContainer* box = open();
    LXManagedObject* a = objectOfLength(300);
    LXManagedObject* b = objectOfLength(300);
    box->store_(a);
    box->store_(b);
    box->remove_(b);
    truncate(dataPath().c_str(), 300);
    LXContainer* again = nullptr;
    EXPECT_EQ(vt_test::logOf([&] { again = open(); }),
              "LXContainer " + stem +
                      ": the data file holds 300 bytes, the index recorded 600; the tail held no "
                      "object\n");
    EXPECT_FALSE(again->isDamaged());
    EXPECT_EQ(again->store_(objectOfLength(300)), 3);
    EXPECT_NE(again->objectWithId_(1), nullptr);
    EXPECT_NE(again->objectWithId_(3), nullptr);
}

// Ids are signed 32-bit: once the last one is given out, new objects are
// refused, and the index stays one that opens.
TEST_F(ContainerTest, LastIdIsGivenOutOnce) {
    LXManagedObject* first = objectOfLength(300);
    ASSERT_EQ(open()->store_(first), 1);
    indexAtRest();
    editIndex(stem, [](LXManagedObject* i) {
        i->setObject_forKeyPath_(NSNumber::numberWithInt_(0x7FFFFFFE), "meta.maxid"_ns);
    });
    LXContainer* box = open();
    ASSERT_FALSE(box->isDamaged());
    EXPECT_EQ(box->store_(objectOfLength(300)), 0x7FFFFFFF);
    std::string index = readFile(indexAtRest());
    LXManagedObject* refused = objectOfLength(300);
    EXPECT_EQ(vt_test::logOf([&] { EXPECT_EQ(box->store_(refused), -1); }),
              "LXContainer " + stem +
                      ": refusing to store a new object: every id up to 2147483647 has been given "
                      "out\n");
    EXPECT_EQ(refused->uniqueId(), nullptr);
    EXPECT_EQ(readFile(indexAtRest()), index);
    EXPECT_EQ(box->store_(first), 1) << "objects that have an id are still stored";
    LXContainer* reopened = open();
    EXPECT_FALSE(reopened->isDamaged());
    EXPECT_EQ(reopened->maxId(), 0x7FFFFFFF);
    EXPECT_NE(reopened->objectWithId_(0x7FFFFFFF), nullptr);
}

// Tools that read open only what is there.
TEST_F(ContainerTest, ExistingContainersOnly) {
    EXPECT_EQ(LXContainer::existingContainerWithName_(ns(stem)), nullptr);
    writeFile(dataPath(), "");
    EXPECT_EQ(LXContainer::existingContainerWithName_(ns(stem)), nullptr);
    EXPECT_FALSE(exists(indexPath())) << "nothing is created";
    ASSERT_EQ(open()->store_(objectOfLength(300)), 1);
    LXContainer* box = LXContainer::existingContainerWithName_(ns(stem));
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->allIds()->count(), 1u);
    remove(indexPath().c_str());
    std::string log =
            vt_test::logOf([&] { box = LXContainer::existingContainerWithName_(ns(stem)); });
    ASSERT_NE(box, nullptr) << "a data file without its index is a damaged store, not none";
    EXPECT_TRUE(box->isDamaged());
}

// A record whose count and bucket table disagree makes no dictionary: the
// count decides how much allKeys allocates and walks.
TEST_F(ContainerTest, RecordsThatMakeNoDictionaryAreRefused) {
    LXContainer* box = open();
    NSMutableDictionary* record = NSMutableDictionary::dictionaryWithCapacity_(2);
    record->setObject_forKey_(ns("v"), ns("k"));
    record->setObject_forKey_(ns("w"), ns("l"));
    ASSERT_EQ(box->set_(record), 1);
    std::string why;
    LXManagedObject* stored = box->objectWithId_(1);
    ASSERT_TRUE(LXContainer::recordFits(stored, NSMutableDictionary::classObject(), &why)) << why;
    struct Case {
        const char* name;
        NSObject* count;
        NSObject* array;
        const char* why;
    };
    NSObject* table = stored->objectForKey_("array"_ns);
    NSMutableArray* odd = NSMutableArray::array();
    NSMutableArray* lone = NSMutableArray::array();
    lone->addObject_(ns("k"));
    odd->addObject_(lone);
    const Case cases[] = {
            {"negative count", NSNumber::numberWithInt_(-2), table,
             "the dictionary's count is not its number of entries"},
            {"count too high", NSNumber::numberWithInt_(3), table,
             "the dictionary's count is not its number of entries"},
            {"count not a number", ns("2"), table, "the dictionary's count is not a number"},
            {"no table", NSNumber::numberWithInt_(2), nullptr,
             "the dictionary's bucket table is not a list of buckets"},
            {"empty table", NSNumber::numberWithInt_(0), NSMutableArray::array(),
             "the dictionary's bucket table is not a list of buckets"},
            {"bucket of one key", NSNumber::numberWithInt_(1), odd,
             "a bucket of the dictionary does not hold key and value pairs"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LXManagedObject* damaged = box->objectWithId_(1);
        damaged->setObject_forKey_(c.count, ns("count"));
        damaged->setObject_forKey_(c.array, ns("array"));
        EXPECT_FALSE(LXContainer::recordFits(damaged, NSMutableDictionary::classObject(), &why));
        EXPECT_EQ(why, c.why);
        ASSERT_EQ(box->store_(damaged), 1);
        std::string log = vt_test::logOf([&] {
            EXPECT_EQ(box->queryById_class_(1, NSMutableDictionary::classObject()), nullptr);
            EXPECT_EQ(box->query_(NSMutableDictionary::classObject())->count(), 0u);
        });
        EXPECT_NE(log.find(std::string("record 1 makes no NSMutableDictionary: ") + c.why),
                  std::string::npos)
                << log;
    }
    EXPECT_TRUE(LXContainer::recordFits(stored, NSObject::classObject(), &why))
            << "other classes take any value";
}

TEST_F(ContainerTest, EmptyDataFileWithoutIndexIsCreatedAnew) {
    writeFile(dataPath(), "");
    LXContainer* box = open();
    EXPECT_FALSE(box->isDamaged());
    EXPECT_EQ(box->store_(LXManagedObject::managedObject()), 1);
}

// ---------------------------------------------------------------------------
// Managed objects.

TEST(ManagedObject, KeyPaths) {
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    LXManagedObject* object = LXManagedObject::managedObject();
    EXPECT_EQ(object->bucketCount(), 10u);
    object->setObject_forKeyPath_("v"_ns, "a.b.c"_ns);
    NSObject* a = object->objectForKey_("a"_ns);
    ASSERT_NE(a, nullptr);
    EXPECT_TRUE(a->isMemberOfClass_(NSMutableDictionary::classObject()));
    EXPECT_EQ(static_cast<NSDictionary*>(a)->bucketCount(), 10u);
    EXPECT_TRUE(object->objectForKeyPath_("a.b.c"_ns)->isEqual_("v"_ns));
    EXPECT_EQ(object->objectForKeyPath_("a.x.c"_ns), nullptr);
    EXPECT_EQ(object->valueForKeyPath_("a.b.c"_ns), object->objectForKeyPath_("a.b.c"_ns));

    // Key access by message goes by path too.
    NSSend<void>(object, NS_SEL("setValue:forKey:"), "w"_ns, "a.b.d"_ns);
    EXPECT_TRUE(NSSend<NSObject*>(object, NS_SEL("valueForKey:"), "a.b.d"_ns)->isEqual_("w"_ns));

    // nil removes the last key, but still creates the levels above it.
    object->setObject_forKeyPath_(nullptr, "a.b.c"_ns);
    EXPECT_EQ(object->objectForKeyPath_("a.b.c"_ns), nullptr);
    object->setObject_forKeyPath_(nullptr, "n.m"_ns);
    ASSERT_NE(object->objectForKey_("n"_ns), nullptr);
    EXPECT_EQ(static_cast<NSDictionary*>(object->objectForKey_("n"_ns))->count(), 0u);

    // A level that holds a plain value is replaced by a new dictionary: the
    // path is the caller's statement of the shape it wants.
    object->setObject_forKeyPath_("plain"_ns, "p"_ns);
    object->setObject_forKeyPath_("v"_ns, "p.q"_ns);
    EXPECT_TRUE(object->objectForKeyPath_("p.q"_ns)->isEqual_("v"_ns));
    EXPECT_EQ(static_cast<NSDictionary*>(object->objectForKey_("p"_ns))->count(), 1u);

    object->removeObjectForKeyPath_("q.r.s"_ns);
    EXPECT_EQ(object->objectForKey_("q"_ns), nullptr)
            << "removal stops silently at a missing level";
    object->removeObjectForKeyPath_("a.b.d"_ns);
    EXPECT_EQ(object->objectForKeyPath_("a.b.d"_ns), nullptr);
    pool->release();
}

TEST(ManagedObject, EqualityGoesById) {
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    LXManagedObject* a = LXManagedObject::managedObject();
    LXManagedObject* b = LXManagedObject::managedObject();
    EXPECT_FALSE(a->isEqual_(a)) << "an object without an id equals nothing";
    EXPECT_FALSE(a->isEqual_(b));
    a->setObject_forKeyPath_(NSNumber::numberWithInt_(7), "__meta.id"_ns);
    b->setObject_forKeyPath_(NSNumber::numberWithInt_(7), "__meta.id"_ns);
    b->setObject_forKeyPath_("other"_ns, "x"_ns);
    EXPECT_TRUE(a->isEqual_(b));
    EXPECT_EQ(a->hash(), b->hash());
    EXPECT_FALSE(a->isEqual_(NSNumber::numberWithInt_(7)));
    NSMutableDictionary* plain = NSMutableDictionary::dictionaryWithCapacity_(10);
    plain->setObject_forKey_(a->objectForKey_("__meta"_ns), "__meta"_ns);
    EXPECT_FALSE(a->isEqual_(plain)) << "only managed objects";
    b->setObject_forKeyPath_(NSNumber::numberWithInt_(8), "__meta.id"_ns);
    EXPECT_FALSE(a->isEqual_(b));
    pool->release();
}

// ---------------------------------------------------------------------------
// The object layer.

// A plain object with two persistent attributes, counting its deallocs.
int gNotesFreed = 0;

class Note : public NSObject {
    NS_DECLARE_CLASS(Note, NSObject)

public:
    NSArray* attributeKeys() override {
        return NSArray::arrayWithObjects_("title"_ns, "pages"_ns, nullptr);
    }
    void dealloc() override {
        gNotesFreed++;
        NSObject::dealloc();
    }
    Ref<NSString> _title;
    Ref<NSNumber> _pages;
    Ref<NSString> _scratch;  // not an attribute
};

NS_CLASS_BEGIN(Note, NSObject)
    NS_FIELD(_title)
    NS_FIELD(_pages)
    NS_FIELD(_scratch)
NS_CLASS_END(Note)

class SubNote : public Note {
    NS_DECLARE_CLASS(SubNote, Note)
};

NS_CLASS_BEGIN(SubNote, Note)
NS_CLASS_END(SubNote)

Note* newNote(const char* title, int pages) {
    Note* note = static_cast<Note*>(Note::alloc()->init());
    note->_title.set(ns(title));
    note->_pages.set(NSNumber::numberWithInt_(pages));
    note->_scratch.set("scratch"_ns);
    return note;
}

TEST_F(ContainerTest, SetStoresAttributesAndKeepsTheId) {
    LXContainer* box = open();
    Note* note = newNote("plan", 3);
    EXPECT_EQ(box->set_(note), 1);
    EXPECT_EQ(box->mappingSize(), 1u);
    note->_pages.set(NSNumber::numberWithInt_(4));
    note->_title = nullptr;
    EXPECT_EQ(box->set_(note), 1) << "a later set: updates the same record";
    EXPECT_EQ(box->count_(Note::classObject()), 1u);

    LXManagedObject* stored = box->objectWithId_(1);
    EXPECT_EQ(intAt(stored, "pages"), 4);
    EXPECT_EQ(stored->objectForKey_("title"_ns), nullptr) << "a nil attribute leaves no entry";
    EXPECT_EQ(stored->objectForKey_("scratch"_ns), nullptr);
    EXPECT_TRUE(stored->objectForKeyPath_("__meta.type"_ns)->isEqual_("Note"_ns));
    EXPECT_EQ(stored->count(), 2u);

    // Subclasses are not their base class's records.
    Note* sub = static_cast<Note*>(SubNote::alloc()->init());
    EXPECT_EQ(box->set_(sub), 2);
    EXPECT_EQ(box->count_(Note::classObject()), 1u);
    EXPECT_EQ(box->count_(SubNote::classObject()), 1u);
    EXPECT_EQ(box->idsForClass_(SubNote::classObject())->count(), 1u);

    // An object without attributes stores __meta alone.
    NSObject* bare = NSObject::alloc()->init();
    EXPECT_EQ(box->set_(bare), 3);
    LXManagedObject* meta = box->objectWithId_(3);
    EXPECT_EQ(meta->count(), 1u);
    EXPECT_TRUE(meta->objectForKeyPath_("__meta.type"_ns)->isEqual_("NSObject"_ns));

    EXPECT_EQ(box->mappingSize(), 3u);
    note->release();
    sub->release();
    bare->release();
    EXPECT_EQ(box->mappingSize(), 0u) << "the release callback forgets each object";
    EXPECT_EQ(box->allIds()->count(), 3u) << "the records stay";
}

TEST_F(ContainerTest, DeleteAndSetAgain) {
    LXContainer* box = open();
    Note* note = newNote("a", 1);
    ASSERT_EQ(box->set_(note), 1);
    box->delete_(note);
    EXPECT_EQ(box->mappingSize(), 0u);
    EXPECT_EQ(box->count_(Note::classObject()), 0u);
    EXPECT_EQ(box->set_(note), 2) << "the mapping entry went, so the record is new";

    Note* stranger = newNote("b", 2);
    box->delete_(stranger);
    EXPECT_EQ(box->allIds()->count(), 1u);
    EXPECT_EQ(box->set_(stranger), 3);

    // Known only to the container that stored it.
    LXContainer* other = LXContainer::containerWithName_(ns(dir + "/other"));
    other->delete_(note);
    EXPECT_EQ(box->count_(Note::classObject()), 2u);
    note->release();
    stranger->release();
}

TEST_F(ContainerTest, QueryBuildsNewObjectsAndTheMappingEmptiesAgain) {
    LXContainer* box = open();
    for (int i = 0; i < 5; i++) {
        Note* note = newNote(("n" + std::to_string(i)).c_str(), i);
        box->set_(note);
        note->release();
    }
    EXPECT_EQ(box->mappingSize(), 0u);
    EXPECT_EQ(box->query_(SubNote::classObject())->count(), 0u);
    EXPECT_EQ(box->count_(SubNote::classObject()), 0u);

    int freedBefore = gNotesFreed;
    NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
    NSMutableArray* notes = box->query_(Note::classObject());
    ASSERT_EQ(notes->count(), 5u);
    EXPECT_EQ(box->mappingSize(), 5u);
    Note* first = static_cast<Note*>(notes->objectAtIndex_(0));
    EXPECT_EQ(first->retainCount(), 1u) << "the array holds the only reference";
    EXPECT_EQ(first->_scratch.get(), nullptr);
    int pages = first->_pages->intValue();
    EXPECT_TRUE(first->_title->isEqual_(ns("n" + std::to_string(pages))));

    // Changing and setting a queried object updates its record.
    first->_title.set("changed"_ns);
    int identifier = box->set_(first);
    EXPECT_GT(identifier, 0);
    EXPECT_EQ(box->allIds()->count(), 5u);
    inner->release();
    EXPECT_EQ(gNotesFreed - freedBefore, 5);
    EXPECT_EQ(box->mappingSize(), 0u);

    // Queried again: a new object with the same contents.
    Note* again = static_cast<Note*>(box->queryById_class_(identifier, Note::classObject()));
    ASSERT_NE(again, nullptr);
    EXPECT_NE(again, first);
    EXPECT_TRUE(again->_title->isEqual_("changed"_ns));
    EXPECT_EQ(box->mappingSize(), 1u);
    EXPECT_EQ(box->set_(again), identifier);
    EXPECT_EQ(box->queryById_class_(99, Note::classObject()), nullptr);
}

TEST_F(ContainerTest, DictionaryRecordsKeepTheirBuckets) {
    LXContainer* box = open();
    NSMutableDictionary* record = NSMutableDictionary::dictionaryWithCapacity_(17);
    for (int i = 0; i < 30; i++)
        record->setObject_forKey_(NSNumber::numberWithInt_(i), ns("key" + std::to_string(i)));
    int identifier = box->set_(record);
    ASSERT_EQ(identifier, 1);
    NSMutableDictionary* back = static_cast<NSMutableDictionary*>(
            box->queryById_class_(identifier, NSMutableDictionary::classObject()));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->bucketCount(), 17u);
    EXPECT_EQ(back->count(), 30u);
    EXPECT_EQ(static_cast<NSNumber*>(back->objectForKey_("key29"_ns))->intValue(), 29);
    EXPECT_TRUE(back->allKeys()->isEqual_(record->allKeys()));
}

// Two threads use one container's object layer at once: each sets new
// and queried objects and drops its results, so that the mapping is entered
// and emptied from both sides. The second thread is an NSThread, as every
// thread of the system that autoreleases must be.
class MappingWorker : public NSObject {
    NS_DECLARE_CLASS(MappingWorker, NSObject)

public:
    void work_(NSObject* state) {
        int base = static_cast<NSNumber*>(state)->intValue();
        NSAutoreleasePool* local = NSAutoreleasePool::alloc()->init();
        for (int round = 0; round < 15; round++) {
            NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
            NSMutableArray* notes = box->query_(Note::classObject());
            if (notes->count() != 20) failures++;
            // Its own records are of another class, so that the other
            // thread's query never hands out a record about to be deleted.
            Note* mine = static_cast<Note*>(SubNote::alloc()->init());
            mine->_pages.set(NSNumber::numberWithInt_(base + round));
            if (box->set_(mine) <= 0) failures++;
            if (box->set_(notes->objectAtIndex_(round)) <= 0) failures++;
            box->delete_(mine);
            mine->release();
            inner->release();
        }
        local->release();
        done = true;
    }
    LXContainer* box = nullptr;
    std::atomic<int> failures{0};
    std::atomic<bool> done{false};
};

NS_CLASS_BEGIN(MappingWorker, NSObject)
    NS_METHOD(work_)
NS_CLASS_END(MappingWorker)

TEST_F(ContainerTest, MappingIsSafeFromTwoThreads) {
    LXContainer* box = open();
    for (int i = 0; i < 20; i++) {
        Note* note = newNote("state", i);
        box->set_(note);
        note->release();
    }
    MappingWorker* first = static_cast<MappingWorker*>(MappingWorker::alloc()->init());
    MappingWorker* second = static_cast<MappingWorker*>(MappingWorker::alloc()->init());
    first->box = second->box = box;
    NSThread::detachNewThreadSelector_toTarget_withObject_(NS_SEL("work:"), first,
                                                           NSNumber::numberWithInt_(100));
    second->work_(NSNumber::numberWithInt_(200));
    while (!first->done) usleep(1000);
    EXPECT_EQ(first->failures.load() + second->failures.load(), 0);
    EXPECT_EQ(box->mappingSize(), 0u);
    EXPECT_EQ(box->count_(Note::classObject()), 20u);
    EXPECT_EQ(box->count_(SubNote::classObject()), 0u);
    EXPECT_EQ(LXContainer::containerWithName_(ns(stem))->allIds()->count(), 20u);
    // The thread ends after its method returns; let it leave the table.
    while (NSThread::registeredThreadCount() > 0) usleep(1000);
    first->release();
    second->release();
}

}  // namespace
