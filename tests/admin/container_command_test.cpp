// vantor-admin container: dump, check, store and remove run on real files,
// and the files they leave are checked byte for byte against an index built
// here by hand.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/RunProgram.h"

#include "foundation/Foundation.h"
#include "foundation/NSSet.h"
#include "storage/LXContainer.h"
#include "storage/LXManagedObject.h"
#include "storage/NSArchiver.h"
#include "tests/support/TestSupport.h"

#ifndef VANTOR_ADMIN_PATH
#error "the build passes the path of vantor-admin as VANTOR_ADMIN_PATH"
#endif

namespace {

using Result = vt_test::ProgramResult;
using vt_test::readFile;

class ContainerCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        pool = NSAutoreleasePool::alloc()->init();
        dir = vt_test::makeTempDir("vt-admin-container");
        stem = dir + "/box";
    }
    void TearDown() override {
        pool->release();
        vt_test::removeTree(dir);
    }

    // Standard output and exit status; standard input from `input`.
    Result run(const std::string& arguments, const std::string& input = "", bool merge = false) {
        return vt_test::runProgram(
                vt_test::quoteShell(VANTOR_ADMIN_PATH) + " " + arguments + (merge ? " 2>&1" : ""),
                input);
    }

    NSString* ns(const std::string& text) { return NSString::stringWithUTF8String_(text.c_str()); }

    NSAutoreleasePool* pool = nullptr;
    std::string dir;
    std::string stem;
};

using vt_test::archiveBytes;

TEST_F(ContainerCommandTest, StoreDumpRestoreRemove) {
    Result first =
            run("container store '" + stem + "'", R"({"name":"Alice","age":41,"tags":["a","b"]})");
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.out, "1\n");
    Result second = run("container store '" + stem + "'", R"({"name":"Bob"})");
    EXPECT_EQ(second.out, "2\n");

    Result dump = run("container dump '" + stem + "'");
    EXPECT_EQ(dump.status, 0);
    // The dictionaries of 3 and 1 buckets list their keys in bucket order.
    LXContainer* box = LXContainer::containerWithName_(ns(stem));
    NSMutableDictionary* alice = static_cast<NSMutableDictionary*>(
            box->queryById_class_(1, NSMutableDictionary::classObject()));
    ASSERT_NE(alice, nullptr);
    EXPECT_EQ(alice->bucketCount(), 3u);
    std::string aliceKeys;
    NSMutableArray* keys = alice->allKeys();
    for (uint32_t i = 0; i < keys->count(); i++) {
        std::string key = static_cast<NSString*>(keys->objectAtIndex_(i))->UTF8String();
        std::string value = key == "name" ? "\"Alice\"" : key == "age" ? "41" : "[\"a\",\"b\"]";
        aliceKeys += (i ? "," : "") + ("\"" + key + "\":" + value);
    }
    EXPECT_EQ(dump.out, "{\"id\":1,\"type\":\"NSMutableDictionary\",\"contents\":{" + aliceKeys +
                                "}}\n"
                                "{\"id\":2,\"type\":\"NSMutableDictionary\",\"contents\":{\"name\":"
                                "\"Bob\"}}\n");

    // A re-store keeps the id and the three buckets, moves the record to a
    // new block, and sets the members in the order of the text.
    Result again = run("container store '" + stem + "' --id 1", R"({"z":1,"y":2,"x":3,"w":4})");
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out, "1\n");
    LXContainer* reopened = LXContainer::containerWithName_(ns(stem));
    NSMutableDictionary* changed = static_cast<NSMutableDictionary*>(
            reopened->queryById_class_(1, NSMutableDictionary::classObject()));
    ASSERT_NE(changed, nullptr);
    EXPECT_EQ(changed->bucketCount(), 3u);
    EXPECT_EQ(changed->count(), 4u);
    NSMutableDictionary* expected = NSMutableDictionary::dictionaryWithCapacity_(3);
    const char* order[] = {"z", "y", "x", "w"};
    for (int i = 0; i < 4; i++)
        expected->setObject_forKey_(NSNumber::numberWithInt_(i + 1), ns(order[i]));
    EXPECT_TRUE(changed->allKeys()->isEqual_(expected->allKeys()))
            << "insertion order within a bucket";
    LXManagedObject* index = static_cast<LXManagedObject*>(reopened->valueForKey_("index"_ns));
    EXPECT_GT(static_cast<NSNumber*>(index->objectForKeyPath_("objects.pos.1"_ns))->intValue(), 0);
    EXPECT_EQ(reopened->allIds()->count(), 2u);

    EXPECT_EQ(run("container store '" + stem + "' --id 7", "{}").status, 1);
    EXPECT_EQ(run("container store '" + stem + "'", "[1,2]").status, 1);
    EXPECT_EQ(run("container store '" + stem + "'", "{\"a\":").status, 1);

    EXPECT_EQ(run("container remove '" + stem + "' 2").status, 0);
    EXPECT_EQ(run("container remove '" + stem + "' 2").status, 1) << "no such object any more";
    Result after = run("container dump '" + stem + "'");
    EXPECT_EQ(after.out.find("\"id\":2"), std::string::npos);
    EXPECT_EQ(after.out.rfind("{\"id\":1,", 0), 0u);
    Result ok = run("container check '" + stem + "'");
    EXPECT_EQ(ok.status, 0);
    EXPECT_EQ(ok.out.rfind("ok: 1 objects, ", 0), 0u) << ok.out;

    EXPECT_EQ(run("container").status, 2);
    EXPECT_EQ(run("container remove '" + stem + "' x").status, 2);
    EXPECT_EQ(run("container frobnicate '" + stem + "'").status, 2);
}

