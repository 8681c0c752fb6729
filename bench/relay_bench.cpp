// The relay's throughput with a queue of 100,000 deltas, side by side with
// Redis in the same run:
//
//   RelayDeposit/<mode>[/8 clients]
//                   deposits/s: each one a new connection carrying one
//                   delta, acknowledged once it is on disk (as the
//                   transceiver's send phase does); mode plain, or fsync
//                   (vantor-relay --fsync: each block and journal entry
//                   forced to stable storage before the acknowledgement);
//                   one client, or 8 depositing at once
//   RelayCollect/<mode>
//                   collects/s: one collect connection, each delta read
//                   and acknowledged before the next comes (the receive
//                   phase), each acknowledgement a delete in the store
//   Redis/<mode>/LPUSH, Redis/<mode>/RPOP
//                   redis-server with appendonly yes and appendfsync
//                   everysec, then always; a list prefilled with 100,000
//                   values of the delta's size; redis-benchmark -k 0 -c 1
//                   (a new connection per request, one client at a time,
//                   as a transceiver deposits); LPUSH also with -c 8
//   Ratios          relay figure / Redis figure: plain against everysec,
//                   fsync against always
//
// The delta is a Save of a record of 12 string fields (the "set" contents
// of the workspace). vantor-relay is found beside this program's build
// directory (../relay/vantor-relay) or at $VANTOR_RELAY_PATH; its store is
// prefilled in process through the container's batch API. Build in
// Release:
//
//   cmake -S . -B build-relay-release -DCMAKE_BUILD_TYPE=Release -DVANTOR_WINELIB=OFF
//   cmake --build build-relay-release -j2 --target relay_bench vantor-relay
//   build-relay-release/bench/relay_bench
//
// Plainly the relay forces nothing to the disk (a killed process loses
// nothing, a power cut may): Redis with everysec is its like-for-like peer.
// With --fsync every acknowledged delta is on stable storage, like Redis
// with always.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "BenchProcess.h"
#include "SaveDelta.h"
#include "foundation/Foundation.h"
#include "storage/LXContainer.h"
#include "storage/NSArchiver.h"
#include "sync/LXDelta.h"
#include "sync/LXRelay.h"
#include "sync/LXSocket.h"

namespace {

using namespace vt_bench;

constexpr int kQueue = 100000;
constexpr int kRelayOperations = 300;
const char* kSender = "John Smith/Sales/Acme-1";
const char* kAddressee = "Jane Doe/R&D/Acme-2";

NSString* ns(const std::string& text) { return NSString::stringWithUTF8String_(text.c_str()); }

NSData* archiveOf(NSObject* object) {
    NSMutableData* data = NSMutableData::data();
    NSArchiver* archiver = NSArchiver::alloc()->initForWritingWithMutableData_(data);
    archiver->encodeObject_(object);
    archiver->release();
    return data;
}

uint32_t deltaSize() {
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    uint32_t size = archiveOf(saveDelta(1, kSender, kAddressee))->length();
    pool->release();
    return size;
}

uint16_t freePort() {
    LXSocket* probe = LXSocket::alloc()->init();
    probe->bindToAddress_port_("127.0.0.1"_ns, 0);
    uint16_t port = static_cast<uint16_t>(probe->localPort());
    probe->release();
    return port;
}

std::string relayPath() { return builtProgram("VANTOR_RELAY_PATH", "relay/vantor-relay"); }

// The relay under test: a store of kQueue deltas for one user, then the
// process on a free port, with --fsync or without. Made once per mode, at
// its first benchmark.
struct Relay {
    bool fsync = false;
    std::string dir;
    pid_t pid = -1;
    uint16_t port = 0;
    double prefillSeconds = 0;
    double startSeconds = 0;

