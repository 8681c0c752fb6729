// The secure protocol against the plain one, in one run, each against a
// vantor-relay process of its own (plain, and --secure --anchor):
//
//   Relay/<mode>/Deposit   deposits/s of 500 deltas, deposited as the
//                          transceiver's send phase does (plain: one
//                          connection a delta; secure: up to 100 a
//                          connection, answered in turn); the client's
//                          part (the sealed and signed envelope) made
//                          beforehand, so that the figure is the relay's:
//                          reading, checking the certificate and the
//                          delta's signature (secure), storing, answering
//   Relay/<mode>/Collect   collects/s: one collect connection (the secure
//                          one answering the relay's challenge) for the
//                          deposited deltas, each read and acknowledged in
//                          turn
//   EndToEnd/<mode>        deltas/s from a sender's record to the
//                          addressee's decoded delta: the sender archives
//                          the delta (secure: seals it to the addressee's
//                          key and signs the sealed bytes), deposits them
//                          (as above);
//                          the addressee collects (secure: answering the
//                          challenge) and decodes each (secure: opens it,
//                          checks the certificate against the anchor and
//                          the signature)
//   Ratios                 secure figure / plain figure (goal: at least 0.8)
//
// The delta is a Save of a record of 12 string fields, as in relay_bench.
// Build in Release and run by hand:
//
//   cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DVANTOR_WINELIB=OFF
//   cmake --build build-release -j2 --target secure_bench vantor-relay
//   build-release/bench/secure_bench
#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "BenchProcess.h"
#include "SaveDelta.h"
#include "foundation/Foundation.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"
#include "sync/LXCrypto.h"
#include "sync/LXDelta.h"
#include "sync/LXRelayProtocol.h"
#include "sync/LXSecure.h"
#include "sync/LXSocket.h"

namespace {

using namespace vt_bench;

constexpr int kDeltas = 500;
const char* const kSender = "John Smith/Sales/Acme-2";
const char* const kAddressee = "Jane Doe/R&D/Acme-3";

LXSecureIdentity makeUser(const std::string& id, const LXSecureIdentity* anchor) {
    LXSecureIdentity user;
    LXCrypto::KeyPairs pairs;
    LXCrypto::makeKeyPairs(&pairs);
    user.certificate = {id, pairs.signPublic, pairs.sealPublic, ""};
    user.signSecret = pairs.signSecret;
    user.sealSecret = pairs.sealSecret;
    user.anchor = anchor ? anchor->anchor : pairs.signPublic;
    user.certificate.signature = LXCrypto::sign(user.certificate.certifiedText(),
                                                anchor ? anchor->signSecret : pairs.signSecret);
    return user;
}

struct Users {
    LXSecureIdentity admin = makeUser("1", nullptr);
    LXSecureIdentity sender = makeUser("2", &admin);
    LXSecureIdentity addressee = makeUser("3", &admin);
};

Users& users() {
    static Users* made = [] {
        NSAutoreleasePoolScope pool;
        return new Users();
    }();
    return *made;
}

// One relay process per mode, made at its first benchmark.
struct Relay {
    std::string dir;
    pid_t pid = -1;
    uint16_t port = 0;

