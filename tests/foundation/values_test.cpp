// Values: numbers (binary64, hash and description at the edges), wrapped
// pointers, the shared null, byte buffers with their files, and dates with
// their calendar arithmetic, checked against the C library's UTC calendar.
#include <gtest/gtest.h>
#if !defined(_WIN32)
#include <sys/mount.h>
#endif
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "foundation/Foundation.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestSupport.h"

namespace {

class Values : public ::testing::Test {
protected:
    void SetUp() override { pool = NSAutoreleasePool::alloc()->init(); }
    void TearDown() override { pool->release(); }
    NSAutoreleasePool* pool = nullptr;
};

std::string str(NSString* s) { return s ? s->UTF8String() : "(nil)"; }

// ---------------------------------------------------------------------------
// Numbers

using Numbers = Values;

TEST_F(Numbers, DescriptionIsIntegerOnlyWhenTheValueEqualsItsIntValue) {
    EXPECT_EQ(str(NSNumber::numberWithInt_(2)->description()), "2");
    EXPECT_EQ(str(NSNumber::numberWithDouble_(2.5)->description()), "2.500000");
    EXPECT_EQ(str(NSNumber::numberWithDouble_(0.1)->description()), "0.100000");
    EXPECT_EQ(str(NSNumber::numberWithInt_(-3)->description()), "-3");
    EXPECT_EQ(str(NSNumber::numberWithDouble_(-3.0)->description()), "-3");
    EXPECT_EQ(str(NSNumber::numberWithDouble_(-2.5)->description()), "-2.500000");
    EXPECT_EQ(str(NSNumber::numberWithDouble_(-0.0)->description()), "0");
    EXPECT_EQ(str(NSNumber::numberWithBool_(true)->description()), "1");
    // The ends of the 32-bit range print as integers, one step beyond not.
    EXPECT_EQ(str(NSNumber::numberWithInt_(INT32_MIN)->description()), "-2147483648");
    EXPECT_EQ(str(NSNumber::numberWithInt_(INT32_MAX)->description()), "2147483647");
    EXPECT_EQ(str(NSNumber::numberWithDouble_(2147483648.0)->description()), "2147483648.000000");
    EXPECT_EQ(str(NSNumber::numberWithDouble_(-2147483649.0)->description()), "-2147483649.000000");
    EXPECT_EQ(str(NSNumber::numberWithLong_(3000000000L)->description()), "3000000000.000000");
    EXPECT_EQ(str(NSNumber::numberWithDouble_(1e20)->description()),
              "100000000000000000000.000000");
}

TEST_F(Numbers, IntValueTruncatesTowardsZeroAndFallsToTheLowestIntegerOutOfRange) {
    EXPECT_EQ(NSNumber::numberWithDouble_(-2.7)->intValue(), -2);
    EXPECT_EQ(NSNumber::numberWithDouble_(2.7)->intValue(), 2);
    EXPECT_EQ(NSNumber::numberWithDouble_(2147483647.9)->intValue(), INT32_MAX);
    EXPECT_EQ(NSNumber::numberWithDouble_(-2147483648.9)->intValue(), INT32_MIN);
    EXPECT_EQ(NSNumber::numberWithDouble_(2147483648.0)->intValue(), INT32_MIN);
    EXPECT_EQ(NSNumber::numberWithDouble_(-3e9)->intValue(), INT32_MIN);
    EXPECT_EQ(NSNumber::numberWithDouble_(std::nan(""))->intValue(), INT32_MIN);
    EXPECT_EQ(NSNumber::numberWithLong_(5000000000L)->longValue(), INT32_MIN);
    // Beyond 2^53 a long loses precision on entry.
    EXPECT_EQ(NSNumber::numberWithLong_((int64_t{1} << 53) + 1)->doubleValue(), 9007199254740992.0);
}

TEST_F(Numbers, BoolValueIsTrueOnlyForAnIntValueOfExactlyOne) {
    NSNumber* seven = NSNumber::numberWithBool_(7);
    EXPECT_EQ(seven->intValue(), 1);
    EXPECT_TRUE(seven->boolValue());
    EXPECT_FALSE(NSNumber::numberWithBool_(false)->boolValue());
    EXPECT_FALSE(NSNumber::numberWithInt_(2)->boolValue());
    EXPECT_FALSE(NSNumber::numberWithInt_(-1)->boolValue());
    EXPECT_TRUE(NSNumber::numberWithDouble_(1.9)->boolValue());
}

TEST_F(Numbers, HashIsTheLow32BitsOfTheTruncatedValue) {
    EXPECT_EQ(NSNumber::numberWithInt_(5)->hash(), 5u);
    EXPECT_EQ(NSNumber::numberWithDouble_(5.9)->hash(), 5u);
    EXPECT_EQ(NSNumber::numberWithInt_(-1)->hash(), 0xFFFFFFFFu);
    EXPECT_EQ(NSNumber::numberWithDouble_(-0.5)->hash(), 0u);
    EXPECT_EQ(NSNumber::numberWithInt_(-3)->hash(), NSNumber::numberWithDouble_(-3.0)->hash());
    // Beyond 32 bits the high half drops away.
    EXPECT_EQ(NSNumber::numberWithLong_((int64_t{1} << 32) + 7)->hash(), 7u);
    EXPECT_EQ(NSNumber::numberWithLong_(-(int64_t{1} << 33) - 1)->hash(), 0xFFFFFFFFu);
    EXPECT_EQ(NSNumber::numberWithDouble_(3e9)->hash(), 3000000000u);
    // Beyond 64 bits and not-a-number: the lowest 64-bit integer, low half 0.
    EXPECT_EQ(NSNumber::numberWithDouble_(1e20)->hash(), 0u);
    EXPECT_EQ(NSNumber::numberWithDouble_(-1e20)->hash(), 0u);
    EXPECT_EQ(NSNumber::numberWithDouble_(std::nan(""))->hash(), 0u);
}

TEST_F(Numbers, EqualityAndOrder) {
    NSNumber* minusThree = NSNumber::numberWithInt_(-3);
    EXPECT_TRUE(minusThree->isEqual_(NSNumber::numberWithDouble_(-3.0)));
    EXPECT_FALSE(minusThree->isEqual_(NSNumber::numberWithDouble_(-3.000001)));
    EXPECT_FALSE(minusThree->isEqual_(nullptr));
    EXPECT_FALSE(minusThree->isEqual_("-3"_ns));
    NSNumber* zero = NSNumber::numberWithInt_(0);
    EXPECT_FALSE(zero->isEqualToNumber_(nullptr));
    EXPECT_FALSE(zero->isEqual_(NSValue::valueWithPointer_(nullptr)));
    NSNumber* nan = NSNumber::numberWithDouble_(std::nan(""));
    EXPECT_FALSE(nan->isEqual_(nan));
    EXPECT_EQ(NSNumber::numberWithDouble_(1.5)->compare_(NSNumber::numberWithInt_(2)), -1);
    EXPECT_EQ(NSNumber::numberWithInt_(2)->compare_(NSNumber::numberWithDouble_(1.5)), 1);
    EXPECT_EQ(NSNumber::numberWithInt_(2)->compare_(NSNumber::numberWithDouble_(2.0)), 0);
    EXPECT_EQ(NSNumber::numberWithInt_(-2)->compare_(nullptr), -1);
}

TEST_F(Numbers, AnswerOnlyTheirDocumentedOperationsByName) {
    NSNumber* n = NSNumber::numberWithDouble_(2.5);
    EXPECT_FALSE(n->respondsToSelector_(NS_SEL("floatValue")));
    EXPECT_FALSE(n->respondsToSelector_(NS_SEL("stringValue")));
    EXPECT_EQ(NSSend<int>(n, NS_SEL("intValue")), 2);
    EXPECT_EQ(NSSend<double>(n, NS_SEL("doubleValue")), 2.5);
    NSNumber* made =
            NSSendClass<NSNumber*>(NSNumber::classObject(), NS_SEL("numberWithDouble:"), -0.25);
    EXPECT_EQ(str(made->description()), "-0.250000");
}

// ---------------------------------------------------------------------------
// Wrapped pointers and the shared null

using Pointers = Values;

TEST_F(Pointers, EqualHashAndDescribeByThePointer) {
    int a = 0, b = 0;
    NSValue* va = NSValue::valueWithPointer_(&a);
    EXPECT_EQ(va->pointerValue(), &a);
    EXPECT_TRUE(va->isEqual_(NSValue::valueWithPointer_(&a)));
    EXPECT_FALSE(va->isEqual_(NSValue::valueWithPointer_(&b)));
    EXPECT_FALSE(va->isEqual_(nullptr));
    EXPECT_EQ(va->hash(), static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&a)));
    EXPECT_EQ(str(NSValue::valueWithPointer_(reinterpret_cast<void*>(-5))->description()), "-5");
    EXPECT_EQ(
            str(NSValue::valueWithPointer_(reinterpret_cast<void*>(0x123456789AL))->description()),
            "78187493530");

    // As dictionary keys, equal pointers find the same entry.
    NSMutableDictionary* map = NSMutableDictionary::dictionaryWithCapacity_(10);
    map->setObject_forKey_("a"_ns, NSValue::valueWithPointer_(&a));
    EXPECT_EQ(map->objectForKey_(NSValue::valueWithPointer_(&a)), "a"_ns);
    EXPECT_EQ(map->objectForKey_(NSValue::valueWithPointer_(&b)), nullptr);
}