    bool start(benchmark::State& state) {
        dir = makeTempDir("vt-relay-bench");
        auto t0 = std::chrono::steady_clock::now();
        NSAutoreleasePool* outer = NSAutoreleasePool::alloc()->init();
        LXContainer* store =
                LXContainer::containerWithName_(ns(dir + "/" + LXRelay::kContainerName));
        store->beginBatch();
        for (int i = 0; i < kQueue; i++) {
            NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
            store->set_(saveDelta(i, kSender, kAddressee));
            inner->release();
        }
        bool written = store->endBatch();
        outer->release();
        prefillSeconds = secondsSince(t0);
        if (!written) {
            state.SkipWithError("prefill failed");
            return false;
        }
        auto t1 = std::chrono::steady_clock::now();
        std::string log = dir + "/relay.log";
        std::vector<std::string> args = {relayPath(), "--port", "0", "--dir", dir};
        if (fsync) args.push_back("--fsync");
        pid = spawn(args, log);
        while (pid > 0 && readFile(log).find("listening on port ") == std::string::npos) {
            if (secondsSince(t1) > 300 || waitpid(pid, nullptr, WNOHANG) != 0) {
                state.SkipWithError(("vantor-relay did not start: " + relayPath()).c_str());
                pid = -1;
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        startSeconds = secondsSince(t1);
        std::string text = readFile(log);
        port = static_cast<uint16_t>(atoi(text.c_str() + text.find("listening on port ") + 18));
        return pid > 0;
    }
    ~Relay() {
        stop(pid);
        if (!dir.empty()) run("rm -rf '" + dir + "'");
    }
};

Relay* gRelays[2] = {nullptr, nullptr};
std::map<std::string, double> gFigures;

Relay* relay(benchmark::State& state, bool fsync) {
    Relay*& made = gRelays[fsync ? 1 : 0];
    if (!made) {
        made = new Relay();
        made->fsync = fsync;
        if (!made->start(state)) return nullptr;
    }
    return made->pid > 0 ? made : nullptr;
}

const char* modeSuffix(bool fsync) { return fsync ? "_fsync" : ""; }

constexpr int kClients = 8;

std::string clientsSuffix(int clients) {
    return clients > 1 ? "_" + std::to_string(clients) + "clients" : "";
}

// `count` deposits one after the other, each on a connection of its own;
// answers how many were not acknowledged.
int depositSeries(uint16_t port, const std::string& archive, int count) {
    NSAutoreleasePool* outer = NSAutoreleasePool::alloc()->init();
    int refused = 0;
    for (int i = 0; i < count; i++) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        LXSocket* socket = LXSocket::alloc()->initWithEncryptionKey_("Mq7Tarn"_ns);
        socket->connect_port_("127.0.0.1"_ns, port);
        socket->sendInt_(1);
        socket->sendString_("2"_ns);
        // sendData: enciphers in place: a fresh copy each time.
        socket->sendData_(NSMutableData::dataWithBytes_length_(
                archive.data(), static_cast<uint32_t>(archive.size())));
        if (socket->readInt() != 1) refused++;
        socket->release();
        inner->release();
    }
    outer->release();
    return refused;
}

// With `clients` > 1, that many clients deposit at once, each one delta
// after the other (redis-benchmark -c N is the peer).
void BM_RelayDeposit(benchmark::State& state, bool fsync, int clients) {
    Relay* r = relay(state, fsync);
    if (!r) return;
    std::string archive;
    {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        NSData* bytes = archiveOf(saveDelta(kQueue, kSender, kAddressee));
        void* copy = bytes->bytes();
        archive.assign(static_cast<const char*>(copy), bytes->length());
        std::free(copy);
        pool->release();
    }
    int refused = 0;
    int each = kRelayOperations / clients;
    auto t0 = std::chrono::steady_clock::now();
    for (auto _ : state) {
        if (clients == 1) {
            refused = depositSeries(r->port, archive, each);
            continue;
        }
        // Processes, not threads: the object model's reference counts are
        // not atomic, and the clients would share the constant objects.
        std::vector<pid_t> children;
        for (int c = 0; c < clients; c++) {
            pid_t child = fork();
            if (child == 0) _exit(depositSeries(r->port, archive, each) == 0 ? 0 : 1);
            children.push_back(child);
        }
        for (pid_t child : children) {
            int status = 0;
            if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status) ||
                WEXITSTATUS(status) != 0)
                refused++;
        }
    }
    double rate = static_cast<double>(each * clients) / secondsSince(t0);
    if (refused) state.SkipWithError("a deposit was not acknowledged");
    gFigures[std::string("deposit") + modeSuffix(fsync) + clientsSuffix(clients)] = rate;
    state.counters["deposits/s"] = rate;
    state.counters["delta_bytes"] = deltaSize();
    state.counters["prefill_s"] = r->prefillSeconds;
    state.counters["start_s"] = r->startSeconds;
}
BENCHMARK_CAPTURE(BM_RelayDeposit, plain, false, 1)
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RelayDeposit, fsync, true, 1)
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RelayDeposit, plain / 8 clients, false, kClients)
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RelayDeposit, fsync / 8 clients, true, kClients)
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);

