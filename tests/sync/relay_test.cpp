// The relay: the real vantor-relay process on a free loopback port in a
// directory of its own, spoken to as the client speaks (LXSocket, the
// transceiver's check cycle) and with raw bytes where a client misbehaves.
// What is stored, delivered, refused and logged; restarts and a kill;
// stalled and hostile clients; a port in use. Store failures are made in
// process with the container's fault layer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "storage/LXContainer.h"
#include "sync/LXRelay.h"
#include "sync/LXSocket.h"
#include "sync/LXTransceiver.h"
#include "sync_test_support.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TestSupport.h"

extern char** environ;

// A pool's delegate that takes every delta and notes its contents.
class RelayTestDelegate : public NSObject {
    NS_DECLARE_CLASS(RelayTestDelegate, NSObject)

public:
    bool processDelta_(LXDelta* delta) {
        seen.push_back(delta->contents() ? delta->contents()->description()->UTF8String()
                                         : "<nil>");
        return true;
    }
    std::vector<std::string> seen;

    RelayTestDelegate() = default;

protected:
    ~RelayTestDelegate() override = default;
};

NS_CLASS_BEGIN(RelayTestDelegate, NSObject)
    NS_METHOD(processDelta_)
NS_CLASS_END(RelayTestDelegate)

namespace {

using namespace synctest;

const char* kSender = "John Smith/Sales/Acme-1";
const char* kJane = "Jane Doe/R&D/Acme-2";      // uniqueId "2"
const char* kMax = "Max Mustermann/IT/Acme-3";  // uniqueId "3"

std::string relayPath() {
    const char* path = std::getenv("VANTOR_RELAY_PATH");
    return path ? path : VANTOR_RELAY_PATH;
}

LXDelta* delta(const char* contents, const char* to = kJane) {
    LXDelta* d = LXDelta::deltaWithPool_sender_contents_(
            LXPool::poolWithName_("Rk2pWn"_ns), LXUser::userWithString_(ns(kSender)), ns(contents));
    if (to) d->setAddressee_(LXUser::userWithString_(ns(to)));
    return d;
}

std::string intBytes(int32_t value) {
    std::string b(4, '\0');
    for (int i = 0; i < 4; i++) b[i] = static_cast<char>(static_cast<uint32_t>(value) >> (8 * i));
    return b;
}
std::string stringElement(const std::string& s) {
    return intBytes(static_cast<int32_t>(s.size())) + s + '\0';
}
std::string dataElement(const std::string& payload) {
    return intBytes(static_cast<int32_t>(payload.size())) + payload;
}
std::string deltaElement(NSObject* object) { return dataElement(cipher(archiveOf(object), true)); }

size_t occurrences(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) n++;
    return n;
}

// Changes the working directory for one scope.
class InDir {
public:
    explicit InDir(const std::string& dir) {
        char cwd[4096];
        _previous = getcwd(cwd, sizeof cwd) ? cwd : ".";
        EXPECT_EQ(chdir(dir.c_str()), 0);
    }
    ~InDir() { EXPECT_EQ(chdir(_previous.c_str()), 0); }

private:
    std::string _previous;
};

// One vantor-relay process: --port 0 in `dir`, standard output and error to
// a log file of its own there, with --fsync when asked. Killed at the end
// of the scope at the latest.
class RelayProcess {
public:
    RelayProcess(const std::string& dir, double timeout = 5, bool fsync = false) : _dir(dir) {
        static int serial = 0;
        _logPath = dir + "/relay-" + std::to_string(++serial) + ".log";
        std::string seconds = std::to_string(timeout);
        std::string path = relayPath();
        std::vector<const char*> argv = {path.c_str(), "--port",       "0", "--dir", dir.c_str(),
                                         "--timeout",  seconds.c_str()};
        if (fsync) argv.push_back("--fsync");
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, _logPath.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        if (posix_spawn(&_pid, path.c_str(), &actions, nullptr, const_cast<char**>(argv.data()),
                        environ) != 0) {
            _pid = -1;
        }
        posix_spawn_file_actions_destroy(&actions);
        EXPECT_GT(_pid, 0) << path;
        EXPECT_TRUE(waitForLog("listening on port ")) << log();
        std::string text = log();
        size_t at = text.find("listening on port ");
        if (at != std::string::npos)
            _port = static_cast<uint16_t>(std::atoi(text.c_str() + at + 18));
        EXPECT_NE(_port, 0);
    }
    ~RelayProcess() { stop(SIGKILL); }