// The files that one store leaves, compared with an index and a block made
// here with the archive classes alone.
TEST_F(ContainerCommandTest, FilesMatchTheFormatByteForByte) {
    ASSERT_EQ(run("container store '" + stem + "'", R"({"k":"v"})").out, "1\n");

    NSMutableDictionary* record = NSMutableDictionary::dictionaryWithCapacity_(1);
    record->setObject_forKey_(ns("v"), ns("k"));
    LXManagedObject* managed = LXManagedObject::managedObject();
    managed->setObject_forKeyPath_(record->valueForKey_("count"_ns), ns("count"));
    managed->setObject_forKeyPath_(record->valueForKey_("array"_ns), ns("array"));
    managed->setObject_forKeyPath_(NSNumber::numberWithInt_(1), ns("__meta.id"));
    managed->setObject_forKeyPath_(ns("NSMutableDictionary"), ns("__meta.type"));
    std::string block = archiveBytes(managed);
    const char key[] = "Rk2pWn";
    for (size_t i = 0; i < block.size(); i++) block[i] = static_cast<char>(block[i] ^ ~key[i % 6]);
    EXPECT_EQ(readFile(stem + ".vcd"), block);

    LXManagedObject* index = LXManagedObject::managedObject();
    index->setObject_forKeyPath_(NSNumber::numberWithLong_(0), ns("meta.filesize"));
    index->setObject_forKeyPath_(NSNumber::numberWithInt_(0), ns("meta.maxid"));
    NSMutableSet* ids = NSMutableSet::set();
    ids->addObject_(ns("1"));
    index->setObject_forKeyPath_(ids, ns("types.NSMutableDictionary"));
    index->setObject_forKeyPath_(NSNumber::numberWithLong_(0), ns("objects.pos.1"));
    index->setObject_forKeyPath_(NSNumber::numberWithInt_(static_cast<int>(block.size())),
                                 ns("objects.length.1"));
    index->setObject_forKeyPath_(NSNumber::numberWithLong_(static_cast<long>(block.size())),
                                 ns("meta.filesize"));
    index->setObject_forKeyPath_(NSNumber::numberWithInt_(1), ns("meta.maxid"));
    EXPECT_EQ(readFile(stem + ".vci"), archiveBytes(index));
}

TEST_F(ContainerCommandTest, CheckNamesWhatIsDamaged) {
    ASSERT_EQ(run("container store '" + stem + "'", R"({"k":"v"})").out, "1\n");
    ASSERT_EQ(run("container store '" + stem + "'", R"({"k":"w"})").out, "2\n");
    std::string data = readFile(stem + ".vcd");
    size_t second = data.size() / 2;
    // The first byte of the second block: its class name's length.
    data[second] = static_cast<char>(data[second] ^ 0x40);
    std::ofstream(stem + ".vcd", std::ios::binary | std::ios::trunc) << data;

    Result check = run("container check '" + stem + "'");
    EXPECT_EQ(check.status, 1);
    EXPECT_EQ(check.out, "damaged: object 2, block at " + std::to_string(second) + " of " +
                                 std::to_string(second) +
                                 " bytes, does not decode\n1 problem in 2 objects\n");
    Result dump = run("container dump '" + stem + "'");
    EXPECT_EQ(dump.status, 1);
    EXPECT_EQ(dump.out.rfind("{\"id\":1,", 0), 0u) << "the good objects are still shown";

    // A store that does not open: check says so, store changes nothing.
    std::ofstream(stem + ".vci", std::ios::binary | std::ios::trunc) << "junk";
    Result broken = run("container check '" + stem + "'", "", true);
    EXPECT_EQ(broken.status, 1);
    EXPECT_NE(broken.out.find("damaged store, left untouched"), std::string::npos) << broken.out;
    EXPECT_EQ(run("container store '" + stem + "'", R"({"k":"x"})").status, 1);
    EXPECT_EQ(readFile(stem + ".vci"), "junk");
    EXPECT_EQ(readFile(stem + ".vcd"), data);
}