TEST_F(Pointers, FreeOnReleaseFreesTheBlockOnlyWhenAsked) {
    // The sanitizer build reports the block as leaked if the value doesn't
    // free it, and a bad free if a value without the flag does.
    void* block = std::malloc(64);
    NSValue::alloc()->initWithPointer_freeOnRelease_(block, true)->release();
    int onStack = 0;
    NSValue::alloc()->initWithPointer_(&onStack)->release();
    NSValue::valueWithPointer_freeOnRelease_(std::malloc(16), true);
}

TEST_F(Pointers, TheSharedNullIsOneInstanceThatIgnoresRelease) {
    NSNull* null = NSNull::null();
    ASSERT_NE(null, nullptr);
    EXPECT_EQ(NSNull::null(), null);
    EXPECT_EQ(NSSendClass<NSObject*>(NSNull::classObject(), NS_SEL("null")), null);
    uint32_t count = null->retainCount();
    for (int i = 0; i < 5; i++) null->release();
    null->retain();
    null->autorelease();
    EXPECT_EQ(null->retainCount(), count);
    EXPECT_EQ(str(null->description()), "<NSNull>");
    EXPECT_EQ(str(NSSend<NSString*>(null, NS_SEL("description"))), "<NSNull>");
}

// ---------------------------------------------------------------------------
// Byte buffers

