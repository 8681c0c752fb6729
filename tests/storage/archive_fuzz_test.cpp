// A million damaged archives through the reader: bit flips, truncations,
// overwritten length fields, inserted and deleted bytes, and splices of
// valid archives, all from a fixed start of the generator so that a failure repeats. Under
// the sanitizer build this proves no crash, no read outside the data, no
// leak and no hang; whatever decodes is archived again.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

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

namespace {

constexpr int kRuns = 1000000;

std::string archive(NSObject* object) {
    NSMutableData* data = NSMutableData::data();
    NSArchiver* archiver = NSArchiver::alloc()->initForWritingWithMutableData_(data);
    archiver->encodeRootObject_(object);
    archiver->release();
    void* block = data->bytes();
    std::string out(static_cast<char*>(block), data->length());
    std::free(block);
    return out;
}

NSString* str(const char* text) { return NSString::stringWithUTF8String_(text); }

// Small archives of every class with a body, nested a little.
std::vector<std::string> seeds() {
    std::vector<std::string> out;
    out.push_back(archive(NSNumber::numberWithInt_(3)));
    out.push_back(archive(str("abc")));
    out.push_back(archive(NSNull::null()));
    out.push_back(archive(NSData::dataWithBytes_length_("\x00\x01\xfe", 3)));
    out.push_back(archive(NSDate::dateWithString_(str("2024-01-31 09:30:00 +0100"))));
    NSMutableArray* array = NSMutableArray::array();
    array->addObject_(str("x"));
    array->addObject_(NSNumber::numberWithDouble_(2.5));
    array->addObject_(NSNull::null());
    out.push_back(archive(array));
    NSMutableDictionary* record = NSMutableDictionary::dictionaryWithCapacity_(4);
    record->setObject_forKey_(str("Ada"), str("name"));
    record->setObject_forKey_(NSDate::dateWithString_(str("2008-05-03 09:00:07 +0100")),
                              str("since"));
    record->setObject_forKey_(array, str("list"));
    record->setObject_forKey_(NSNumber::numberWithInt_(7), NSNumber::numberWithInt_(1));
    out.push_back(archive(record));
    NSMutableSet* set = NSMutableSet::set();
    set->addObject_(str("m"));
    set->addObject_(NSNumber::numberWithInt_(2));
    out.push_back(archive(set));
    NSCountedSet* counted =
            static_cast<NSCountedSet*>(NSAutorelease(NSCountedSet::alloc()->init()));
    counted->addObject_(str("c"));
    counted->addObject_(str("c"));
    out.push_back(archive(counted));
    NSMutableArray* deep = NSMutableArray::array();
    NSMutableArray* inner = deep;
    for (int i = 0; i < 12; i++) {
        NSMutableArray* next = NSMutableArray::array();
        inner->addObject_(next);
        inner = next;
    }
    inner->addObject_(record);
    out.push_back(archive(deep));
    return out;
}

class Mutator {
public:
    explicit Mutator(const std::vector<std::string>& seeds) : _seeds(seeds), _random(20240131) {}

    std::string next() {
        std::string s = pick();
        int steps = 1 + below(3);
        for (int k = 0; k < steps; k++) mutate(&s);
        return s;
    }

private:
    int below(int n) { return static_cast<int>(_random() % static_cast<uint32_t>(n)); }
    const std::string& pick() { return _seeds[below(static_cast<int>(_seeds.size()))]; }

    void mutate(std::string* s) {
        switch (below(6)) {
            case 0:  // bit flips
                for (int k = 0, n = 1 + below(4); k < n && !s->empty(); k++)
                    (*s)[below(static_cast<int>(s->size()))] ^= static_cast<char>(1 << below(8));
                break;
            case 1:  // truncation
                if (!s->empty()) s->resize(below(static_cast<int>(s->size())));
                break;
            case 2: {  // a byte of a length field or count set to an edge value
                static const unsigned char edges[] = {0x00, 0x01, 0x07, 0x08,
                                                      0x09, 0x7F, 0x80, 0xFF};
                if (!s->empty())
                    (*s)[below(static_cast<int>(s->size()))] = static_cast<char>(edges[below(8)]);
                break;
            }
            case 3: {  // splice: a prefix of this one, the tail of another
                const std::string& other = pick();
                size_t cut = s->empty() ? 0 : below(static_cast<int>(s->size()) + 1);
                size_t from = below(static_cast<int>(other.size()) + 1);
                *s = s->substr(0, cut) + other.substr(from);
                break;
            }
            case 4: {  // insertion of random bytes or of a whole archive
                size_t at = below(static_cast<int>(s->size()) + 1);
                std::string piece =
                        below(2) ? pick() : std::string(1 + below(4), static_cast<char>(_random()));
                s->insert(at, piece);
                break;
            }
            default:  // deletion
                if (!s->empty()) {
                    size_t at = below(static_cast<int>(s->size()));
                    s->erase(at, 1 + below(8));
                }
        }
    }

    const std::vector<std::string>& _seeds;
    std::mt19937 _random;
};

TEST(ArchiveFuzz, DamagedArchivesDecodeToNilOrToSomethingArchivable) {
    NSAutoreleasePool* outer = NSAutoreleasePool::alloc()->init();
    std::vector<std::string> corpus = seeds();
    Mutator mutator(corpus);

    // Every refusal logs a line: a million of them go to /dev/null.
    std::fflush(stdout);
    int saved = dup(1);
    int devnull = open("/dev/null", O_WRONLY);
    ASSERT_GE(devnull, 0);
    dup2(devnull, 1);
    close(devnull);

    int decoded = 0;
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    for (int run = 0; run < kRuns; run++) {
        std::string bytes = mutator.next();
        NSData* data = NSData::alloc()->initWithBytes_length_(bytes.data(),
                                                              static_cast<uint32_t>(bytes.size()));
        NSUnarchiver* unarchiver = NSUnarchiver::alloc()->initForReadingWithData_(data);
        NSObject* object = unarchiver->decodeObject();
        EXPECT_LE(unarchiver->pos(), bytes.size());
        if (object) {
            decoded++;
            // Whatever reads back can be written again.
            archive(object);
        }
        unarchiver->release();
        data->release();
        if (run % 512 == 511) {
            pool->release();
            pool = NSAutoreleasePool::alloc()->init();
        }
    }
    pool->release();

    std::fflush(stdout);
    dup2(saved, 1);
    close(saved);
    // The mutations are not all fatal: some of the damage leaves a valid
    // archive, and those take the encoder's path as well.
    EXPECT_GT(decoded, kRuns / 100);
    EXPECT_LT(decoded, kRuns);
    std::printf("%d of %d damaged archives decoded\n", decoded, kRuns);
    outer->release();
}

}  // namespace