// Reading a name that has no container is an error that creates nothing.
TEST_F(ContainerCommandTest, MissingContainerIsAnError) {
    std::string message = "vantor-admin: no container " + stem + ": neither " + stem + ".vci nor " +
                          stem + ".vcd holds one\n";
    for (const char* verb : {"dump", "check", "remove", "compact"}) {
        SCOPED_TRACE(verb);
        Result result = run(std::string("container ") + verb + " '" + stem + "'" +
                            (verb[0] == 'r' ? " 1" : ""));
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, message);
        EXPECT_EQ(access((stem + ".vci").c_str(), F_OK), -1);
        EXPECT_EQ(access((stem + ".vcd").c_str(), F_OK), -1);
    }
    EXPECT_EQ(run("container check '" + stem + "'").out,
              "damaged: the store does not open; see standard error\n");
}

// A container that holds nothing needs no data file: reading it makes
// none, and the next store does.
TEST_F(ContainerCommandTest, ReadingAnEmptiedContainerCreatesNoFile) {
    ASSERT_EQ(run("container store '" + stem + "'", "{\"a\": 1}").status, 0);
    ASSERT_EQ(run("container remove '" + stem + "' 1").status, 0);
    ASSERT_EQ(std::remove((stem + ".vcd").c_str()), 0);
    for (const char* verb : {"dump", "check"}) {
        SCOPED_TRACE(verb);
        EXPECT_EQ(run(std::string("container ") + verb + " '" + stem + "'").status, 0);
        EXPECT_EQ(access((stem + ".vcd").c_str(), F_OK), -1);
    }
    Result stored = run("container store '" + stem + "'", "{\"b\": 2}");
    EXPECT_EQ(stored.status, 0) << stored.err;
    EXPECT_EQ(run("container dump '" + stem + "'").out,
              "{\"id\":2,\"type\":\"NSMutableDictionary\",\"contents\":{\"b\":2}}\n");
}

// The readers replay the journal that a writing process has not yet
// written into the index; compact writes it in and drops the free space.
TEST_F(ContainerCommandTest, JournalIsReadAndCompactShrinksTheDataFile) {
    LXContainer* box = LXContainer::containerWithName_(ns(stem));
    std::string big(3000, 'x');
    for (int i = 1; i <= 40; i++) {
        NSMutableDictionary* record = NSMutableDictionary::dictionaryWithCapacity_(1);
        record->setObject_forKey_(ns(big + std::to_string(i)), ns("k"));
        ASSERT_EQ(box->set_(record), i);
        if (i != 7) box->delete_(record);
    }
    ASSERT_GT(box->journalLength(), 0);
    std::string index = readFile(stem + ".vci");
    Result dump = run("container dump '" + stem + "'");
    EXPECT_EQ(dump.status, 0);
    EXPECT_EQ(dump.out.rfind("{\"id\":7,", 0), 0u) << dump.out;
    EXPECT_EQ(dump.out.find('\n'), dump.out.size() - 1) << "one object";
    EXPECT_EQ(run("container check '" + stem + "'").status, 0);
    EXPECT_EQ(readFile(stem + ".vci"), index) << "reading writes nothing";

    long before = static_cast<long>(readFile(stem + ".vcd").size());
    Result compact = run("container compact '" + stem + "'");
    EXPECT_EQ(compact.status, 0) << compact.err;
    long after = static_cast<long>(readFile(stem + ".vcd").size());
    EXPECT_LT(after, 4000);
    EXPECT_EQ(compact.out, "compacted " + stem + ": 1 objects, " + std::to_string(before) + " -> " +
                                   std::to_string(after) + " bytes\n");
    EXPECT_EQ(access((stem + ".vcj").c_str(), F_OK), -1) << "the journal is in the index";
    EXPECT_EQ(run("container dump '" + stem + "'").out, dump.out);
}

// The JSON reader makes values: "$class" names a dictionary or set class,
// never a class by its fields.
TEST_F(ContainerCommandTest, JsonMakesValueClassesOnly) {
    for (const char* text :
         {R"({"k":{"$class":"LXContainer","name":"x"}})", R"({"k":{"$class":"NSObject"}})",
          R"({"k":{"$class":"LXDelta","$dict":{}}})"}) {
        SCOPED_TRACE(text);
        Result result = run("container store '" + stem + "'", text);
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.err.find("is not a dictionary or set class"), std::string::npos)
                << result.err;
    }
    EXPECT_EQ(run("archive encode", R"({"$class":"NSLock"})").status, 1);
    Result managed = run(
            "container store '" + stem + "'",
            R"({"m":{"$class":"LXManagedObject","$dict":{"a":1}},"c":{"$class":"NSCountedSet","$dict":{"x":2}}})");
    EXPECT_EQ(managed.status, 0) << managed.err;
    EXPECT_EQ(managed.out, "1\n");
}

}  // namespace