using Data = Values;

std::string contents(NSData* data) {
    char* bytes = static_cast<char*>(data->bytes());
    std::string s(bytes, data->length());
    std::free(bytes);
    return s;
}

std::string pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; i++) s[i] = static_cast<char>((i * 7 + i / 251) & 0xFF);
    return s;
}

TEST_F(Data, CapacityStartsAt1024AndOnlyDoubles) {
    NSMutableData* data = NSMutableData::data();
    EXPECT_EQ(data->capacity(), 1024u);
    EXPECT_EQ(data->length(), 0u);
    std::string a = pattern(1024);
    data->appendBytes_length_(a.data(), 1024);
    EXPECT_EQ(data->capacity(), 1024u);
    data->appendBytes_length_("x", 1);
    EXPECT_EQ(data->capacity(), 2048u);

    NSMutableData* other = NSMutableData::data();
    std::string b = pattern(1500);
    other->appendData_(NSData::dataWithBytes_length_(b.data(), 1500));
    EXPECT_EQ(other->capacity(), 2048u);
    EXPECT_EQ(contents(other), b);

    NSData* big = NSData::dataWithBytes_length_(pattern(5000).data(), 5000);
    EXPECT_EQ(big->capacity(), 8192u);
    big->enlarge();
    EXPECT_EQ(big->capacity(), 16384u);
    EXPECT_EQ(contents(big), pattern(5000));
    EXPECT_EQ(NSSend<uint32_t>(big, NS_SEL("length")), 5000u);
}

TEST_F(Data, BytesHandsOutAFreshCopyEveryTime) {
    NSData* empty = NSData::data();
    void* block = empty->bytes();
    ASSERT_NE(block, nullptr);
    std::free(block);

    NSData* data = NSData::dataWithBytes_length_("abcdef", 6);
    char* first = static_cast<char*>(data->bytes());
    char* second = static_cast<char*>(data->bytes());
    EXPECT_NE(first, second);
    first[0] = 'X';
    EXPECT_EQ(std::string(second, 6), "abcdef");
    EXPECT_EQ(contents(data), "abcdef");
    std::free(first);
    std::free(second);
}

TEST_F(Data, RangesCopiesAndAppends) {
    NSData* data = NSData::dataWithBytes_length_("0123456789", 10);
    char buffer[4] = {};
    data->getBytes_range_(buffer, NSMakeRange(3, 4));
    EXPECT_EQ(std::string(buffer, 4), "3456");
    NSData* sub = data->subdataWithRange_(NSMakeRange(8, 2));
    EXPECT_TRUE(sub->isMemberOfClass_(NSData::classObject()));
    EXPECT_EQ(contents(sub), "89");
    EXPECT_EQ(data->subdataWithRange_(NSMakeRange(10, 0))->length(), 0u);

    // Equality is identity, as for any object.
    EXPECT_FALSE(data->isEqual_(NSData::dataWithData_(data)));
    EXPECT_EQ(contents(NSData::dataWithData_(data)), "0123456789");

    NSMutableData* copy = static_cast<NSMutableData*>(data->mutableCopy());
    EXPECT_TRUE(copy->isMemberOfClass_(NSMutableData::classObject()));
    copy->appendBytes_length_("ab", 2);
    EXPECT_EQ(contents(data), "0123456789");
    NSMutableData* copyOfCopy = static_cast<NSMutableData*>(copy->copy());
    EXPECT_NE(copyOfCopy, copy);
    copy->appendData_(copy);
    EXPECT_EQ(contents(copy), "0123456789ab0123456789ab");
    EXPECT_EQ(contents(copyOfCopy), "0123456789ab");
    copy->appendData_(nullptr);
    copy->appendBytes_length_(nullptr, 0);
    // Sent by selector, an argument that is no data appends nothing.
    NSSend<void>(copy, NS_SEL("appendData:"), "xy"_ns);
    EXPECT_EQ(copy->length(), 24u);
    EXPECT_EQ(
            NSSendClass<NSData*>(NSData::classObject(), NS_SEL("dataWithData:"), "xy"_ns)->length(),
            0u);
    copyOfCopy->release();
    copy->release();

    // The class forms of mutable data answer mutable data.
    EXPECT_TRUE(NSMutableData::dataWithBytes_length_("a", 1)->isMemberOfClass_(
            NSMutableData::classObject()));
    EXPECT_TRUE(NSSendClass<NSObject*>(NSMutableData::classObject(), NS_SEL("data"))
                        ->isMemberOfClass_(NSMutableData::classObject()));
}