    bool start(bool secure) {
        dir = makeTempDir("vt-secure-bench");
        std::string log = dir + "/relay.log";
        std::vector<std::string> args = {builtProgram("VANTOR_RELAY_PATH", "relay/vantor-relay"),
                                         "--bind",
                                         "127.0.0.1",
                                         "--port",
                                         "0",
                                         "--dir",
                                         dir};
        if (secure) {
            std::string anchor = dir + "/anchor.txt";
            NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
            LXSecure::writeAnchorFile(anchor.c_str(), users().admin.anchor);
            pool->release();
            args.insert(args.end(), {"--secure", "--anchor", anchor});
        }
        pid = spawn(args, log);
        auto t0 = std::chrono::steady_clock::now();
        while (pid > 0 && readFile(log).find("listening on port ") == std::string::npos) {
            if (secondsSince(t0) > 30 || waitpid(pid, nullptr, WNOHANG) != 0) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        std::string text = readFile(log);
        port = static_cast<uint16_t>(atoi(text.c_str() + text.find("listening on port ") + 18));
        return pid > 0;
    }
    ~Relay() {
        stop(pid);
        if (!dir.empty()) run("rm -rf '" + dir + "'");
    }
};

Relay* relay(benchmark::State& state, bool secure) {
    // Destroyed at exit, which stops the relay processes.
    static std::unique_ptr<Relay> made[2];
    std::unique_ptr<Relay>& r = made[secure ? 1 : 0];
    if (!r) {
        r = std::make_unique<Relay>();
        if (!r->start(secure)) state.SkipWithError("vantor-relay did not start");
    }
    return r->pid > 0 ? r.get() : nullptr;
}

std::map<std::string, double> gFigures;
const char* modeName(bool secure) { return secure ? "secure" : "plain"; }

Ref<LXSocket> connect(uint16_t port) {
    Ref<LXSocket> socket = adoptRef(LXSocket::alloc()->initWithEncryptionKey_(
            NSString::stringWithUTF8String_(LXRelayProtocol::kWireKey)));
    socket->connect_port_("127.0.0.1"_ns, port);
    return socket;
}

// What a deposit carries: the archive of the delta (secure: of its
// envelope, sealed and signed).
std::string prepare(LXDelta* delta, bool secure) {
    if (secure) {
        const Users& u = users();
        delta = LXSecure::sealedDelta(delta, u.sender, u.addressee.certificate.sealPublic);
    }
    return LXSecure::bytesOf(NSArchiver::archivedDataWithRootObject_(delta));
}

// Deposits the archives as the transceiver's send phase does: plain, one
// connection a delta; secure, up to kMaximumBatch a connection, sent
// before the acknowledgements are read. The number acknowledged.
int deposit(uint16_t port, const std::vector<std::string>& archives, bool secure) {
    const size_t most = secure ? LXRelayProtocol::kMaximumBatch : 1;
    int acknowledged = 0;
    for (size_t from = 0; from < archives.size(); from += most) {
        size_t n = std::min(most, archives.size() - from);
        Ref<LXSocket> socket = connect(port);
        socket->sendInt_(secure ? LXRelayProtocol::kSecureDeposit : LXRelayProtocol::kDeposit);
        if (secure) socket->sendInt_(static_cast<int32_t>(n));
        for (size_t i = from; i < from + n; i++) {
            socket->sendString_("3"_ns);
            socket->sendData_(LXSecure::dataOf(archives[i]));
        }
        for (size_t i = 0; i < n; i++) {
            if (socket->readInt() != LXRelayProtocol::kAcknowledged) return acknowledged;
            acknowledged++;
        }
    }
    return acknowledged;
}

// Collects the addressee's queue, handing each delta to `take`; the
// number taken.
template <class Take>
int collect(uint16_t port, bool secure, Take take) {
    Ref<LXSocket> socket = connect(port);
    const Users& u = users();
    if (secure) {
        socket->sendInt_(LXRelayProtocol::kSecureCollect);
        socket->sendString_("3"_ns);
        socket->sendData_(
                NSArchiver::archivedDataWithRootObject_(u.addressee.certificate.dictionary()));
        std::string challenge = LXSecure::bytesOf(socket->readData());
        socket->sendData_(LXSecure::dataOf(
                LXCrypto::sign(LXSecure::collectText("3", challenge), u.addressee.signSecret)));
    } else {
        socket->sendInt_(LXRelayProtocol::kCollect);
        socket->sendString_("3"_ns);
        socket->sendString_("dummy_group"_ns);
    }
    int32_t n = socket->readInt();
    int taken = 0;
    for (int32_t i = 0; i < n; i++) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        NSData* data = socket->readData();
        bool ok = data && take(data);
        pool->release();
        if (!ok || !socket->sendInt_(LXRelayProtocol::kAcknowledged)) break;
        taken++;
    }
    return taken;
}

// The receiver's side of one delta: decoded (secure: opened and checked).
bool receive(NSData* data, bool secure) {
    Ref<NSUnarchiver> unarchiver =
            NSMake<NSUnarchiver>(&NSUnarchiver::initForReadingWithData_, data);
    NSObject* object = unarchiver->decodeObject();
    if (!object || !object->isKindOfClass_(LXDelta::classObject())) return false;
    if (!secure) return static_cast<LXDelta*>(object)->contents() != nullptr;
    const Users& u = users();
    std::string signedText, signature;
    LXUserCertificate sender;
    const char* why = nullptr;
    LXDelta* opened = LXSecure::openedDelta(static_cast<LXDelta*>(object), u.addressee, &signedText,
                                            &signature, &sender, &why);
    return opened && sender.isCertifiedBy(u.admin.anchor) &&
           LXSecure::deltaSignatureHolds(signedText, signature, sender.signPublic);
}

void BM_RelayDeposit(benchmark::State& state, bool secure) {
    NSAutoreleasePoolScope setUp;
    Relay* r = relay(state, secure);
    if (!r) return;
    std::vector<std::string> archives(kDeltas, prepare(saveDelta(1, kSender, kAddressee), secure));
    int acknowledged = 0;
    auto t0 = std::chrono::steady_clock::now();
    for (auto _ : state) {
        NSAutoreleasePoolScope pool;
        acknowledged = deposit(r->port, archives, secure);
    }
    double rate = acknowledged / secondsSince(t0);
    if (acknowledged != kDeltas) state.SkipWithError("a deposit was refused");
    gFigures[std::string("deposit_") + modeName(secure)] = rate;
    state.counters["deposits/s"] = rate;
    state.counters["bytes"] = static_cast<double>(archives[0].size());
}

void BM_RelayCollect(benchmark::State& state, bool secure) {
    NSAutoreleasePoolScope outer;
    Relay* r = relay(state, secure);
    if (!r) return;
    int taken = 0;
    auto t0 = std::chrono::steady_clock::now();
    for (auto _ : state) taken = collect(r->port, secure, [](NSData*) { return true; });
    double rate = taken / secondsSince(t0);
    if (taken != kDeltas) state.SkipWithError("not every deposited delta was collected");
    gFigures[std::string("collect_") + modeName(secure)] = rate;
    state.counters["collects/s"] = rate;
}

void BM_EndToEnd(benchmark::State& state, bool secure) {
    NSAutoreleasePoolScope outer;
    Relay* r = relay(state, secure);
    if (!r) return;
    int received = 0;
    auto t0 = std::chrono::steady_clock::now();
    for (auto _ : state) {
        std::vector<std::string> archives;
        for (int i = 0; i < kDeltas; i++) {
            NSAutoreleasePoolScope pool;
            archives.push_back(prepare(saveDelta(i, kSender, kAddressee), secure));
        }
        deposit(r->port, archives, secure);
        received = collect(r->port, secure, [&](NSData* data) { return receive(data, secure); });
    }
    double rate = received / secondsSince(t0);
    if (received != kDeltas) state.SkipWithError("not every delta arrived and checked out");
    gFigures[std::string("end_to_end_") + modeName(secure)] = rate;
    state.counters["deltas/s"] = rate;
}

#define VT_BOTH(function, name, iterations)          \
    BENCHMARK_CAPTURE(function, name / plain, false) \
            ->Iterations(iterations)                 \
            ->UseRealTime()                          \
            ->Unit(benchmark::kMillisecond);         \
    BENCHMARK_CAPTURE(function, name / secure, true) \
            ->Iterations(iterations)                 \
            ->UseRealTime()                          \
            ->Unit(benchmark::kMillisecond)

VT_BOTH(BM_RelayDeposit, Relay / Deposit, 1);
VT_BOTH(BM_RelayCollect, Relay / Collect, 1);
VT_BOTH(BM_EndToEnd, EndToEnd, 1);

void BM_Ratios(benchmark::State& state) {
    for (auto _ : state) {
    }
    for (const char* what : {"deposit", "collect", "end_to_end"}) {
        double plain = gFigures[std::string(what) + "_plain"];
        double secure = gFigures[std::string(what) + "_secure"];
        if (plain > 0) state.counters[std::string(what) + "_secure_vs_plain"] = secure / plain;
    }
}
BENCHMARK(BM_Ratios)->Iterations(1);

}  // namespace
