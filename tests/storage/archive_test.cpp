// The archive format to the byte, round trips of every class with a body,
// the classes things read back as, and the reader's refusals.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "foundation/NSArray.h"
#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSData.h"
#include "foundation/NSDate.h"
#include "foundation/NSDictionary.h"
#include "foundation/NSNull.h"
#include "foundation/NSSet.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"
#include "tests/support/LogCapture.h"

namespace {

class Archive : public testing::Test {
protected:
    void SetUp() override { _pool = NSAutoreleasePool::alloc()->init(); }
    void TearDown() override { _pool->release(); }
    NSAutoreleasePool* _pool;
};

std::string hex(const std::string& bytes) {
    static const char k[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : bytes) {
        if (!out.empty()) out.push_back(' ');
        out.push_back(k[c >> 4]);
        out.push_back(k[c & 15]);
    }
    return out;
}

std::string bytesOf(NSData* data) {
    void* block = data->bytes();
    std::string out(static_cast<char*>(block), data->length());
    std::free(block);
    return out;
}

std::string archive(NSObject* object) {
    NSMutableData* data = NSMutableData::data();
    NSArchiver* archiver = NSArchiver::alloc()->initForWritingWithMutableData_(data);
    archiver->encodeRootObject_(object);
    archiver->release();
    return bytesOf(data);
}

// Decodes one object; it is retained into the current pool so that it
// outlives the unarchiver.
NSObject* unarchive(const std::string& bytes, uint32_t* end = nullptr) {
    NSData* data = NSData::dataWithBytes_length_(bytes.data(), static_cast<uint32_t>(bytes.size()));
    NSUnarchiver* unarchiver = NSUnarchiver::alloc()->initForReadingWithData_(data);
    NSObject* object = NSRetain(unarchiver->decodeObject());
    if (end) *end = unarchiver->pos();
    unarchiver->release();
    return NSAutorelease(object);
}

// Decoding that must fail: nil, and exactly this log line.
void expectRefused(const std::string& bytes, const std::string& line) {
    NSObject* object = nullptr;
    std::string out = vt_test::logOf([&] { object = unarchive(bytes); });
    EXPECT_EQ(object, nullptr) << hex(bytes);
    EXPECT_EQ(out, line + "\n") << hex(bytes);
}

std::string field(const std::string& bytes) {
    uint32_t n = static_cast<uint32_t>(bytes.size());
    std::string out{char(n), char(n >> 8), char(n >> 16), char(n >> 24)};
    return out + bytes;
}
std::string name(const char* text) { return field(std::string(text) + '\0'); }
std::string numberBytes(double value) {
    NSNumber* n = NSNumber::alloc()->initWithDouble_(value);
    std::string bytes = archive(n);
    n->release();
    return bytes;
}

NSString* str(const char* text) { return NSString::stringWithUTF8String_(text); }

TEST_F(Archive, WorkedBytes) {
    const std::string three =
            "09 00 00 00 4E 53 4E 75 6D 62 65 72 00 08 00 00 00 00 00 00 00 00 00 08 40";
    EXPECT_EQ(hex(archive(NSNumber::numberWithInt_(3))), three);
    const std::string abc = "09 00 00 00 4E 53 53 74 72 69 6E 67 00 04 00 00 00 61 62 63 00";
    EXPECT_EQ(hex(archive(str("abc"))), abc);
    // Written by its own class: a constant string says so.
    EXPECT_EQ(hex(archive("abc"_ns)).substr(0, 12), "11 00 00 00 ");
    const std::string zero =
            "09 00 00 00 4E 53 4E 75 6D 62 65 72 00 08 00 00 00 00 00 00 00 00 00 00 00";
    EXPECT_EQ(hex(archive(NSNull::null())), "07 00 00 00 4E 53 4E 75 6C 6C 00 " + zero);
    EXPECT_EQ(archive(NSNull::null()).size(), 36u);

    NSMutableArray* array = NSMutableArray::array();
    array->addObject_(str("abc"));
    std::string bytes = archive(array);
    ASSERT_EQ(bytes.size(), 65u);
    EXPECT_EQ(bytes.substr(0, 19), name("NSMutableArray"));
    EXPECT_EQ(hex(bytes.substr(19, 25)).substr(hex(bytes.substr(19, 25)).size() - 5), "F0 3F");
    EXPECT_EQ(hex(bytes.substr(44)), abc);

    // The empty string, empty data, the empty dictionary.
    EXPECT_EQ(hex(archive(str("")).substr(13)), "01 00 00 00 00");
    EXPECT_EQ(hex(archive(NSData::data()).substr(11)), "00 00 00 00");
    std::string empty = archive(NSMutableDictionary::dictionary());
    EXPECT_EQ(empty, name("NSMutableDictionary") + archive(NSNumber::numberWithInt_(0)));

    // Numbers are doubles whatever they were made from.
    EXPECT_EQ(archive(NSNumber::numberWithBool_(true)), archive(NSNumber::numberWithDouble_(1.0)));
    EXPECT_EQ(hex(archive(NSNumber::numberWithDouble_(-2.5)).substr(17)),
              "00 00 00 00 00 00 04 C0");
}

TEST_F(Archive, DictionariesAndSetsInEnumerationOrder) {
    // a and k share bucket 6 of 10, so they keep their order of insertion;
    // b (727, bucket 7) follows them wherever it was added.
    NSMutableDictionary* d = NSMutableDictionary::dictionaryWithCapacity_(10);
    d->setObject_forKey_(str("1"), str("b"));
    d->setObject_forKey_(str("2"), str("k"));
    d->setObject_forKey_(str("3"), str("a"));
    std::string expected = name("NSMutableDictionary") + archive(NSNumber::numberWithInt_(3)) +
                           archive(str("k")) + archive(str("2")) + archive(str("a")) +
                           archive(str("3")) + archive(str("b")) + archive(str("1"));
    EXPECT_EQ(archive(d), expected);

    NSMutableSet* set = NSMutableSet::set();
    set->addObject_(str("abc"));
    std::string setBytes = archive(set);
    EXPECT_EQ(setBytes, name("NSMutableSet") + name("NSMutableDictionary") +
                                archive(NSNumber::numberWithInt_(1)) + archive(str("abc")) +
                                archive(NSNull::null()));

    // The same string twice is written twice in full.
    NSMutableArray* twice = NSMutableArray::array();
    twice->addObject_(str("x"));
    twice->addObject_(twice->objectAtIndex_(0));
    EXPECT_EQ(archive(twice), name("NSMutableArray") + archive(NSNumber::numberWithInt_(2)) +
                                      archive(str("x")) + archive(str("x")));
}

TEST_F(Archive, RoundTripsAndReadBackClasses) {
    // Strings: a constant string comes back as a plain NSString.
    NSObject* s = unarchive(archive("caf\xC3\xA9"_ns));
    ASSERT_NE(s, nullptr);
    EXPECT_TRUE(s->isMemberOfClass_(NSString::classObject()));
    EXPECT_TRUE(s->isEqual_("caf\xC3\xA9"_ns));
    EXPECT_EQ(archive(s).substr(0, 13), name("NSString"));
    NSObject* m = unarchive(archive(NSMutableString::stringWithUTF8String_("m")));
    EXPECT_TRUE(m->isMemberOfClass_(NSMutableString::classObject()));

    // Numbers are doubles; accessors convert.
    auto* n = static_cast<NSNumber*>(unarchive(archive(NSNumber::numberWithDouble_(-2.7))));
    EXPECT_EQ(n->doubleValue(), -2.7);
    EXPECT_EQ(n->intValue(), -2);

    // Data, with bytes of every value, and empty data.
    std::string all;
    for (int c = 0; c < 256; c++) all.push_back(static_cast<char>(c));
    auto* data = static_cast<NSData*>(
            unarchive(archive(NSData::dataWithBytes_length_(all.data(), 256))));
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(bytesOf(data), all);
    EXPECT_EQ(static_cast<NSData*>(unarchive(archive(NSData::data())))->length(), 0u);

    // The shared null by identity.
    EXPECT_EQ(unarchive(archive(NSNull::null())), NSNull::null());

    // Arrays of any class come back as NSMutableArray with count capacity.
    NSArray* fixed = static_cast<NSArray*>(
            NSAutorelease(NSArray::alloc()->initWithObjects_(str("a"), str("b"), nullptr)));
    NSObject* a = unarchive(archive(fixed));
    ASSERT_NE(a, nullptr);
    EXPECT_TRUE(a->isMemberOfClass_(NSMutableArray::classObject()));
    EXPECT_TRUE(a->isEqual_(fixed));
    NSNumber* capacity = static_cast<NSNumber*>(a->valueForKey_(str("capacity")));
    ASSERT_NE(capacity, nullptr);
    EXPECT_EQ(capacity->intValue(), 2);

    // Dates: whole seconds, read through their text.
    NSDate* date = NSDate::dateWithString_(str("2024-01-31 09:30:00 +0100"));
    VTSystemTime t = date->systemTime();
    t.milliseconds = 517;
    NSDate* precise = static_cast<NSDate*>(NSAutorelease(NSDate::alloc()->initWithSystemTime_(t)));
    NSObject* back = unarchive(archive(precise));
    ASSERT_NE(back, nullptr);
    EXPECT_TRUE(back->isKindOfClass_(NSDate::classObject()));
    EXPECT_TRUE(back->isEqual_(date));
    EXPECT_EQ(static_cast<NSDate*>(back)->systemTime().milliseconds, 0);
    EXPECT_EQ(archive(precise), name("NSDate") + name("NSMutableString") +
                                        field(std::string("2024-01-31 09:30:00 +0100") + '\0'));

    // Dictionaries get one bucket per entry (10 when empty), and nested
    // values survive.
    NSMutableDictionary* d = NSMutableDictionary::dictionaryWithCapacity_(1024);
    for (int i = 0; i < 7; i++)
        d->setObject_forKey_(NSNumber::numberWithInt_(i * i),
                             NSString::stringWithFormat_("k%d", i));
    d->setObject_forKey_(fixed, str("list"));
    auto* dBack = static_cast<NSDictionary*>(unarchive(archive(d)));
    ASSERT_NE(dBack, nullptr);
    EXPECT_TRUE(dBack->isMemberOfClass_(NSMutableDictionary::classObject()));
    EXPECT_EQ(dBack->bucketCount(), 8u);
    EXPECT_TRUE(dBack->isEqual_(d));
    auto* empty = static_cast<NSDictionary*>(
            unarchive(archive(NSMutableDictionary::dictionaryWithCapacity_(3))));
    EXPECT_EQ(empty->bucketCount(), 10u);
    EXPECT_EQ(empty->count(), 0u);

    // A set of one member maps it to the shared null; a counted set keeps
    // its counts.
    NSMutableSet* set = NSMutableSet::set();
    set->addObject_(str("m"));
    auto* setBack = static_cast<NSSet*>(unarchive(archive(set)));
    ASSERT_NE(setBack, nullptr);
    EXPECT_TRUE(setBack->isMemberOfClass_(NSMutableSet::classObject()));
    EXPECT_EQ(setBack->dict()->objectForKey_(str("m")), NSNull::null());
    EXPECT_EQ(setBack->dict()->bucketCount(), 1u);
    NSCountedSet* counted =
            static_cast<NSCountedSet*>(NSAutorelease(NSCountedSet::alloc()->init()));
    counted->addObject_(str("x"));
    counted->addObject_(str("x"));
    auto* countedBack = static_cast<NSCountedSet*>(unarchive(archive(counted)));
    ASSERT_NE(countedBack, nullptr);
    EXPECT_TRUE(countedBack->isMemberOfClass_(NSCountedSet::classObject()));
    EXPECT_EQ(countedBack->countForObject_(str("x")), 2u);
}

TEST_F(Archive, ObjectsWithoutABody) {
    // The name alone is written; reading logs and gives nil, and a nil
    // dictionary value removes its entry, without unsettling the stream.
    NSObject* plain = NSAutorelease(NSObject::alloc()->init());
    std::string bytes = {};
    EXPECT_EQ(vt_test::logOf([&] { bytes = archive(plain); }), "encodeWithCoder -- abstract!\n");
    EXPECT_EQ(bytes, name("NSObject"));

    std::string dict = name("NSMutableDictionary") + archive(NSNumber::numberWithInt_(2)) +
                       archive(str("gone")) + name("NSObject") + archive(str("kept")) +
                       archive(str("v"));
    uint32_t end = 0;
    NSDictionary* d = nullptr;
    EXPECT_EQ(vt_test::logOf([&] { d = static_cast<NSDictionary*>(unarchive(dict, &end)); }),
              "initWithCoder -- abstract!\n");
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(d->count(), 1u);
    EXPECT_TRUE(d->objectForKey_(str("kept"))->isEqual_(str("v")));
    EXPECT_EQ(end, dict.size());
}

// A refusal names the byte where the offending field begins: for a
// malformed body, the last field that was read.
TEST_F(Archive, MalformedArchivesAreRefused) {
    std::string abc = archive(str("abc"));
    expectRefused("", "NSUnarchiver: length field past the end at byte 0");
    expectRefused(abc.substr(0, 3), "NSUnarchiver: length field past the end at byte 0");
    expectRefused(abc.substr(0, 20), "NSUnarchiver: field of 4 bytes past the end at byte 13");
    expectRefused(name("NSNumber") + std::string("\x08\0\0\0abc", 7),
                  "NSUnarchiver: field of 8 bytes past the end at byte 13");
    std::string huge = abc;
    huge[13] = huge[14] = huge[15] = huge[16] = '\xff';
    expectRefused(huge, "NSUnarchiver: field of 4294967295 bytes past the end at byte 13");
    expectRefused(name("NSNumber") + field("1234567"),
                  "NSUnarchiver: number field that is not 8 bytes long at byte 13");
    expectRefused(name("NSNoSuch\x01") + abc, "NSUnarchiver: unknown class 'NSNoSuch?' at byte 0");
    expectRefused(field("") + abc, "NSUnarchiver: unknown class '' at byte 0");

    // Counts: not a number, not whole, more than the bytes could hold.
    expectRefused(name("NSArray") + abc, "NSUnarchiver: count that is not a number at byte 25");
    expectRefused(name("NSArray") + numberBytes(1.5) + abc,
                  "NSUnarchiver: count that is not a whole number at byte 25");
    expectRefused(name("NSArray") + numberBytes(-1) + abc,
                  "NSUnarchiver: count that is not a whole number at byte 25");
    expectRefused(name("NSMutableDictionary") + numberBytes(2147483648.0),
                  "NSUnarchiver: count larger than the rest of the archive at byte 37");
    expectRefused(name("NSArray") + numberBytes(5) + abc + abc,
                  "NSUnarchiver: length field past the end at byte 79");
    // The same for dictionaries (a key and a value per entry) and for the
    // dictionary inside a set; no slot is allocated for a count refused.
    expectRefused(name("NSMutableDictionary") + numberBytes(-3) + abc + abc,
                  "NSUnarchiver: count that is not a whole number at byte 37");
    expectRefused(name("NSMutableDictionary") + numberBytes(0.0 / 0.0),
                  "NSUnarchiver: count that is not a whole number at byte 37");
    expectRefused(name("NSMutableDictionary") + numberBytes(1e300),
                  "NSUnarchiver: count that is not a whole number at byte 37");
    expectRefused(name("NSMutableDictionary") + numberBytes(5) + abc + abc,
                  "NSUnarchiver: count larger than the rest of the archive at byte 37");
    expectRefused(name("NSMutableDictionary") + numberBytes(2) + abc + abc + abc,
                  "NSUnarchiver: length field past the end at byte 112");
    expectRefused(name("NSMutableSet") + name("NSMutableDictionary") + numberBytes(4294967295.0),
                  "NSUnarchiver: count larger than the rest of the archive at byte 54");
    expectRefused(name("NSMutableArray") + numberBytes(4294967296.0),
                  "NSUnarchiver: count that is not a whole number at byte 32");

    // A failure deep inside makes the whole tree nil.
    NSMutableArray* outer = NSMutableArray::array();
    NSMutableDictionary* inner = NSMutableDictionary::dictionary();
    inner->setObject_forKey_(NSNumber::numberWithInt_(1), str("one"));
    outer->addObject_(inner);
    outer->addObject_(str("tail"));
    std::string good = archive(outer);
    std::string bad = good;
    size_t at = bad.find(numberBytes(1).substr(13), 60);
    ASSERT_NE(at, std::string::npos);
    bad[at] = 7;  // the value's number field now claims 7 bytes
    EXPECT_NE(unarchive(good), nullptr);
    EXPECT_EQ(
            vt_test::logOf([&] { EXPECT_EQ(unarchive(bad), nullptr); }).rfind("NSUnarchiver: ", 0),
            0u);

    // Dates and sets check the shape of what they take.
    expectRefused(name("NSDate") + archive(str("2024-01-31")),
                  "NSUnarchiver: date that is not a date text at byte 24");
    expectRefused(name("NSMutableSet") + archive(str("x")),
                  "NSUnarchiver: set whose dict is not a mutable dictionary at byte 30");
}

TEST_F(Archive, NestingIsLimited) {
    const std::string level = name("NSArray") + numberBytes(1);
    auto nested = [&level](uint32_t levels) {
        std::string bytes;
        for (uint32_t i = 0; i < levels - 1; i++) bytes += level;
        return bytes + archive(str("leaf"));
    };
    // The count objects nest one level below their array, as do the
    // elements: an array chain of d arrays is d + 1 levels deep.
    EXPECT_NE(unarchive(nested(NSUnarchiver::kMaxDepth)), nullptr);
    std::string out = vt_test::logOf(
            [&] { EXPECT_EQ(unarchive(nested(NSUnarchiver::kMaxDepth + 1)), nullptr); });
    EXPECT_EQ(out.rfind("NSUnarchiver: objects nested deeper than 1000 at byte ", 0), 0u) << out;
    // Far deeper input is refused as cheaply.
    vt_test::logOf([&] { EXPECT_EQ(unarchive(nested(200000)), nullptr); });
}

TEST_F(Archive, DecodedObjectsBelongToTheUnarchiver) {
    NSMutableArray* list = NSMutableArray::array();
    list->addObject_(str("a"));
    std::string bytes = archive(list);
    NSData* data = NSData::dataWithBytes_length_(bytes.data(), static_cast<uint32_t>(bytes.size()));
    NSUnarchiver* unarchiver = NSUnarchiver::alloc()->initForReadingWithData_(data);
    NSObject* object = unarchiver->decodeObject();
    // The count, the element, the array, in order of completion.
    NSMutableArray* decoded = unarchiver->decodedObjects();
    ASSERT_EQ(decoded->count(), 3u);
    EXPECT_EQ(decoded->objectAtIndex_(2), object);
    EXPECT_EQ(object->retainCount(), 1u);
    EXPECT_EQ(unarchiver->pos(), bytes.size());
    // Past the end: the next object is refused, the first stays valid.
    vt_test::logOf([&] { EXPECT_EQ(unarchiver->decodeObject(), nullptr); });
    object->retain();
    unarchiver->release();
    EXPECT_EQ(static_cast<NSArray*>(object)->count(), 1u);
    object->release();
}

TEST_F(Archive, Files) {
    std::string path = testing::TempDir() + "vantor_archive_test.bin";
    NSString* p = NSString::stringWithUTF8String_(path.c_str());
    NSMutableDictionary* d = NSMutableDictionary::dictionary();
    d->setObject_forKey_(str("v"), str("k"));
    ASSERT_TRUE(NSArchiver::archiveRootObject_toFile_(d, p));
    NSObject* back = NSUnarchiver::unarchiveObjectWithFile_(p);
    ASSERT_NE(back, nullptr);
    EXPECT_TRUE(back->isEqual_(d));
    EXPECT_EQ(back->retainCount(), 1u);  // held by the pool alone
    std::FILE* tmp = std::fopen((path + ".tmp").c_str(), "rb");
    EXPECT_EQ(tmp, nullptr);
    if (tmp) std::fclose(tmp);

    std::FILE* f = std::fopen(path.c_str(), "wb");
    std::fclose(f);
    EXPECT_EQ(NSUnarchiver::unarchiveObjectWithFile_(p), nullptr);
    std::remove(path.c_str());
    EXPECT_EQ(NSUnarchiver::unarchiveObjectWithFile_(p), nullptr);
    EXPECT_FALSE(NSArchiver::archiveRootObject_toFile_(d, str("/nonexistent-dir/x")));
}

TEST_F(Archive, AbstractCoder) {
    NSCoder* coder = static_cast<NSCoder*>(NSCoder::classObject()->alloc()->init());
    uint32_t length = 7;
    EXPECT_EQ(vt_test::logOf([&] {
                  coder->encodeObject_(str("x"));
                  EXPECT_EQ(coder->decodeObject(), nullptr);
                  coder->encodeBytes_length_("x", 1);
                  EXPECT_EQ(coder->decodeBytesWithReturnedLength_(&length), nullptr);
              }),
              "encodeObject -- abstract!\ndecodeObject -- abstract!\nencodeBytes -- abstract!\n"
              "decodeBytes -- abstract!\n");
    coder->release();
}

}  // namespace
