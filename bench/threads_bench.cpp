// Threads, locks and combinators: what the per-thread pools cost (every
// autorelease asks currentThread), the lock every thread table access takes,
// a detached thread's whole life, and a combinator against the loop it
// replaces. Run by hand, in a Release build:
//   build-release/bench/threads_bench
#include <benchmark/benchmark.h>

#include <mutex>

#include "foundation/CMCollect.h"
#include "foundation/CMEach.h"
#include "foundation/NSArray.h"
#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSLock.h"
#include "foundation/NSString.h"
#include "foundation/NSThread.h"
#include "foundation/platform/Platform.h"

namespace {

void BM_CurrentThread(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(NSThread::currentThread());
}
BENCHMARK(BM_CurrentThread);

// One object made, autoreleased and freed at the pool's end.
void BM_AutoreleaseInPool(benchmark::State& state) {
    const int batch = 1000;
    for (auto _ : state) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        for (int i = 0; i < batch; i++) NSAutorelease(NSObject::alloc());
        pool->release();
    }
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(BM_AutoreleaseInPool);

void BM_NSLockLockUnlock(benchmark::State& state) {
    NSLock* lock = NSLock::alloc()->init();
    for (auto _ : state) {
        lock->lock();
        lock->unlock();
    }
    lock->release();
}
BENCHMARK(BM_NSLockLockUnlock);

// The peer of the lock above: the C++ library's re-entrant mutex.
void BM_StdRecursiveMutex(benchmark::State& state) {
    std::recursive_mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
}
BENCHMARK(BM_StdRecursiveMutex);

class Nop : public NSObject {
    NS_DECLARE_CLASS(Nop, NSObject)

public:
    void run_(NSObject*) { __atomic_add_fetch(&done, 1, __ATOMIC_RELEASE); }
    int done = 0;
};

NS_CLASS_BEGIN(Nop, NSObject)
    NS_METHOD(run_)
NS_CLASS_END(Nop)

// Start, register, run an empty target under a pool, unregister: the
// caller waits for the table to be empty again.
void BM_DetachedThreadLife(benchmark::State& state) {
    Nop* nop = Nop::alloc();
    for (auto _ : state) {
        NSThread::detachNewThreadSelector_toTarget_withObject_(NS_SEL("run:"), nop, nullptr);
        while (NSThread::registeredThreadCount() != 0) vtSleepMilliseconds(0);
    }
    nop->release();
}
BENCHMARK(BM_DetachedThreadLife)->UseRealTime();

NSArray* words(int n) {
    NSMutableArray* array = NSMutableArray::arrayWithCapacity_(static_cast<uint32_t>(n));
    for (int i = 0; i < n; i++) array->addObject_(NSString::stringWithFormat_("  word %d ", i));
    return array;
}

void BM_CollectTrim(benchmark::State& state) {
    NSAutoreleasePool* outer = NSAutoreleasePool::alloc()->init();
    NSArray* array = words(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        benchmark::DoNotOptimize(NSSend<NSMutableArray*>(array->collect(), NS_SEL("trim")));
        pool->release();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    outer->release();
}
BENCHMARK(BM_CollectTrim)->Arg(10)->Arg(1000);

// The loop that collect spares its caller, with the same results.
void BM_LoopTrim(benchmark::State& state) {
    NSAutoreleasePool* outer = NSAutoreleasePool::alloc()->init();
    NSArray* array = words(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        NSMutableArray* result = NSMutableArray::arrayWithCapacity_(array->count());
        for (uint32_t i = 0; i < array->count(); i++) {
            result->addObject_(static_cast<NSString*>(array->objectAtIndex_(i))->trim());
        }
        benchmark::DoNotOptimize(result);
        pool->release();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    outer->release();
}
BENCHMARK(BM_LoopTrim)->Arg(10)->Arg(1000);

void BM_EachLength(benchmark::State& state) {
    NSAutoreleasePool* outer = NSAutoreleasePool::alloc()->init();
    NSArray* array = words(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        NSSend(array->each(), NS_SEL("length"));
        pool->release();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    outer->release();
}
BENCHMARK(BM_EachLength)->Arg(1000);

}  // namespace