// Byte buffers and their files. The failures are made with what Linux
// offers (/dev/full, a tmpfs mount, symbolic links), so the Windows build
// leaves this part out.
#if !defined(_WIN32)
class DataFiles : public Values {
protected:
    void SetUp() override {
        Values::SetUp();
        dir = vt_test::makeTempDir("vantor-values");
        ASSERT_FALSE(dir.empty());
    }
    void TearDown() override {
        if (mounted) umount(mountPoint.c_str());
        vt_test::removeTree(dir);
        Values::TearDown();
    }
    std::string path(const char* name) { return dir + "/" + name; }
    NSString* ns(const std::string& s) { return NSString::stringWithUTF8String_(s.c_str()); }
    static std::string readFile(const std::string& p) {
        std::ifstream in(p, std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }
    static void writeFile(const std::string& p, const std::string& bytes) {
        std::ofstream out(p, std::ios::binary);
        out << bytes;
    }
    static bool exists(const std::string& p) { return access(p.c_str(), F_OK) == 0; }

    std::string dir;
    std::string mountPoint;
    bool mounted = false;
};

TEST_F(DataFiles, ReadBackWholeAroundTheChunkSize) {
    for (size_t size : {0, 1, 4095, 4096, 4097, 8192, 12345}) {
        std::string p = path("chunk.bin");
        writeFile(p, pattern(size));
        NSData* data = NSData::dataWithContentsOfFile_(ns(p));
        EXPECT_EQ(data->length(), size) << size;
        EXPECT_EQ(contents(data), pattern(size)) << size;
        // At least 4096 bytes of room, and the capacity is still 1024 * 2^k.
        EXPECT_GE(data->capacity(), 4096u);
        EXPECT_EQ(data->capacity() & (data->capacity() - 1), 0u);
    }
    NSData* missing = NSData::dataWithContentsOfFile_(ns(path("missing")));
    ASSERT_NE(missing, nullptr);
    EXPECT_EQ(missing->length(), 0u);
    EXPECT_EQ(NSData::dataWithContentsOfFile_(nullptr)->length(), 0u);
}

TEST_F(DataFiles, WriteDirectlyAndAtomically) {
    std::string p = path("out.bin");
    NSData* data = NSData::dataWithBytes_length_(pattern(5000).data(), 5000);
    EXPECT_TRUE(data->writeToFile_atomically_(ns(p), false));
    EXPECT_EQ(readFile(p), pattern(5000));
    EXPECT_FALSE(exists(p + ".tmp"));

    // Atomically over an existing file: replaced, and no ".tmp" is left.
    NSData* next = NSData::dataWithBytes_length_("new", 3);
    EXPECT_TRUE(next->writeToFile_atomically_(ns(p), true));
    EXPECT_EQ(readFile(p), "new");
    EXPECT_FALSE(exists(p + ".tmp"));

    EXPECT_TRUE(NSData::data()->writeToFile_atomically_(ns(p), true));
    EXPECT_EQ(readFile(p), "");

    EXPECT_FALSE(data->writeToFile_atomically_(ns(path("no/such/dir/file")), false));
    EXPECT_FALSE(data->writeToFile_atomically_(nullptr, true));
}

TEST_F(DataFiles, AFailedAtomicWriteLeavesTheOldFileInPlace) {
    // A real full disk. /dev/full behind the ".tmp" name fails every write
    // with ENOSPC; a few bytes sit in the runtime library's buffer until the
    // file is closed, so that is where their failure shows.
    std::string p = path("records.bin");
    writeFile(p, "old contents");
    ASSERT_EQ(symlink("/dev/full", (p + ".tmp").c_str()), 0);
    for (uint32_t size : {4u, 64u * 1024}) {
        NSData* data = NSData::dataWithBytes_length_(pattern(size).data(), size);
        // Stop at once otherwise: the path would now be the link to /dev/full.
        ASSERT_FALSE(data->writeToFile_atomically_(ns(p), true)) << size;
        EXPECT_EQ(readFile(p), "old contents") << size;
        // The ".tmp" stays behind, as the failure leaves it.
        EXPECT_TRUE(exists(p + ".tmp"));
    }
}

TEST_F(DataFiles, AWriteThatFillsTheDiskLeavesTheOldFileInPlace) {
    // A tiny file system of its own, where this process may mount one.
    mountPoint = path("tiny");
    ASSERT_EQ(mkdir(mountPoint.c_str(), 0755), 0);
    mounted = mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=8k") == 0;
    if (!mounted)
        GTEST_SKIP() << "no tmpfs can be mounted here (needs CAP_SYS_ADMIN); /dev/full covers the "
                        "failure";
    std::string p = mountPoint + "/records.bin";
    writeFile(p, "old contents");
    NSData* data = NSData::dataWithBytes_length_(pattern(64 * 1024).data(), 64 * 1024);
    EXPECT_FALSE(data->writeToFile_atomically_(ns(p), true));
    EXPECT_EQ(readFile(p), "old contents");
    EXPECT_TRUE(exists(p + ".tmp"));
    // Once there is room again the same write goes through and replaces it.
    ASSERT_EQ(unlink((p + ".tmp").c_str()), 0);
    NSData* fits = NSData::dataWithBytes_length_("new contents", 12);
    EXPECT_TRUE(fits->writeToFile_atomically_(ns(p), true));
    EXPECT_EQ(readFile(p), "new contents");
    EXPECT_FALSE(exists(p + ".tmp"));
}

TEST_F(DataFiles, AFailedOpenOrRenameFailsTheWrite) {
    std::string p = path("records.bin");
    writeFile(p, "old");
    // The temporary name is taken by a directory: it can't be opened.
    ASSERT_EQ(mkdir((p + ".tmp").c_str(), 0755), 0);
    EXPECT_FALSE(NSData::dataWithBytes_length_("new", 3)->writeToFile_atomically_(ns(p), true));
    EXPECT_EQ(readFile(p), "old");

    // The target is a directory with contents: the rename fails.
    std::string d = path("target");
    ASSERT_EQ(mkdir(d.c_str(), 0755), 0);
    writeFile(d + "/inside", "x");
    EXPECT_FALSE(NSData::dataWithBytes_length_("new", 3)->writeToFile_atomically_(ns(d), true));
    EXPECT_EQ(readFile(d + "/inside"), "x");
}
#endif

// ---------------------------------------------------------------------------
// Dates

using Dates = Values;

VTSystemTime reading(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
                     int ms = 0) {
    return VTSystemTime{uint16_t(year),   uint16_t(month), 0,
                        uint16_t(day),    uint16_t(hour),  uint16_t(minute),
                        uint16_t(second), uint16_t(ms)};
}

NSDate* dateOf(const VTSystemTime& t) {
    return NSAutorelease(NSDate::alloc()->initWithSystemTime_(t));
}

// Seconds between 1601-01-01 and 1970-01-01.
constexpr int64_t kEpochOffset = 11644473600;

#if defined(_WIN32)
// The Windows C library's calendar starts in 1970. Before that the
// independent calendar is the era arithmetic of days since 1970-01-01
// (eras of 400 years, years from March), with times of day added.
int64_t daysFromCivil(int64_t y, int64_t m, int64_t d) {
    y -= m <= 2;
    int64_t era = (y >= 0 ? y : y - 399) / 400;
    int64_t yoe = y - era * 400;
    int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

std::tm utcCalendar(int64_t seconds) {
    int64_t days = (seconds >= 0 ? seconds : seconds - 86399) / 86400;
    int64_t rest = seconds - days * 86400;
    int64_t z = days + 719468;
    int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    int64_t doe = z - era * 146097;
    int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    int64_t mp = (5 * doy + 2) / 153;
    int64_t month = mp < 10 ? mp + 3 : mp - 9;
    std::tm tm{};
    tm.tm_year = static_cast<int>(yoe + era * 400 + (month <= 2) - 1900);
    tm.tm_mon = static_cast<int>(month - 1);
    tm.tm_mday = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    tm.tm_wday = static_cast<int>(((days % 7) + 11) % 7);  // 1970-01-01 was a Thursday
    tm.tm_hour = static_cast<int>(rest / 3600);
    tm.tm_min = static_cast<int>(rest / 60 % 60);
    tm.tm_sec = static_cast<int>(rest % 60);
    return tm;
}
#endif

// The independent calendar: the C library's UTC calendar on a 64-bit
// time_t, proleptic Gregorian as ours.
int64_t unixSeconds(const VTSystemTime& t) {
#if defined(_WIN32)
    return daysFromCivil(t.year, t.month, t.day) * 86400 + t.hour * 3600 + t.minute * 60 + t.second;
#else
    std::tm tm{};
    tm.tm_year = t.year - 1900;
    tm.tm_mon = t.month - 1;
    tm.tm_mday = t.day;
    tm.tm_hour = t.hour;
    tm.tm_min = t.minute;
    tm.tm_sec = t.second;
    return static_cast<int64_t>(timegm(&tm));
#endif
}

void expectReading(const VTSystemTime& got, int64_t unixMs, const std::string& what) {
    int64_t secs = unixMs >= 0 ? unixMs / 1000 : -((-unixMs + 999) / 1000);
    int ms = static_cast<int>(unixMs - secs * 1000);
#if defined(_WIN32)
    std::tm tm = utcCalendar(secs);
#else
    std::time_t tt = static_cast<std::time_t>(secs);
    std::tm tm{};
    ASSERT_NE(gmtime_r(&tt, &tm), nullptr);
#endif
    EXPECT_EQ(got.year, tm.tm_year + 1900) << what;
    EXPECT_EQ(got.month, tm.tm_mon + 1) << what;
    EXPECT_EQ(got.day, tm.tm_mday) << what;
    EXPECT_EQ(got.dayOfWeek, tm.tm_wday) << what;
    EXPECT_EQ(got.hour, tm.tm_hour) << what;
    EXPECT_EQ(got.minute, tm.tm_min) << what;
    EXPECT_EQ(got.second, tm.tm_sec) << what;
    EXPECT_EQ(got.milliseconds, ms) << what;
}

TEST_F(Dates, EveryDayFrom1601To2500MatchesTheUtcCalendar) {
    const int64_t days = unixSeconds(reading(2500, 12, 31)) / 86400 + kEpochOffset / 86400;
    int64_t ticks = 0;
    for (int64_t day = 0; day <= days; day++, ticks += 864000000000LL) {
        VTSystemTime t = VTSystemTimeFromTicks(ticks + 45296789 * 10000LL);  // 12:34:56.789
        expectReading(t, (day * 86400 - kEpochOffset) * 1000 + 45296789,
                      "day " + std::to_string(day));
        ASSERT_EQ(VTTicksFromSystemTime(t), ticks + 45296789 * 10000LL) << day;
        if (HasFailure()) return;
    }
}

TEST_F(Dates, AddTimeIntervalAcrossMonthsYearsAndLeapDays) {
    const VTSystemTime bases[] = {
            reading(2008, 5, 3, 9, 0, 7, 250),
            reading(2008, 2, 28, 23, 59, 59, 999),
            reading(2000, 2, 28, 12),
            reading(1900, 2, 28, 12),
            reading(2100, 2, 28, 23, 30),
            reading(2024, 12, 31, 23, 59, 59),
            reading(2023, 1, 31, 0, 0, 0, 1),
            reading(1601, 1, 1),
            reading(1700, 3, 1, 6),
            reading(9999, 12, 31, 23, 59, 59),
    };
    const double intervals[] = {
            0,           1,           -1,           0.5,          -0.001,        60,  86400, -86400,
            29 * 86400., 31 * 86400., 365 * 86400., 366 * 86400., -366 * 86400., 1e9, -1e9,  1.2e10,
            -1.2e10,     3e10,        123456.789,   1.005,        -1.005};
    for (const VTSystemTime& base : bases) {
        NSDate* date = dateOf(base);
        for (double interval : intervals) {
            int64_t expectedMs =
                    unixSeconds(base) * 1000 + base.milliseconds + llround(interval * 1000);
            // Results before 1601 are held at its first moment.
            if (expectedMs < -kEpochOffset * 1000) continue;
            std::ostringstream what;
            what << str(date->description()) << " + " << interval;
            expectReading(date->addTimeInterval_(interval)->systemTime(), expectedMs, what.str());
        }
    }
}

TEST_F(Dates, AddTimeIntervalHoldsAtTheEndsOfTheRange) {
    NSDate* date = dateOf(reading(2008, 5, 3, 9, 0, 7, 250));
    NSDate* earliest = date->addTimeInterval_(-1e13);
    EXPECT_EQ(str(earliest->description()), "1601-01-01 00:00:00 +0100");
    EXPECT_EQ(earliest->systemTime().dayOfWeek, 1);  // a Monday
    EXPECT_EQ(earliest->timeIntervalSince1970(), 0.0);
    EXPECT_EQ(str(date->addTimeInterval_(-std::numeric_limits<double>::infinity())->description()),
              "1601-01-01 00:00:00 +0100");
    NSDate* latest = date->addTimeInterval_(1e13);
    EXPECT_EQ(str(latest->description()), "30827-12-31 23:59:59 +0100");
    EXPECT_EQ(latest->systemTime().milliseconds, 999);
    EXPECT_EQ(str(date->addTimeInterval_(1e300)->description()), "30827-12-31 23:59:59 +0100");
    NSDate* same = date->addTimeInterval_(std::nan(""));
    EXPECT_TRUE(same->isEqual_(date));
    EXPECT_EQ(same->systemTime().milliseconds, 250);
    // Adding nothing keeps the milliseconds even where a double can't hold
    // every tick of the reading.
    EXPECT_EQ(dateOf(reading(2900, 7, 1, 1, 2, 3, 777))
                      ->addTimeInterval_(0)
                      ->systemTime()
                      .milliseconds,
              777);
}

TEST_F(Dates, FieldsOutOfRangeCarryOver) {
    EXPECT_EQ(VTTicksFromSystemTime(reading(2008, 13, 1)),
              VTTicksFromSystemTime(reading(2009, 1, 1)));
    EXPECT_EQ(VTTicksFromSystemTime(reading(2008, 0, 1)),
              VTTicksFromSystemTime(reading(2007, 12, 1)));
    EXPECT_EQ(VTTicksFromSystemTime(reading(2008, 2, 30)),
              VTTicksFromSystemTime(reading(2008, 3, 1)));
    EXPECT_EQ(VTTicksFromSystemTime(reading(2008, 5, 3, 24)),
              VTTicksFromSystemTime(reading(2008, 5, 4)));
}

TEST_F(Dates, SecondsCountFrom1601InWallClockTime) {
    EXPECT_EQ(dateOf(reading(1601, 1, 1))->timeIntervalSince1970(), 0.0);
    EXPECT_EQ(dateOf(reading(1970, 1, 1))->timeIntervalSince1970(), double(kEpochOffset));
    EXPECT_DOUBLE_EQ(dateOf(reading(1970, 1, 1, 0, 0, 1, 500))->timeIntervalSince1970(),
                     kEpochOffset + 1.5);
    EXPECT_EQ(dateOf(reading(2001, 1, 1, 0, 0, 1))->timeIntervalSinceReferenceDate(), 1.0);
    EXPECT_EQ(dateOf(reading(2000, 12, 31, 23, 59))->timeIntervalSinceReferenceDate(), -60.0);

    NSDate* a = dateOf(reading(2008, 5, 3, 9, 0, 7, 250));
    NSDate* b = dateOf(reading(2008, 5, 3, 9, 0, 7, 750));
    EXPECT_EQ(a->compare_(b), 0);
    EXPECT_DOUBLE_EQ(b->timeIntervalSinceDate_(a), 0.5);
    EXPECT_DOUBLE_EQ(a->timeIntervalSinceDate_(dateOf(reading(2008, 5, 2, 9, 0, 7, 250))), 86400.0);
    EXPECT_EQ(a->timeIntervalSinceDate_(nullptr), a->timeIntervalSince1970());
    EXPECT_EQ(NSSend<double>(a, NS_SEL("timeIntervalSinceDate:"), NSNumber::numberWithInt_(1)),
              a->timeIntervalSince1970())
            << "what is no date counts as nil";

    // The present moment: the local clock, in whatever zone.
    NSDate* now = NSDate::date();
    double sinceNow = now->timeIntervalSinceNow();
    EXPECT_LE(sinceNow, 0.0);
    EXPECT_GT(sinceNow, -0.05);
    double viaClass =
            NSSendClass<double>(NSDate::classObject(), NS_SEL("timeIntervalSinceReferenceDate"));
    EXPECT_NEAR(viaClass, now->timeIntervalSinceReferenceDate(), 0.05);
    EXPECT_NEAR(NSDate::timeIntervalSinceReferenceDate(NSDate::classObject()), viaClass, 0.05);
    EXPECT_EQ(NSSend<double>(a, NS_SEL("timeIntervalSinceReferenceDate")),
              a->timeIntervalSinceReferenceDate());
}

TEST_F(Dates, ThePresentIsTheLocalWallClock) {
    const char* old = std::getenv("TZ");
    std::string saved = old ? old : "";
    vt_test::setEnvironment("TZ", "XYZ-05:30");
    tzset();
    std::time_t before = std::time(nullptr);
    VTSystemTime t = NSDate::date()->systemTime();
    std::time_t after = std::time(nullptr);
    vt_test::setEnvironment("TZ", old ? saved.c_str() : nullptr);
    tzset();
    // The reading is five and a half hours ahead of UTC, as the zone says.
    int64_t seconds = unixSeconds(t);
    EXPECT_GE(seconds, int64_t(before) + 19800);
    EXPECT_LE(seconds, int64_t(after) + 19800);
    std::tm tm{};
#if defined(_WIN32)
    tm = utcCalendar(seconds);
#else
    std::time_t tt = static_cast<std::time_t>(seconds);
    gmtime_r(&tt, &tm);
#endif
    EXPECT_EQ(t.dayOfWeek, tm.tm_wday);
}

TEST_F(Dates, DescriptionAndItsReadingBack) {
    NSDate* date = dateOf(reading(2008, 5, 3, 9, 0, 7, 640));
    NSString* text = date->description();
    EXPECT_EQ(str(text), "2008-05-03 09:00:07 +0100");
    EXPECT_TRUE(text->isKindOfClass_(NSMutableString::classObject()));
    EXPECT_EQ(str(dateOf(reading(999, 1, 2, 3, 4, 5))->description()), "999-01-02 03:04:05 +0100");
    // The form without an object writes the same bytes and counts them; a
    // structure taken as it stands may hold five digits in every field,
    // which must still fit.
    char written[NSDate::kDescriptionSize];
    EXPECT_EQ(date->getDescription(written), 25u);
    EXPECT_STREQ(written, "2008-05-03 09:00:07 +0100");
    NSDate* widest = dateOf(reading(65535, 65535, 65535, 65535, 65535, 65535));
    EXPECT_EQ(widest->getDescription(written), 41u);
    EXPECT_STREQ(written, "65535-65535-65535 65535:65535:65535 +0100");
    EXPECT_EQ(str(widest->description()), written);
    EXPECT_EQ(str(dateOf(reading(7, 100, 9, 10, 0, 59))->description()), "7-100-09 10:00:59 +0100");

    NSDate* back = NSDate::dateWithString_(text);
    EXPECT_TRUE(back->isEqual_(date));
    EXPECT_EQ(back->systemTime().milliseconds, 0);
    EXPECT_EQ(back->systemTime().dayOfWeek, 0);
    EXPECT_EQ(str(back->description()), str(text));

    // The zone is never read, separators may be anything, leading blanks
    // are trimmed, and a missing time reads as midnight.
    EXPECT_EQ(str(NSDate::dateWithString_("2008/05/03 09.00.07 -0800"_ns)->description()),
              str(text));
    EXPECT_EQ(str(NSDate::dateWithString_(" 2008-05-03\t09:00:07"_ns)->description()), str(text));
    EXPECT_EQ(str(NSDate::dateWithString_("2008-05-03"_ns)->description()),
              "2008-05-03 00:00:00 +0100");
    // Two blanks give an empty time piece: midnight too, as the splitting
    // of the system has it.
    EXPECT_EQ(str(NSDate::dateWithString_("2008-05-03  09:00:07"_ns)->description()),
              "2008-05-03 00:00:00 +0100");
    EXPECT_EQ(str(NSDate::dateWithString_(nullptr)->description()), "0-00-00 00:00:00 +0100");
    NSDate* made = NSSendClass<NSDate*>(NSDate::classObject(), NS_SEL("dateWithString:"),
                                        "2001-01-01 00:00:00 +0000"_ns);
    EXPECT_EQ(made->timeIntervalSinceReferenceDate(), 0.0);
}

TEST_F(Dates, VantorDescriptionDropsAMidnightTime) {
    EXPECT_EQ(str(NSDate::dateWithString_("2008-05-03 00:00:00 +0100"_ns)->vantorDescription()),
              "3.5.2008");
    EXPECT_EQ(str(dateOf(reading(2008, 3, 5, 14, 7, 9))->vantorDescription()), "5.3.2008 14:07:09");
    EXPECT_EQ(str(dateOf(reading(2008, 3, 5, 0, 0, 1))->vantorDescription()), "5.3.2008 00:00:01");
    EXPECT_EQ(str(dateOf(reading(2008, 12, 31, 0, 0, 0, 500))->vantorDescription()), "31.12.2008");
}

TEST_F(Dates, CompareEqualityAndHash) {
    NSDate* a = dateOf(reading(2008, 5, 3, 9, 0, 7, 1));
    VTSystemTime sameSecond = reading(2008, 5, 3, 9, 0, 7, 999);
    sameSecond.dayOfWeek = 4;
    NSDate* b = dateOf(sameSecond);
    EXPECT_TRUE(a->isEqual_(b));
    EXPECT_EQ(a->hash(), b->hash());
    EXPECT_EQ(a->hash(), 0x93DFE285u);
    EXPECT_FALSE(a->isEqual_(nullptr));
    EXPECT_FALSE(a->isEqual_("2008-05-03 09:00:07 +0100"_ns));
    EXPECT_FALSE(a->isEqual_(dateOf(reading(2008, 5, 3, 9, 0, 8))));

    EXPECT_EQ(a->compare_(dateOf(reading(2008, 5, 3, 9, 0, 8))), -1);
    EXPECT_EQ(a->compare_(dateOf(reading(2007, 12, 31))), 1);
    EXPECT_EQ(a->compare_(nullptr), 1);
    // By the texts, not the moments: a three-digit year sorts after 2008.
    EXPECT_EQ(dateOf(reading(999, 1, 1))->compare_(a), 1);
    EXPECT_EQ(NSSend<int>(a, NS_SEL("compare:"), b), 0);

    // As dictionary keys, dates of one second find each other.
    NSMutableDictionary* map = NSMutableDictionary::dictionaryWithCapacity_(10);
    map->setObject_forKey_("x"_ns, a);
    EXPECT_EQ(map->objectForKey_(b), "x"_ns);
}

// ---------------------------------------------------------------------------
// Order across kinds: the shared null, strings, numbers, dates.

TEST_F(Values, CompareOrdersMixedKindsAlikeFromEitherSide) {
    // Ascending, each value strictly before the next. Dates order by their
    // descriptions, so the three-digit year comes last.
    std::vector<NSObject*> order = {
            NSNull::null(),
            ""_ns,
            "a"_ns,
            NSString::stringWithUTF8String_("b\xC3\xA4"),
            NSNumber::numberWithInt_(-5),
            NSNumber::numberWithDouble_(3.5),
            NSNumber::numberWithInt_(10),
            dateOf(reading(2007, 12, 31)),
            dateOf(reading(2008, 5, 3, 9, 0, 7)),
            dateOf(reading(999, 1, 1)),
    };
    for (size_t i = 0; i < order.size(); i++) {
        for (size_t j = 0; j < order.size(); j++) {
            int expected = i < j ? -1 : (i > j ? 1 : 0);
            EXPECT_EQ(NSSend<int>(order[i], NS_SEL("compare:"), order[j]), expected)
                    << str(order[i]->description()) << " against " << str(order[j]->description());
        }
    }
    // An object of another class has no compare: and answers 0 when asked;
    // the value classes answer 0 to it as well.
    NSMutableArray* array = NSMutableArray::arrayWithObjects_("a"_ns, nullptr);
    for (NSObject* value : order) {
        EXPECT_EQ(NSSend<int>(value, NS_SEL("compare:"), array), 0) << str(value->description());
        EXPECT_EQ(NSSend<int>(array, NS_SEL("compare:"), value), 0);
    }
    // Nil keeps each class's own reading.
    EXPECT_EQ(NSNull::null()->compare_(nullptr), 0);

    // A sort comes out the same whatever order the values arrive in.
    std::mt19937 random(17);
    for (int round = 0; round < 20; round++) {
        std::vector<NSObject*> shuffled = order;
        std::shuffle(shuffled.begin(), shuffled.end(), random);
        NSMutableArray* input = NSMutableArray::array();
        for (NSObject* value : shuffled) input->addObject_(value);
        NSMutableArray* sorted = input->sortedArrayUsingSelector_(NS_SEL("compare:"));
        ASSERT_EQ(sorted->count(), order.size());
        for (uint32_t i = 0; i < sorted->count(); i++)
            EXPECT_EQ(sorted->objectAtIndex_(i), order[i]) << "round " << round << " index " << i;
    }
}

}  // namespace