void BM_RelayCollect(benchmark::State& state, bool fsync) {
    Relay* r = relay(state, fsync);
    if (!r) return;
    NSAutoreleasePool* outer = NSAutoreleasePool::alloc()->init();
    LXSocket* socket = LXSocket::alloc()->initWithEncryptionKey_("Mq7Tarn"_ns);
    socket->connect_port_("127.0.0.1"_ns, r->port);
    socket->sendInt_(2);
    socket->sendString_("2"_ns);
    socket->sendString_("dummy_group"_ns);
    int32_t waiting = socket->readInt();
    bool broken = false;
    auto t0 = std::chrono::steady_clock::now();
    for (auto _ : state) {
        NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
        NSObject* delta = socket->readObject();
        if (!delta || !delta->isKindOfClass_(LXDelta::classObject())) broken = true;
        socket->sendInt_(1);
        inner->release();
    }
    double rate = static_cast<double>(state.iterations()) / secondsSince(t0);
    socket->release();
    outer->release();
    if (broken || waiting < kQueue) state.SkipWithError("the collect broke or the queue was short");
    gFigures[std::string("collect") + modeSuffix(fsync)] = rate;
    state.counters["collects/s"] = rate;
    state.counters["queue"] = waiting;
}
BENCHMARK_CAPTURE(BM_RelayCollect, plain, false)
        ->Iterations(kRelayOperations)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RelayCollect, fsync, true)
        ->Iterations(kRelayOperations)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);

// ---------------------------------------------------------------------------
// Redis, one server per durability mode, its list prefilled like the relay's
// queue.

struct Redis {
    std::string mode;
    std::string dir;
    pid_t pid = -1;
    uint16_t port = 0;

