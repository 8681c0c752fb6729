// The transceiver's cycles against a scripted relay over loopback sockets:
// what goes on the wire in which order, what is logged, what stays in the
// store; the loop's lifetime; and a stress run in which a committing thread
// posts under a lock of its own while the cycles stall and drop.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "storage/LXContainer.h"
#include "sync/LXSocket.h"
#include "sync/LXTransceiver.h"
#include "sync_test_support.h"
#include "tests/support/TestSupport.h"

using namespace synctest;

// A pool's delegate: records what it was given and refuses by script.
// With a transaction lock it stands for the workspace, whose processDelta:
// begins a transaction on a matrix.
class TestDelegate : public NSObject {
    NS_DECLARE_CLASS(TestDelegate, NSObject)

public:
    bool processDelta_(LXDelta* delta) {
        std::unique_lock<std::mutex> held;
        if (transactionLock) held = std::unique_lock<std::mutex>(*transactionLock);
        std::lock_guard<std::mutex> guard(mutex);
        std::string contents =
                delta->contents() ? delta->contents()->description()->UTF8String() : "<nil>";
        seen.push_back(contents);
        return refuse.count(contents) == 0;
    }
    std::vector<std::string> seenNow() {
        std::lock_guard<std::mutex> guard(mutex);
        return seen;
    }

    std::mutex mutex;
    std::vector<std::string> seen;
    std::set<std::string> refuse;
    std::mutex* transactionLock = nullptr;

    TestDelegate() = default;

protected:
    ~TestDelegate() override = default;
};

NS_CLASS_BEGIN(TestDelegate, NSObject)
    NS_METHOD(processDelta_)
NS_CLASS_END(TestDelegate)

namespace {

const char* kMe = "Jane Doe/R&D/Acme-2-b";
const char* kOther = "John Smith/Sales/Acme-1";

class TransceiverTest : public ::testing::Test {
protected:
    void SetUp() override {
        pool = NSAutoreleasePool::alloc()->init();
        baseline = NSThread::registeredThreadCount();
        dir.reset(new ScopedWorkDir());
        transceiver = LXTransceiver::alloc()->init();
        delegate = TestDelegate::alloc();
        delegate->init();
        channel = LXPool::alloc()->initWithName_("Rk2pWn"_ns);
        channel->setDelegate_(delegate);
        transceiver->registerPool_(channel);
        transceiver->setUser_(LXUser::userWithString_(ns(kMe)));
    }
    void TearDown() override {
        relay.reset();
        waitForThreads(baseline);
        LXSocket::setDefaultReceiveTimeout_(LXSocket::kDefaultReceiveTimeout);
        transceiver->release();
        channel->release();
        delegate->release();
        pool->release();
        dir.reset();
    }

    FakeRelay& startRelay() {
        relay.reset(new FakeRelay());
        return *relay;
    }

    // A delta from the other user to this one, as the relay holds it.
    LXDelta* incoming(const char* contents, const char* poolName = "Rk2pWn") {
        LXDelta* d = LXDelta::deltaWithPool_sender_contents_(LXPool::poolWithName_(ns(poolName)),
                                                             LXUser::userWithString_(ns(kOther)),
                                                             ns(contents));
        d->setAddressee_(LXUser::userWithString_(ns(kMe)));
        return d;
    }

    void post(const char* contents) {
        LXDelta* d = LXDelta::deltaWithPool_sender_contents_(
                channel, LXUser::userWithString_(ns(kMe)), ns(contents));
        transceiver->post_to_(d, LXUser::userWithString_(ns(kOther)));
    }

    // One cycle; its log.
    std::string cycle(uint16_t port) {
        return vt_test::logOf([&] {
            NSAutoreleasePoolScope inner;
            transceiver->checkWithPort_host_(port, "127.0.0.1"_ns);
        });
    }