    uint16_t port() const { return _port; }
    // The most memory the process has held at once (VmHWM), in KiB.
    long peakKilobytes() const {
        std::string status = vt_test::readFile("/proc/" + std::to_string(_pid) + "/status");
        size_t at = status.find("VmHWM:");
        return at == std::string::npos ? -1 : std::atol(status.c_str() + at + 6);
    }
    std::string log() const { return vt_test::readFile(_logPath); }
    // Waits until `text` occurs `count` times in the log.
    bool waitForLog(const std::string& text, size_t count = 1, double seconds = 5) const {
        auto start = std::chrono::steady_clock::now();
        while (occurrences(log(), text) < count) {
            if (secondsSince(start) > seconds) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return true;
    }
    // Sends the signal and reaps the process (SIGKILL after 5 s).
    void stop(int signal = SIGTERM) {
        if (_pid <= 0) return;
        kill(_pid, signal);
        auto start = std::chrono::steady_clock::now();
        int status = 0;
        while (waitpid(_pid, &status, WNOHANG) == 0) {
            if (secondsSince(start) > 5) kill(_pid, SIGKILL);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        _pid = -1;
        // In the sanitizer build the relay is instrumented too.
        std::string text = log();
        EXPECT_EQ(text.find("Sanitizer"), std::string::npos) << text;
        EXPECT_EQ(text.find("runtime error:"), std::string::npos) << text;
    }

private:
    std::string _dir;
    std::string _logPath;
    pid_t _pid = -1;
    uint16_t _port = 0;
};

// Owned by the caller: releasing it closes the connection at once, which
// the relay waits for when a turn is not acknowledged.
LXSocket* connectTo(uint16_t port) {
    LXSocket* socket = LXSocket::alloc()->initWithEncryptionKey_("Mq7Tarn"_ns);
    EXPECT_TRUE(socket->connect_port_("127.0.0.1"_ns, port));
    return socket;
}

// Command 1 as the transceiver sends it; the relay's answer, or -1 when the
// connection closed without one.
int32_t deposit(uint16_t port, LXDelta* d, const char* announced = nullptr) {
    LXSocket* socket = connectTo(port);
    socket->sendInt_(1);
    socket->sendString_(announced ? ns(announced) : d->addressee()->uniqueId());
    std::string archive = archiveOf(d);
    socket->sendData_(
            NSData::dataWithBytes_length_(archive.data(), static_cast<uint32_t>(archive.size())));
    int32_t answer = socket->readInt();
    if (socket->isBroken()) answer = -1;
    socket->release();
    return answer;
}

struct Collected {
    int32_t announced = -1;
    std::vector<std::string> contents;
};

// Command 2 as the transceiver sends it. Acknowledges the first `acks`
// deltas (all when negative); at the next one it sends `stopWith` instead
// (nothing when 0) and closes.
Collected collect(uint16_t port, const char* uniqueId, int acks = -1, int32_t stopWith = 0) {
    Collected result;
    LXSocket* socket = connectTo(port);
    socket->sendInt_(2);
    socket->sendString_(ns(uniqueId));
    socket->sendString_("dummy_group"_ns);
    result.announced = socket->readInt();
    if (socket->isBroken()) result.announced = -1;
    for (int32_t i = 0; i < result.announced; i++) {
        NSObject* object = socket->readObject();
        if (!object || !object->isKindOfClass_(LXDelta::classObject())) break;
        NSObject* contents = static_cast<LXDelta*>(object)->contents();
        result.contents.push_back(contents ? contents->description()->UTF8String() : "<nil>");
        if (acks >= 0 && i >= acks) {
            if (stopWith != 0) socket->sendInt_(stopWith);
            break;
        }
        socket->sendInt_(1);
    }
    socket->release();
    return result;
}

std::vector<std::string> words(std::initializer_list<const char*> list) {
    return std::vector<std::string>(list.begin(), list.end());
}

class RelayTest : public ::testing::Test {
protected:
    void SetUp() override {
        pool = NSAutoreleasePool::alloc()->init();
        // A broken relay fails a test within seconds instead of hanging it.
        LXSocket::setDefaultReceiveTimeout_(5);
        // The default transceiver opens "_deltas_" where it is first used:
        // here, not in a directory of a test's own transceiver.
        LXTransceiver::defaultTransceiver();
        dir = vt_test::makeTempDir("vt-relay");
    }
    void TearDown() override {
        LXSocket::setDefaultReceiveTimeout_(LXSocket::kDefaultReceiveTimeout);
        LXContainer::failWriteForTesting(0);
        pool->release();
        vt_test::removeTree(dir);
    }

    NSAutoreleasePool* pool = nullptr;
    std::string dir;
};

TEST_F(RelayTest, EmptyCollectAnswersZeroAndCloses) {
    RelayProcess relay(dir);
    RawPeer peer(vt_test::connectLoopback(relay.port()));
    peer.write(intBytes(2) + stringElement("2") + stringElement("dummy_group"));
    EXPECT_EQ(peer.read(4), intBytes(0));
    EXPECT_EQ(peer.readAll(), "");
    EXPECT_EQ(relay.log(), "0 delta(s) restored\nlistening on port " +
                                   std::to_string(relay.port()) +
                                   "\nnew connection accepted - 2\n");
}

// Two real transceivers, one after the other, each in a directory of its
// own (each opens "_deltas_" where it starts).
TEST_F(RelayTest, TransceiversDepositAndCollectThroughTheRelay) {
    RelayProcess relay(dir);
    LXPool* channel = LXPool::poolWithName_("Rk2pWn"_ns);
    std::string senderDir = vt_test::makeTempDir("vt-relay-a");
    std::string janeDir = vt_test::makeTempDir("vt-relay-b");
    {
        InDir in(senderDir);
        LXTransceiver* sender = LXTransceiver::alloc()->init();
        sender->setUser_(LXUser::userWithString_(ns(kSender)));
        sender->registerPool_(channel);
        for (const char* word : {"one", "two"}) {
            sender->post_to_(LXDelta::deltaWithPool_sender_contents_(
                                     channel, LXUser::userWithString_(ns(kSender)), ns(word)),
                             LXUser::userWithString_(ns(kJane)));
        }
        std::string log =
                vt_test::logOf([&] { sender->checkWithPort_host_(relay.port(), "127.0.0.1"_ns); });
        EXPECT_EQ(log,
                  "checking deltas - to be sent: 2\nsending delta 1\n"
                  "checking deltas - to be sent: 1\nsending delta 2\nshould get 0 delta(s)\n");
        EXPECT_EQ(sender->deltaRepository()->count(), 0u);
        sender->release();
    }
    EXPECT_EQ(occurrences(relay.log(), std::string("delta enqueued: (Rk2pWn) ") + kSender + " -> " +
                                               kJane + " (NSString), total users: 1\n"),
              2u);
    {
        InDir in(janeDir);
        RelayTestDelegate* delegate = RelayTestDelegate::alloc();
        delegate->init();
        LXPool* janePool = LXPool::poolWithName_("Rk2pWn"_ns);
        janePool->setDelegate_(delegate);
        LXTransceiver* jane = LXTransceiver::alloc()->init();
        jane->setUser_(LXUser::userWithString_(ns(kJane)));
        jane->registerPool_(janePool);
        EXPECT_EQ(vt_test::logOf([&] { jane->checkWithPort_host_(relay.port(), "127.0.0.1"_ns); }),
                  "should get 2 delta(s)\n");
        EXPECT_EQ(delegate->seen, words({"one", "two"}));
        EXPECT_EQ(vt_test::logOf([&] { jane->checkWithPort_host_(relay.port(), "127.0.0.1"_ns); }),
                  "should get 0 delta(s)\n");
        jane->release();
        janePool->setDelegate_(nullptr);
        delegate->release();
    }
    vt_test::removeTree(senderDir);
    vt_test::removeTree(janeDir);
}

TEST_F(RelayTest, RestartRestoresQueuesInArrivalOrder) {
    {
        RelayProcess relay(dir);
        // Enough ids that the store's set of them is not in numeric order.
        for (int i = 1; i <= 11; i++)
            ASSERT_EQ(deposit(relay.port(), delta(("j" + std::to_string(i)).c_str())), 1);
        ASSERT_EQ(deposit(relay.port(), delta("m1", kMax)), 1);
        EXPECT_TRUE(relay.waitForLog("total users: 2"));
        relay.stop();
    }
    RelayProcess relay(dir);
    EXPECT_EQ(relay.log().substr(0, 21), "12 delta(s) restored\n");
    Collected jane = collect(relay.port(), "2");
    EXPECT_EQ(jane.announced, 11);
    EXPECT_EQ(jane.contents,
              words({"j1", "j2", "j3", "j4", "j5", "j6", "j7", "j8", "j9", "j10", "j11"}));
    Collected max = collect(relay.port(), "3");
    EXPECT_EQ(max.contents, words({"m1"}));
    EXPECT_EQ(collect(relay.port(), "2").announced, 0);
    EXPECT_EQ(collect(relay.port(), "3").announced, 0);
}

TEST_F(RelayTest, UnknownCommandIsClosedWithoutReply) {
    RelayProcess relay(dir);
    RawPeer peer(vt_test::connectLoopback(relay.port()));
    peer.write(intBytes(7) + stringElement("2"));
    EXPECT_EQ(peer.readAll(), "");
    EXPECT_TRUE(relay.waitForLog(
            "new connection accepted - 7\nunknown command 7 - connection closed\n"));
    // And the relay goes on.
    EXPECT_EQ(collect(relay.port(), "2").announced, 0);
}

TEST_F(RelayTest, SameDeltaDepositedTwiceIsDeliveredTwice) {
    RelayProcess relay(dir);
    LXDelta* d = delta("again");
    EXPECT_EQ(deposit(relay.port(), d), 1);
    EXPECT_EQ(deposit(relay.port(), d), 1);
    EXPECT_EQ(collect(relay.port(), "2").contents, words({"again", "again"}));
}

// A collect that breaks after a delta was sent keeps it and everything
// behind it; what was acknowledged before stays deleted, across a restart.
TEST_F(RelayTest, BrokenCollectKeepsTheRestAcknowledgedStayDeleted) {
    {
        RelayProcess relay(dir);
        for (const char* word : {"a", "b", "c", "d", "e"})
            ASSERT_EQ(deposit(relay.port(), delta(word)), 1);
        Collected first = collect(relay.port(), "2", 2);  // acks a, b; closes at c
        EXPECT_EQ(first.announced, 5);
        EXPECT_EQ(first.contents, words({"a", "b", "c"}));
        EXPECT_TRUE(relay.waitForLog("reception not committed\n"));
        Collected second = collect(relay.port(), "2", 0, 7);  // answers c with 7
        EXPECT_EQ(second.announced, 3);
        EXPECT_EQ(second.contents, words({"c"}));
        EXPECT_TRUE(relay.waitForLog("reception not committed\n", 2));
        relay.stop();
    }
    RelayProcess relay(dir);
    EXPECT_EQ(relay.log().substr(0, 20), "3 delta(s) restored\n");
    EXPECT_EQ(collect(relay.port(), "2").contents, words({"c", "d", "e"}));
}

TEST_F(RelayTest, PortInUseEndsWithSocketNotBound) {
    RelayProcess relay(dir);
    std::string other = vt_test::makeTempDir("vt-relay-c");
    vt_test::ProgramResult result = vt_test::runProgram(vt_test::quoteShell(relayPath()) +
                                                        " --port " + std::to_string(relay.port()) +
                                                        " --dir " + vt_test::quoteShell(other));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(occurrences(result.out, "listening"), 0u);
    const std::string last = "\nsocket not bound\n";
    ASSERT_GE(result.out.size(), last.size());
    EXPECT_EQ(result.out.substr(result.out.size() - last.size()), last);
    vt_test::removeTree(other);
}

TEST_F(RelayTest, BadOptionsGiveUsageAndStatusTwo) {
    for (const char* args : {"--port 70000", "--port", "--timeout -1", "--verbose", "--dir ''"}) {
        vt_test::ProgramResult result =
                vt_test::runProgram(vt_test::quoteShell(relayPath()) + " " + args);
        EXPECT_EQ(result.status, 2) << args;
        EXPECT_NE(result.err.find("usage: vantor-relay"), std::string::npos) << args;
        EXPECT_EQ(result.out, "") << args;
    }
    vt_test::ProgramResult missing =
            vt_test::runProgram(vt_test::quoteShell(relayPath()) + " --port 0 --dir " +
                                vt_test::quoteShell(dir + "/none"));
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find("can't enter"), std::string::npos);
    EXPECT_FALSE(vtFileStatus((dir + "/none").c_str(), nullptr));
}

// With --timeout 1, a client that says nothing, or stops in the middle of a
// delta, holds no one back, and is dropped when its second has passed.
TEST_F(RelayTest, StalledClientsDoNotBlockOthersBeyondTheTimeout) {
    RelayProcess relay(dir, 1);
    RawPeer silent(vt_test::connectLoopback(relay.port()));
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(collect(relay.port(), "2").announced, 0);
    EXPECT_LT(secondsSince(start), 3.5);
    EXPECT_EQ(silent.readAll(), "");
    EXPECT_TRUE(relay.waitForLog("connection closed before its command\n"));

    RawPeer halfway(vt_test::connectLoopback(relay.port()));
    halfway.write(intBytes(1) + stringElement("2") + intBytes(1000) + std::string(10, 'x'));
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(deposit(relay.port(), delta("whole")), 1);
    EXPECT_LT(secondsSince(start), 3.5);
    EXPECT_EQ(halfway.readAll(), "");  // no acknowledgement
    EXPECT_TRUE(
            relay.waitForLog("connection dropped: turn not done within 1.0 s\ndeposit refused: no "
                             "delta received\n"));
    EXPECT_EQ(collect(relay.port(), "2").contents, words({"whole"}));
}

// Hostile clients beside ordinary ones: hundreds of connections that say
// nothing (more than the relay serves at once), a hundred that announce a
// big delta and send only part of it, deposits to a flood of made-up ids,
// and a collector that takes a delta and never acknowledges it. The
// ordinary deposits and collects are all served (each within the 5 s the
// test's sockets wait), the relay's memory stays bounded, and the hostile
// connections are dropped when their turn's time has passed.
TEST_F(RelayTest, HostileClientsLeaveOrdinaryOnesServed) {
    RelayProcess relay(dir, 3);
    for (int i = 0; i < 200; i++) {
        std::string ghost = "Ghost Writer/None/Nowhere-ghost" + std::to_string(i);
        ASSERT_EQ(deposit(relay.port(), delta("boo", ghost.c_str())), 1) << i;
    }
    for (const char* word : {"m1", "m2", "m3"})
        ASSERT_EQ(deposit(relay.port(), delta(word, kMax)), 1);
    RawPeer slow(vt_test::connectLoopback(relay.port()));
    slow.write(intBytes(2) + stringElement("3") + stringElement("dummy_group"));
    EXPECT_EQ(slow.readInt(), 3);

    std::vector<std::unique_ptr<RawPeer>> hostile;
    for (int i = 0; i < 600; i++) {
        hostile.emplace_back(new RawPeer(vt_test::connectLoopback(relay.port())));
        ASSERT_GE(hostile.back()->fd(), 0) << i;
    }
    const std::string part(1 << 20, 'x');
    // Measured from here: the sanitizer build's relay starts much larger.
    long base = relay.peakKilobytes();
    for (int i = 0; i < 100; i++) {
        hostile.emplace_back(new RawPeer(vt_test::connectLoopback(relay.port())));
        std::string head = intBytes(1) + stringElement("2") + intBytes(16 << 20);
        ASSERT_TRUE(hostile.back()->write(head));
        // As much of the megabyte as the connection takes now.
        send(hostile.back()->fd(), part.data(), part.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    for (int round = 0; round < 10; round++) {
        std::string word = "ordinary" + std::to_string(round);
        ASSERT_EQ(deposit(relay.port(), delta(word.c_str())), 1) << round;
        EXPECT_EQ(collect(relay.port(), "2").contents, words({word.c_str()})) << round;
    }
    // Up to 100 MiB were offered; the relay buffers at most 64 MiB of
    // requests. The sanitizer build keeps freed memory aside for a while
    // (its quarantine), so each buffer's earlier sizes count there too.
#if defined(__SANITIZE_ADDRESS__)
    const long bound = 192 * 1024;
#else
    const long bound = 96 * 1024;
#endif
    EXPECT_LT(relay.peakKilobytes() - base, bound) << base;
    // A collect for the user whose collect is under way gets nothing; once
    // that one is dropped, the next gets all three again.
    EXPECT_EQ(collect(relay.port(), "3").announced, 0);
    EXPECT_TRUE(relay.waitForLog("reception not committed\n", 1, 10));
    EXPECT_EQ(collect(relay.port(), "3").contents, words({"m1", "m2", "m3"}));
    EXPECT_TRUE(relay.waitForLog("connection dropped: too many connections", 1, 10));
    EXPECT_TRUE(
            relay.waitForLog("connection dropped: turn not done within 3.0 s\n"
                             "deposit refused: no delta received\n",
                             100, 10));
}

TEST_F(RelayTest, OversizeLengthsAreRefusedBeforeAllocation) {
    RelayProcess relay(dir);
    {
        RawPeer peer(vt_test::connectLoopback(relay.port()));
        peer.write(intBytes(1) + stringElement("2") + intBytes(0x10000000));
        EXPECT_EQ(peer.readAll(), "");
    }
    {
        RawPeer peer(vt_test::connectLoopback(relay.port()));
        peer.write(intBytes(2) + intBytes(0x7FFFFFFF) + "2");
        EXPECT_EQ(peer.readAll(), "");
    }
    EXPECT_TRUE(relay.waitForLog(
            "socket: data of 268435456 bytes refused (limit 16777216); connection dropped\n"
            "deposit refused: no delta received\n"));
    EXPECT_TRUE(relay.waitForLog("collect refused: id of 2147483647 bytes (limit 256)\n"));
    EXPECT_EQ(collect(relay.port(), "2").announced, 0);
}

TEST_F(RelayTest, DepositsThatCannotBeDeliveredAreRefused) {
    RelayProcess relay(dir);
    // Announced for one user, addressed to another.
    EXPECT_EQ(deposit(relay.port(), delta("wrong"), "3"), -1);
    EXPECT_TRUE(relay.waitForLog("deposit refused: announced for 3, addressed to 2\n"));
    // Not a delta; a delta with no addressee.
    for (NSObject* object :
         {static_cast<NSObject*>(ns("text")), static_cast<NSObject*>(delta("lost", nullptr))}) {
        RawPeer peer(vt_test::connectLoopback(relay.port()));
        peer.write(intBytes(1) + stringElement("2") + deltaElement(object));
        EXPECT_EQ(peer.readAll(), "");
    }
    EXPECT_TRUE(relay.waitForLog("deposit refused: not a delta with an addressee\n", 2));
    EXPECT_EQ(collect(relay.port(), "2").announced, 0);
    EXPECT_EQ(collect(relay.port(), "3").announced, 0);
    EXPECT_EQ(occurrences(relay.log(), "enqueued"), 0u);
}

// A delta its addressee could never process (no pool, another pool, no
// contents) would stop every collect of that user: the relay takes none.
TEST_F(RelayTest, DepositsTheAddresseeCannotProcessAreRefused) {
    RelayProcess relay(dir);
    auto addressed = [](LXPool* pool, NSObject* contents) {
        LXDelta* d = LXDelta::deltaWithPool_sender_contents_(
                pool, LXUser::userWithString_(ns(kSender)), contents);
        d->setAddressee_(LXUser::userWithString_(ns(kJane)));
        return d;
    };
    EXPECT_EQ(deposit(relay.port(), addressed(nullptr, ns("no pool"))), -1);
    EXPECT_EQ(deposit(relay.port(), addressed(LXPool::poolWithName_(""_ns), ns("empty name"))), -1);
    EXPECT_EQ(
            deposit(relay.port(), addressed(LXPool::poolWithName_("Rk2pWx"_ns), ns("other pool"))),
            -1);
    EXPECT_EQ(deposit(relay.port(), addressed(LXPool::poolWithName_("Rk2pWn"_ns), nullptr)), -1);
    EXPECT_EQ(deposit(relay.port(), delta("fine")), 1);
    std::string prefix = std::string("deposit refused: ");
    EXPECT_TRUE(relay.waitForLog("delta enqueued"));
    std::string log = relay.log();
    EXPECT_EQ(occurrences(log, prefix + "no pool: ((null)) " + kSender + " -> " + kJane +
                                       " (NSString)\n"),
              1u)
            << log;
    EXPECT_EQ(occurrences(log, prefix + "no pool: () " + kSender), 1u) << log;
    EXPECT_EQ(occurrences(log, prefix + "unknown pool: (Rk2pWx) " + kSender), 1u) << log;
    EXPECT_EQ(occurrences(log, prefix + "no contents: (Rk2pWn) " + kSender + " -> " + kJane +
                                       " ((null))\n"),
              1u)
            << log;
    EXPECT_EQ(collect(relay.port(), "2").contents, words({"fine"}));
}

// Ids beyond the bound are refused in both commands; one at the bound is
// taken and delivered.
TEST_F(RelayTest, LongIdsAreRefused) {
    RelayProcess relay(dir);
    std::string limit(LXRelay::kMaximumIdLength, 'x');
    std::string over = limit + "y";
    std::string jane = std::string("Jane Doe/R&D/Acme-");
    EXPECT_EQ(deposit(relay.port(), delta("over", (jane + over).c_str())), -1);
    EXPECT_TRUE(relay.waitForLog("deposit refused: id of 257 bytes (limit 256)\n"));
    EXPECT_EQ(collect(relay.port(), over.c_str()).announced, -1);
    EXPECT_TRUE(relay.waitForLog("collect refused: id of 257 bytes (limit 256)\n"));
    EXPECT_EQ(deposit(relay.port(), delta("at the limit", (jane + limit).c_str())), 1);
    EXPECT_EQ(collect(relay.port(), limit.c_str()).contents, words({"at the limit"}));
}

// A queue emptied by a collect leaves the index: the next deposit, for
// another user, counts one user, not two. A collect that stops early keeps
// the queue.
TEST_F(RelayTest, EmptiedQueuesAreForgotten) {
    RelayProcess relay(dir);
    ASSERT_EQ(deposit(relay.port(), delta("a")), 1);
    ASSERT_EQ(deposit(relay.port(), delta("b")), 1);
    EXPECT_EQ(collect(relay.port(), "2", 1).contents, words({"a", "b"}));
    ASSERT_EQ(deposit(relay.port(), delta("m", kMax)), 1);
    EXPECT_TRUE(relay.waitForLog("(NSString), total users: 2\n"));
    EXPECT_EQ(collect(relay.port(), "2").contents, words({"b"}));
    EXPECT_EQ(collect(relay.port(), "3").contents, words({"m"}));
    ASSERT_EQ(deposit(relay.port(), delta("c")), 1);
    EXPECT_TRUE(relay.waitForLog("(NSString), total users: 1\n", 3));
    EXPECT_EQ(occurrences(relay.log(), "total users: 3"), 0u);
}

// Plain and with --fsync (each in a store of its own): an acknowledged
// deposit survives a kill.
TEST_F(RelayTest, KillRightAfterAcknowledgementLosesNothing) {
    for (bool fsync : {false, true}) {
        std::string store = dir + (fsync ? "/fsync" : "/plain");
        ASSERT_EQ(mkdir(store.c_str(), 0755), 0);
        {
            RelayProcess relay(store, 5, fsync);
            ASSERT_EQ(deposit(relay.port(), delta("kept")), 1);
            relay.stop(SIGKILL);
        }
        RelayProcess relay(store, 5, fsync);
        EXPECT_EQ(relay.log().substr(0, 20), "1 delta(s) restored\n") << fsync;
        EXPECT_EQ(collect(relay.port(), "2").contents, words({"kept"})) << fsync;
    }
}

// In process: a deposit whose store fails, at the block or at the index
// file, is not acknowledged and leaves nothing behind, not even after a
// restart; the next one is stored and acknowledged.
TEST_F(RelayTest, FailedStoreIsNotAcknowledged) {
    EXPECT_EQ(LXTransceiver::relayPort(), 8888u);  // found by name
    InDir in(dir);
    LXRelay* relay = nullptr;
    EXPECT_EQ(vt_test::logOf([&] { relay = LXRelay::alloc()->init(); }), "0 delta(s) restored\n");
    auto exchange = [&](int failingWrite, std::string* log) {
        bool acknowledged = false;
        LXContainer::failWriteForTesting(failingWrite);
        *log = vt_test::logOf(
                [&] { acknowledged = relay->depositObject_announced_(delta("d"), "2"_ns); });
        LXContainer::failWriteForTesting(0);
        return acknowledged;
    };
    std::string log;
    for (int failingWrite : {1, 2}) {
        EXPECT_FALSE(exchange(failingWrite, &log)) << failingWrite;
        EXPECT_NE(log.find("deposit not stored: (Rk2pWn) John Smith/Sales/Acme-1 -> Jane "
                           "Doe/R&D/Acme-2 (NSString) - "
                           "no acknowledgement\n"),
                  std::string::npos)
                << log;
        EXPECT_EQ(relay->container()->count_(LXDelta::classObject()), 0u);
        EXPECT_EQ(relay->index()->objectsForKey_("2"_ns)->count(), 0u);
    }
    relay->release();
    EXPECT_EQ(vt_test::logOf([&] { relay = LXRelay::alloc()->init(); }), "0 delta(s) restored\n");
    EXPECT_TRUE(exchange(0, &log));
    EXPECT_EQ(log,
              "delta enqueued: (Rk2pWn) John Smith/Sales/Acme-1 -> Jane Doe/R&D/Acme-2 (NSString), "
              "total users: 1\n");
    relay->release();
    EXPECT_EQ(vt_test::logOf([&] { relay = LXRelay::alloc()->init(); }), "1 delta(s) restored\n");
    relay->release();
}

}  // namespace
