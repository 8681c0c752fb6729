// The sync path's costs, in one run:
//
//   Post          post:to: of one delta into a delta store that already
//                 holds `n` deltas: what a commit pays per addressee, and
//                 so what the user's Save waits for under the store lock
//   FirstDelta    the send phase's pick of the next delta (ids sorted as
//                 text, then one record read) from a store of `n`
//   DataRoundTrip one keyed data element of `n` bytes sent over loopback
//                 and read back whole by LXSocket (cipher both ways)
//
//   sync_bench --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "foundation/Foundation.h"
#include "sync/LXDeltaRepository.h"
#include "sync/LXSocket.h"
#include "sync/LXTransceiver.h"

namespace {

NSString* ns(const std::string& text) { return NSString::stringWithUTF8String_(text.c_str()); }

// A temporary working directory for the "_deltas_" container.
struct WorkDir {
    WorkDir() {
        char cwd[4096];
        previous = getcwd(cwd, sizeof cwd) ? cwd : ".";
        char pattern[] = "/tmp/vt-sync-bench-XXXXXX";
        dir = mkdtemp(pattern);
        if (chdir(dir.c_str()) != 0) abort();
    }
    ~WorkDir() {
        if (chdir(previous.c_str()) != 0) abort();
        std::string command = "rm -rf '" + dir + "'";
        if (system(command.c_str()) != 0) abort();
    }
    std::string previous, dir;
};

LXDelta* makeDelta(LXPool* pool, int i) {
    NSMutableDictionary* contents = NSMutableDictionary::dictionary();
    contents->setObject_forKey_("set"_ns, "action"_ns);
    contents->setObject_forKey_(ns("record " + std::to_string(i)), "object"_ns);
    return LXDelta::deltaWithPool_sender_contents_(
            pool, LXUser::userWithString_("John Smith/Sales/Acme-1"_ns), contents);
}

void fill(LXTransceiver* t, LXPool* pool, int n) {
    LXUser* to = LXUser::userWithString_("Jane Doe/R&D/Acme-2"_ns);
    for (int i = 0; i < n; i++) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        t->post_to_(makeDelta(pool, i), to);
        inner->release();
    }
}

void BM_Post(benchmark::State& state) {
    NSAutoreleasePool* outer = NSAutoreleasePool::alloc()->init();
    WorkDir dir;
    LXTransceiver* t = LXTransceiver::alloc()->init();
    LXPool* pool =
            LXPool::poolWithName_(NSString::stringWithUTF8String_(LXPool::kReplicationPoolName));
    fill(t, pool, static_cast<int>(state.range(0)));
    LXUser* to = LXUser::userWithString_("Jane Doe/R&D/Acme-2"_ns);
    int i = 0;
    for (auto _ : state) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        t->post_to_(makeDelta(pool, i++), to);
        inner->release();
    }
    t->release();
    outer->release();
}
BENCHMARK(BM_Post)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);

void BM_FirstDelta(benchmark::State& state) {
    NSAutoreleasePool* outer = NSAutoreleasePool::alloc()->init();
    WorkDir dir;
    LXTransceiver* t = LXTransceiver::alloc()->init();
    fill(t, LXPool::poolWithName_(NSString::stringWithUTF8String_(LXPool::kReplicationPoolName)),
         static_cast<int>(state.range(0)));
    for (auto _ : state) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        benchmark::DoNotOptimize(t->deltaRepository()->firstDelta());
        inner->release();
    }
    t->release();
    outer->release();
}
BENCHMARK(BM_FirstDelta)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);

void BM_DataRoundTrip(benchmark::State& state) {
    NSAutoreleasePool* outer = NSAutoreleasePool::alloc()->init();
    LXSocket* server = LXSocket::socketWithEncryptionKey_("Mq7Tarn"_ns);
    server->bindToAddress_port_("127.0.0.1"_ns, 0);
    server->listen_(1);
    LXSocket* client = LXSocket::socketWithEncryptionKey_("Mq7Tarn"_ns);
    client->connect_port_("127.0.0.1"_ns, server->localPort());
    LXSocket* accepted = server->accept();
    std::string payload(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        client->sendData_(NSData::dataWithBytes_length_(payload.data(),
                                                        static_cast<uint32_t>(payload.size())));
        benchmark::DoNotOptimize(accepted->readData());
        inner->release();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    accepted->release();
    outer->release();
}
BENCHMARK(BM_DataRoundTrip)->Arg(1024)->Arg(64 * 1024)->Unit(benchmark::kMicrosecond);

}  // namespace