    NSAutoreleasePool* pool = nullptr;
    uint32_t baseline = 0;
    std::unique_ptr<ScopedWorkDir> dir;
    LXTransceiver* transceiver = nullptr;
    TestDelegate* delegate = nullptr;
    LXPool* channel = nullptr;
    std::unique_ptr<FakeRelay> relay;
};

std::string joined(const std::vector<std::string>& lines) {
    std::string out;
    for (const std::string& line : lines) out += line + "\n";
    return out;
}

uint16_t closedPort() {
    RawListener gone;
    return gone.port();
}

TEST_F(TransceiverTest, NothingToSendIsOneCollect) {
    FakeRelay& r = startRelay();
    EXPECT_EQ(cycle(r.port()), "should get 0 delta(s)\n");
    EXPECT_EQ(r.connections(), 1);
    EXPECT_EQ(joined(r.events()), "collect 2-b dummy_group\n");
}

TEST_F(TransceiverTest, ThreeDeltasAreFourConnections) {
    FakeRelay& r = startRelay();
    for (const char* word : {"one", "two", "three"}) post(word);
    EXPECT_EQ(cycle(r.port()),
              "checking deltas - to be sent: 3\nsending delta 1\n"
              "checking deltas - to be sent: 2\nsending delta 2\n"
              "checking deltas - to be sent: 1\nsending delta 3\n"
              "should get 0 delta(s)\n");
    EXPECT_EQ(r.connections(), 4);
    // Each deposit carries the addressee's unique id, then the whole delta.
    std::string deposit =
            std::string("deposit 1 (Rk2pWn) ") + kMe + " -> " + kOther + " (NSString)\n";
    EXPECT_EQ(joined(r.events()), deposit + deposit + deposit + "collect 2-b dummy_group\n");
    EXPECT_EQ(transceiver->deltaRepository()->count(), 0u);
}

TEST_F(TransceiverTest, RelayDownCostsNoDelta) {
    post("one");
    post("two");
    uint16_t port = closedPort();
    EXPECT_EQ(cycle(port), "checking deltas - to be sent: 2\n");
    EXPECT_EQ(cycle(port), "checking deltas - to be sent: 2\n");
    EXPECT_EQ(transceiver->deltaRepository()->count(), 2u);
}

TEST_F(TransceiverTest, DepositWithoutOneStaysInTheStore) {
    FakeRelay& r = startRelay();
    r.setDepositReply(7);
    post("one");
    post("two");
    EXPECT_EQ(cycle(r.port()),
              "checking deltas - to be sent: 2\nsending delta 1\nreception not committed\nshould "
              "get 0 delta(s)\n");
    EXPECT_EQ(transceiver->deltaRepository()->count(), 2u);
    // Sent again next time, so the relay may hold it twice.
    r.setDepositReply(1);
    cycle(r.port());
    EXPECT_EQ(transceiver->deltaRepository()->count(), 0u);
    EXPECT_EQ(r.events().size(), 5u);
}

TEST_F(TransceiverTest, IncomingDeltasGoToTheDelegateInOrder) {
    FakeRelay& r = startRelay();
    for (const char* word : {"a", "b", "c"}) r.enqueue(incoming(word));
    EXPECT_EQ(cycle(r.port()), "should get 3 delta(s)\n");
    EXPECT_EQ(joined(delegate->seenNow()), "a\nb\nc\n");
    EXPECT_EQ(joined(r.events()), "collect 2-b dummy_group\nack\nack\nack\n");
    EXPECT_EQ(r.waiting(), 0u);
}

TEST_F(TransceiverTest, RefusalLeavesTheDeltaFirstAtTheRelay) {
    FakeRelay& r = startRelay();
    for (const char* word : {"a", "b", "c"}) r.enqueue(incoming(word));
    delegate->refuse.insert("b");
    EXPECT_EQ(cycle(r.port()), "should get 3 delta(s)\ndelegate has refused to process delta\n");
    EXPECT_EQ(joined(r.events()), "collect 2-b dummy_group\nack\nno ack\n");
    EXPECT_EQ(r.waiting(), 2u);
    // It comes first again, and holds back what stands behind it.
    EXPECT_EQ(cycle(r.port()), "should get 2 delta(s)\ndelegate has refused to process delta\n");
    EXPECT_EQ(joined(delegate->seenNow()), "a\nb\nb\n");
    delegate->refuse.clear();
    EXPECT_EQ(cycle(r.port()), "should get 2 delta(s)\n");
    EXPECT_EQ(joined(delegate->seenNow()), "a\nb\nb\nb\nc\n");
}

// What can never be applied here is kept aside and acknowledged, so that
// the deltas behind it arrive; the store of refused deltas keeps it with
// the reason, and the bytes as they came when they don't decode.
TEST_F(TransceiverTest, PoisonDeltasAreKeptAsideAndTheQueueMovesOn) {
    FakeRelay& r = startRelay();
    r.enqueue(incoming("a"));
    r.enqueue(ns("not a delta"));
    r.enqueue(incoming("b", "elsewhere"));
    r.enqueue(incoming("c", ""));
    LXDelta* empty = incoming("d");
    LXDelta* bare = LXDelta::deltaWithPool_sender_contents_(channel, empty->sender(), nullptr);
    bare->setAddressee_(empty->addressee());
    r.enqueue(bare);
    r.enqueue(incoming("e"));
    std::string log = cycle(r.port());
    EXPECT_EQ(log,
              "should get 6 delta(s)\n"
              "delta kept aside in _refused_: not a delta: (does not decode)\n"
              "pool elsewhere not registered\n"
              "delta kept aside in _refused_: pool elsewhere not registered: (elsewhere) " +
                      std::string(kOther) + " -> " + kMe + " (NSString)\n" +
                      "delta kept aside in _refused_: no pool: () " + kOther + " -> " + kMe +
                      " (NSString)\n" + "delta kept aside in _refused_: no contents: (Rk2pWn) " +
                      kOther + " -> " + kMe + " ((null))\n");
    EXPECT_EQ(joined(delegate->seenNow()), "a\ne\n");
    EXPECT_EQ(joined(r.events()), "collect 2-b dummy_group\nack\nack\nack\nack\nack\nack\n");
    EXPECT_EQ(r.waiting(), 0u);
    EXPECT_TRUE(transceiver->lastCycleComplete());
    EXPECT_EQ(transceiver->lastCycleReceived(), 6);

    LXRefusedDeltas* refused = transceiver->refusedDeltas();
    NSArray* ids = refused->sortedIds();
    ASSERT_EQ(ids->count(), 4u);
    std::vector<std::string> reasons;
    for (uint32_t i = 0; i < ids->count(); i++) {
        LXRefusedDelta* entry =
                refused->refusedDeltaWithId_(static_cast<NSString*>(ids->objectAtIndex_(i)));
        ASSERT_NE(entry, nullptr);
        reasons.push_back(entry->reason()->UTF8String());
        ASSERT_NE(entry->archive(), nullptr);
        NSObject* again = decode(bytesOf(entry->archive()));
        if (i == 0) {
            EXPECT_EQ(entry->delta(), nullptr);
            ASSERT_NE(again, nullptr);
            EXPECT_EQ(std::string(again->description()->UTF8String()), "not a delta");
        } else {
            ASSERT_NE(entry->delta(), nullptr);
            EXPECT_EQ(std::string(entry->delta()->description()->UTF8String()),
                      again->description()->UTF8String());
        }
    }
    EXPECT_EQ(joined(reasons),
              "not a delta\npool elsewhere not registered\nno pool\nno contents\n");
}

// A refused delta that can't be stored aside is not acknowledged: it stays
// at the relay rather than being lost.
TEST_F(TransceiverTest, PoisonThatCannotBeKeptAsideStaysAtTheRelay) {
    FakeRelay& r = startRelay();
    transceiver->refusedDeltas();  // opened before the disk "fails"
    r.enqueue(incoming("a", "elsewhere"));
    LXContainer::failWriteForTesting(1);
    std::string log = cycle(r.port());
    LXContainer::failWriteForTesting(0);
    EXPECT_NE(log.find("delta could not be kept aside (pool elsewhere not registered) - not "
                       "acknowledged\n"),
              std::string::npos)
            << log;
    EXPECT_EQ(r.waiting(), 1u);
    EXPECT_FALSE(transceiver->lastCycleComplete());
    EXPECT_EQ(transceiver->refusedDeltas()->count(), 0u);
}

// Code that finds a delta it can never apply keeps it aside itself.
TEST_F(TransceiverTest, RefuseDeltaKeepsItAsideWithTheReason) {
    EXPECT_EQ(vt_test::logOf([&] {
                  EXPECT_TRUE(transceiver->refuseDelta_reason_(incoming("x"), "unknown sheet"_ns));
              }),
              "delta kept aside in _refused_: unknown sheet: (Rk2pWn) " + std::string(kOther) +
                      " -> " + kMe + " (NSString)\n");
    EXPECT_FALSE(transceiver->refuseDelta_reason_(nullptr, "nothing"_ns));
    NSArray* ids = transceiver->refusedDeltas()->sortedIds();
    ASSERT_EQ(ids->count(), 1u);
    LXRefusedDelta* entry = transceiver->refusedDeltas()->refusedDeltaWithId_(
            static_cast<NSString*>(ids->objectAtIndex_(0)));
    EXPECT_EQ(std::string(entry->reason()->UTF8String()), "unknown sheet");
    EXPECT_EQ(std::string(entry->delta()->contents()->description()->UTF8String()), "x");
    EXPECT_NE(entry->refused(), nullptr);
}

TEST_F(TransceiverTest, StalledRelayEndsTheCycleAtTheTimeOut) {
    FakeRelay& r = startRelay();
    LXSocket::setDefaultReceiveTimeout_(0.2);
    r.setStallMilliseconds(500);
    r.setModes([](int) { return FakeRelay::Mode::Stall; });
    post("one");
    auto start = std::chrono::steady_clock::now();
    std::string log = cycle(r.port());
    EXPECT_LT(secondsSince(start), 1.2);
    EXPECT_EQ(log,
              "checking deltas - to be sent: 1\nsending delta 1\n"
              "socket: read of 4 bytes timed out after 0.2 s with 0 received; connection dropped\n"
              "reception not committed\n"
              "socket: read of 4 bytes timed out after 0.2 s with 0 received; connection dropped\n"
              "should get 0 delta(s)\n");
    EXPECT_EQ(transceiver->deltaRepository()->count(), 1u);
}

TEST_F(TransceiverTest, WithoutUserTheLoopEndsAtOnce) {
    FakeRelay& r = startRelay();
    LXTransceiver* lonely = LXTransceiver::alloc()->init();
    EXPECT_EQ(vt_test::logOf([&] { lonely->runWithPort_host_(r.port(), "127.0.0.1"_ns); }),
              "not user has been assigned to the transceiver\n");
    EXPECT_EQ(r.connections(), 0);
    lonely->release();
}

TEST_F(TransceiverTest, LifetimeEndsTheLoop) {
    FakeRelay& r = startRelay();
    transceiver->setCheckInterval_(0.02);
    // A date in the past: exactly one cycle.
    transceiver->setLifetime_(NSDate::date()->addTimeInterval_(-1));
    EXPECT_EQ(vt_test::logOf([&] { transceiver->runWithPort_host_(r.port(), "127.0.0.1"_ns); }),
              "should get 0 delta(s)\n");
    EXPECT_EQ(r.connections(), 1);
    // A date ahead: a cycle every interval, on a thread, until it passes.
    transceiver->setLifetime_(NSDate::date()->addTimeInterval_(1.0));
    LXTransceiver* t = transceiver;
    uint16_t port = r.port();
    SyncTestThread* thread =
            SyncTestThread::start([t, port] { t->runWithPort_host_(port, "127.0.0.1"_ns); });
    EXPECT_TRUE(thread->join(10));
    thread->release();
    EXPECT_FALSE(transceiver->isRunning());
    EXPECT_GT(r.connections(), 5);
}

// The hazard of the commit path: the committing thread holds a transaction
// lock and posts; the cycle hands incoming deltas to a delegate that takes
// the same transaction lock, while the relay stalls and drops connections.
// Nothing may deadlock, no post may wait for the network, and no delta may
// be lost on the way out.
TEST_F(TransceiverTest, CommitsNeverWaitForStalledCycles) {
    FakeRelay& r = startRelay();
    LXSocket::setDefaultReceiveTimeout_(0.4);
    r.setStallMilliseconds(600);
    r.setModes([](int index) {
        switch (index % 7) {
            case 3:
                return FakeRelay::Mode::Stall;
            case 5:
                return FakeRelay::Mode::Drop;
            default:
                return FakeRelay::Mode::Normal;
        }
    });
    for (int i = 0; i < 12; i++) r.enqueue(incoming(("in " + std::to_string(i)).c_str()));
    std::mutex transactionLock;
    delegate->transactionLock = &transactionLock;
    transceiver->setCheckInterval_(0.01);
    transceiver->setLifetime_(NSDate::date()->addTimeInterval_(3.0));

    LXTransceiver* t = transceiver;
    LXPool* p = channel;
    uint16_t port = r.port();
    std::atomic<bool> cyclesOver{false};
    SyncTestThread* cycles = SyncTestThread::start([t, port, &cyclesOver] {
        t->runWithPort_host_(port, "127.0.0.1"_ns);
        cyclesOver = true;
    });
    std::atomic<int> posted{0};
    std::atomic<double> longestPost{0};
    SyncTestThread* committer = SyncTestThread::start([&, t, p] {
        while (!cyclesOver) {
            NSAutoreleasePool* inner = NSAutoreleasePool::alloc()->init();
            {
                std::lock_guard<std::mutex> transaction(transactionLock);
                LXDelta* d = LXDelta::deltaWithPool_sender_contents_(
                        p, LXUser::userWithString_(ns(kMe)),
                        ns("out " + std::to_string(posted.load())));
                auto start = std::chrono::steady_clock::now();
                t->post_to_(d, LXUser::userWithString_(ns(kOther)));
                double took = secondsSince(start);
                if (took > longestPost) longestPost = took;
                posted++;
            }
            inner->release();
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    bool finished = cycles->join(20) && committer->join(5);
    if (!finished) {
        // A deadlock: the threads can't be taken back, so the program ends.
        std::fprintf(stderr, "deadlock: transceiver cycle and committer did not finish\n");
        std::_Exit(1);
    }
    cycles->release();
    committer->release();

    int deposits = 0;
    for (const std::string& e : r.events()) deposits += e.rfind("deposit ", 0) == 0;
    EXPECT_GT(posted.load(), 100);
    EXPECT_GE(deposits, 5);
    EXPECT_GT(delegate->seenNow().size(), 5u);
    // The relay stalls for longer than the time-out at every seventh
    // connection; a post never waited for that.
    EXPECT_LT(longestPost.load(), 0.3);
    // Every posted delta is either at the relay or still in the store (the
    // stalls and drops here come before the deposit is read, so no copy is
    // made twice).
    EXPECT_EQ(deposits + static_cast<int>(transceiver->deltaRepository()->count()), posted.load());
}

}  // namespace
