// Archive throughput: encoding and decoding a typical record (a dictionary
// of 12 text fields and 2 dates) and a dictionary of 10,000 entries.
// bytes_per_second is archive bytes; items_per_second counts the objects of
// the archive (every name-and-body element, element counts included).
//
//   build-release/bench/archive_bench --benchmark_min_time=1
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "foundation/NSArray.h"
#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSData.h"
#include "foundation/NSDate.h"
#include "foundation/NSDictionary.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"

namespace {

NSMutableDictionary* record() {
    static const char* fields[12] = {"firstName", "lastName", "street",  "city",
                                     "zip",       "country",  "phone",   "mobile",
                                     "email",     "title",    "company", "notes"};
    NSMutableDictionary* d = NSMutableDictionary::dictionaryWithCapacity_(14);
    for (int i = 0; i < 12; i++) {
        d->setObject_forKey_(
                NSString::stringWithFormat_("value of %s, a text of some length", fields[i]),
                NSString::stringWithUTF8String_(fields[i]));
    }
    d->setObject_forKey_(NSDate::dateWithString_("2024-01-31 09:30:00 +0100"_ns), "created"_ns);
    d->setObject_forKey_(NSDate::dateWithString_("2024-02-29 17:45:12 +0100"_ns), "modified"_ns);
    return d;
}

NSMutableDictionary* bigDictionary() {
    NSMutableDictionary* d = NSMutableDictionary::dictionaryWithCapacity_(10000);
    for (int i = 0; i < 10000; i++) {
        NSObject* value = i % 2 ? static_cast<NSObject*>(NSNumber::numberWithInt_(i))
                                : NSString::stringWithFormat_("value %d", i);
        d->setObject_forKey_(value, NSString::stringWithFormat_("key%05d", i));
    }
    return d;
}

NSMutableData* encode(NSObject* object) {
    NSMutableData* data = NSMutableData::data();
    NSArchiver* archiver = NSArchiver::alloc()->initForWritingWithMutableData_(data);
    archiver->encodeRootObject_(object);
    archiver->release();
    return data;
}

// Objects in the archive: what the unarchiver keeps as decoded.
uint32_t objectCount(NSData* data) {
    NSUnarchiver* u = NSUnarchiver::alloc()->initForReadingWithData_(data);
    u->decodeObject();
    uint32_t n = u->decodedObjects()->count();
    u->release();
    return n;
}

void runEncode(benchmark::State& state, NSMutableDictionary* (*make)()) {
    NSAutoreleasePool* outer = NSAutoreleasePool::alloc()->init();
    NSObject* object = make();
    NSData* sample = encode(object);
    int64_t bytes = sample->length();
    int64_t objects = objectCount(sample);
    for (auto _ : state) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        benchmark::DoNotOptimize(encode(object));
        pool->release();
    }
    state.SetBytesProcessed(state.iterations() * bytes);
    state.SetItemsProcessed(state.iterations() * objects);
    outer->release();
}

void runDecode(benchmark::State& state, NSMutableDictionary* (*make)()) {
    NSAutoreleasePool* outer = NSAutoreleasePool::alloc()->init();
    NSData* data = encode(make());
    int64_t bytes = data->length();
    int64_t objects = objectCount(data);
    for (auto _ : state) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        NSUnarchiver* u = NSUnarchiver::alloc()->initForReadingWithData_(data);
        benchmark::DoNotOptimize(u->decodeObject());
        u->release();
        pool->release();
    }
    state.SetBytesProcessed(state.iterations() * bytes);
    state.SetItemsProcessed(state.iterations() * objects);
    outer->release();
}

void BM_EncodeRecord(benchmark::State& state) { runEncode(state, &record); }
void BM_DecodeRecord(benchmark::State& state) { runDecode(state, &record); }
void BM_Encode10000Entries(benchmark::State& state) { runEncode(state, &bigDictionary); }
void BM_Decode10000Entries(benchmark::State& state) { runDecode(state, &bigDictionary); }

BENCHMARK(BM_EncodeRecord);
BENCHMARK(BM_DecodeRecord);
BENCHMARK(BM_Encode10000Entries)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Decode10000Entries)->Unit(benchmark::kMillisecond);

}  // namespace
