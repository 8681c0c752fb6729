// Dictionaries of a fixed bucket count under 100,000 string keys, and the
// array sort of strings: the merge sort that compare: of strings gets,
// against the exchange sort that every other comparison gets (reached here
// through benchCompare:, the same comparison under a name the array doesn't
// trust).
//
//   cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DVANTOR_WINELIB=OFF
//   cmake --build build-bench --target collections_bench
//   build-bench/bench/collections_bench
#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <vector>

#include "foundation/Foundation.h"

NS_EXTEND_CLASS(NSString, CollectionsBench)
NS_METHOD_NAMED("benchCompare:", compare_)
NS_EXTEND_END

namespace {

constexpr int kKeys = 100000;

// Owned keys, made once: the benchmarks measure the table, not the strings.
const std::vector<NSString*>& keys() {
    static std::vector<NSString*> all = [] {
        std::vector<NSString*> k;
        std::mt19937 random(42);
        char buffer[32];
        for (int i = 0; i < kKeys; i++) {
            std::snprintf(buffer, sizeof buffer, "rec-%u-%d",
                          static_cast<unsigned>(random() % 100000), i);
            k.push_back(NSString::alloc()->initWithUTF8String_(buffer));
        }
        return k;
    }();
    return all;
}

NSMutableDictionary* filled(uint32_t buckets) {
    auto* d = static_cast<NSMutableDictionary*>(
            NSMutableDictionary::alloc()->initWithCapacity_(buckets));
    for (NSString* k : keys()) d->setObject_forKey_(k, k);
    return d;
}

void BM_DictionaryInsert(benchmark::State& state) {
    uint32_t buckets = static_cast<uint32_t>(state.range(0));
    keys();
    for (auto _ : state) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        NSMutableDictionary* d = filled(buckets);
        state.PauseTiming();
        d->release();
        pool->release();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kKeys);
}

void BM_DictionaryLookup(benchmark::State& state) {
    NSMutableDictionary* d = filled(static_cast<uint32_t>(state.range(0)));
    for (auto _ : state) {
        for (NSString* k : keys()) benchmark::DoNotOptimize(d->objectForKey_(k));
    }
    d->release();
    state.SetItemsProcessed(state.iterations() * kKeys);
}

void BM_DictionaryRemove(benchmark::State& state) {
    uint32_t buckets = static_cast<uint32_t>(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        NSMutableDictionary* d = filled(buckets);
        state.ResumeTiming();
        for (NSString* k : keys()) d->removeObjectForKey_(k);
        state.PauseTiming();
        d->release();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kKeys);
}

void sortStrings(benchmark::State& state, SEL comparator) {
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    NSMutableArray* a = NSMutableArray::array();
    for (int64_t i = 0; i < state.range(0); i++) a->addObject_(keys()[static_cast<size_t>(i)]);
    for (auto _ : state) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        benchmark::DoNotOptimize(a->sortedArrayUsingSelector_(comparator));
        inner->release();
    }
    pool->release();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_SortStrings(benchmark::State& state) { sortStrings(state, NS_SEL("compare:")); }
void BM_SortStringsExchange(benchmark::State& state) {
    sortStrings(state, NS_SEL("benchCompare:"));
}

}  // namespace

BENCHMARK(BM_DictionaryInsert)->Arg(10)->Arg(1024)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DictionaryLookup)->Arg(10)->Arg(1024)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DictionaryRemove)->Arg(10)->Arg(1024)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SortStrings)->Arg(2000)->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SortStringsExchange)->Arg(2000)->Arg(20000)->Unit(benchmark::kMillisecond);