    std::string cli(const std::string& command) const {
        return run("redis-cli -h 127.0.0.1 -p " + std::to_string(port) + " " + command +
                   " 2>/dev/null");
    }
    bool start(const std::string& fsyncMode, uint32_t valueSize, benchmark::State& state) {
        mode = fsyncMode;
        dir = makeTempDir("vt-redis-bench");
        port = freePort();
        pid = spawn({"redis-server", "--port", std::to_string(port), "--bind", "127.0.0.1", "--dir",
                     dir, "--appendonly", "yes", "--appendfsync", mode, "--save", "", "--daemonize",
                     "no"},
                    dir + "/redis.log");
        auto t0 = std::chrono::steady_clock::now();
        while (pid > 0 && cli("ping").find("PONG") == std::string::npos) {
            if (secondsSince(t0) > 10 || waitpid(pid, nullptr, WNOHANG) != 0) {
                state.SkipWithError(
                        "redis-server did not start (apt-get install redis-server redis-tools)");
                pid = -1;
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        run("redis-benchmark -h 127.0.0.1 -p " + std::to_string(port) +
            " -c 1 -P 100 -q -t lpush -n " + std::to_string(kQueue) + " -d " +
            std::to_string(valueSize) + " >/dev/null 2>&1");
        return atoi(cli("llen mylist").c_str()) >= kQueue;
    }
    ~Redis() {
        stop(pid);
        if (!dir.empty()) run("rm -rf '" + dir + "'");
    }
};

Redis* gRedis = nullptr;

Redis* redisFor(const std::string& mode, benchmark::State& state) {
    if (gRedis && gRedis->mode == mode) return gRedis->pid > 0 ? gRedis : nullptr;
    delete gRedis;
    gRedis = new Redis();
    if (!gRedis->start(mode, deltaSize(), state)) {
        if (gRedis->pid > 0) state.SkipWithError("the Redis list could not be prefilled");
        return nullptr;
    }
    return gRedis;
}

// requests/s of one redis-benchmark test (lower case) with `clients` at
// once, or 0.
double redisBenchmark(const Redis& r, const std::string& test, int requests, int clients) {
    std::string out =
            run("redis-benchmark -h 127.0.0.1 -p " + std::to_string(r.port) + " -c " +
                std::to_string(clients) + " -k 0 --csv -t " + test + " -n " +
                std::to_string(requests) + " -d " + std::to_string(deltaSize()) + " 2>/dev/null");
    std::string upper;
    for (char c : test) upper += static_cast<char>(toupper(c));
    size_t at = out.find("\"" + upper + "\",\"");
    return at == std::string::npos ? 0 : atof(out.c_str() + at + upper.size() + 4);
}

void BM_Redis(benchmark::State& state, const char* mode, const char* test, int requests,
              int clients) {
    Redis* r = redisFor(mode, state);
    if (!r) return;
    int before = atoi(r->cli("llen mylist").c_str());
    double rate = 0;
    for (auto _ : state) rate = redisBenchmark(*r, test, requests, clients);
    if (rate <= 0) state.SkipWithError("redis-benchmark gave no figure");
    gFigures[std::string(mode) + "/" + test + clientsSuffix(clients)] = rate;
    state.counters["requests/s"] = rate;
    state.counters["list_length"] = before;
}
BENCHMARK_CAPTURE(BM_Redis, everysec / LPUSH, "everysec", "lpush", 20000, 1)
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Redis, everysec / RPOP, "everysec", "rpop", 20000, 1)
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Redis, everysec / LPUSH / 8 clients, "everysec", "lpush", 20000, kClients)
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Redis, always / LPUSH, "always", "lpush", 5000, 1)
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Redis, always / RPOP, "always", "rpop", 5000, 1)
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Redis, always / LPUSH / 8 clients, "always", "lpush", 5000, kClients)
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);

// Ends the servers however the run was filtered.
struct StopServersAtExit {
    ~StopServersAtExit() {
        delete gRedis;
        for (Relay* r : gRelays) delete r;
    }
} gStopServersAtExit;

// The relay's figures over Redis's: deposit against LPUSH, collect against
// RPOP, the plain relay against everysec and the --fsync one against always.
void BM_Ratios(benchmark::State& state) {
    for (auto _ : state) {
    }
    for (bool fsync : {false, true}) {
        std::string mode = fsync ? "always" : "everysec";
        double lpush = gFigures[mode + "/lpush"];
        double rpop = gFigures[mode + "/rpop"];
        std::string suffix = modeSuffix(fsync);
        state.counters["deposit" + suffix + "/LPUSH_" + mode] =
                lpush > 0 ? gFigures["deposit" + suffix] / lpush : 0;
        state.counters["collect" + suffix + "/RPOP_" + mode] =
                rpop > 0 ? gFigures["collect" + suffix] / rpop : 0;
    }
    // Clients at once, against Redis with as many: the relay's deposits
    // that arrive together share the forced writes, as Redis's do.
    std::string many = clientsSuffix(kClients);
    for (bool fsync : {false, true}) {
        std::string mode = fsync ? "always" : "everysec";
        std::string deposit = std::string("deposit") + modeSuffix(fsync) + many;
        double lpush = gFigures[mode + "/lpush" + many];
        state.counters[deposit + "/LPUSH_" + mode + many] =
                lpush > 0 ? gFigures[deposit] / lpush : 0;
    }
}
BENCHMARK(BM_Ratios)->Iterations(1);

}  // namespace
