// Three installations and a relay, as separate processes on loopback: the
// relay (vantor-relay), and the headless client (vantor-admin record and
// sync) in three working directories. A is the first admin's installation
// made from the demo; B and C belong to two users that A creates as
// records, with keys made by `key make`, and start with nothing but the
// configuration and their key until A pushes every record to them.
//
// The suite is built once and its tests run in order on the same
// installations; each test makes its own records.
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/Foundation.h"
#include "storage/LXContainer.h"
#include "sync/LXDelta.h"
#include "tests/support/FaultProxy.h"
#include "tests/support/RunProgram.h"
#include "tests/sync/installation_support.h"

namespace {

using namespace vt_installations;
using vt_test::ProgramResult;
using vt_test::quoteShell;
using vt_test::readFile;
using vt_test::runProgram;
using vt_test::writeFile;

class InstallationsTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        root = vt_test::makeTempDir("vt-installations");
        relay = new Relay(root);
        ASSERT_TRUE(relay->start()) << relay->log();
        a = Installation(root + "/a", "vantor-demo");
        b = Installation(root + "/b", "bob-secret");
        c = Installation(root + "/c", "carol-secret");
        ASSERT_TRUE(makeFirstInstallation(a));
        std::vector<std::string> ids =
                addUsers(a, {&b, &c}, {{"Bob", "Baker"}, {"Carol", "Cooper"}});
        ASSERT_EQ(ids.size(), 2u);
        bobId = ids[0];
        carolId = ids[1];
        ASSERT_TRUE(a.syncDone(relay->port()));
        ASSERT_TRUE(b.syncDone(relay->port()));
        ASSERT_TRUE(c.syncDone(relay->port()));
    }
    static void TearDownTestSuite() {
        delete relay;
        relay = nullptr;
        if (!HasFailure()) vt_test::removeTree(root);
    }

    static void syncAll() {
        for (const Installation* i : {&a, &b, &c})
            ASSERT_TRUE(i->syncDone(relay->port())) << i->dir;
        // A second round brings what the first round made at B and C (the
        // replies of a message) to the others.
        for (const Installation* i : {&a, &b, &c})
            ASSERT_TRUE(i->syncDone(relay->port())) << i->dir;
    }

    static std::string root;
    static Relay* relay;
    static Installation a, b, c;
    static std::string bobId, carolId;
};

std::string InstallationsTest::root;
Relay* InstallationsTest::relay = nullptr;
Installation InstallationsTest::a, InstallationsTest::b, InstallationsTest::c;
std::string InstallationsTest::bobId, InstallationsTest::carolId;

TEST_F(InstallationsTest, PushBringsEveryRecordToTheNewUsers) {
    for (const char* sheet : {"user", "group", "role", "company", "contact", "project", "task"}) {
        auto atA = a.records(sheet);
        ASSERT_FALSE(atA.empty()) << sheet;
        for (const Installation* other : {&b, &c}) {
            auto there = other->records(sheet);
            for (const auto& [id, line] : atA) {
                ASSERT_TRUE(there.count(id)) << sheet << " " << id << " missing at " << other->dir;
                EXPECT_EQ(valueOf(there[id], "name"), valueOf(line, "name"));
            }
        }
    }
    // Each user's own record, with the identity of the key.
    EXPECT_EQ(valueOf(b.records("user")[bobId], "firstName"), "Bob");
    EXPECT_EQ(valueOf(c.records("user")[carolId], "firstName"), "Carol");
}

TEST_F(InstallationsTest, RecordMadeAtAArrivesWholeWithItsStamps) {
    std::string id =
            a.set("company", R"({"name": "Fresh Fields", "city": "Graz", "industry": "trade",
                                         "since": {"$date": "2020-02-02 00:00:00 +0100"}})");
    ASSERT_FALSE(id.empty());
    syncAll();
    std::string atA = a.records("company")[id];
    ASSERT_FALSE(atA.empty());
    EXPECT_EQ(valueOf(atA, "__creator"), "Ada Lovelace/Demo/Admin");
    EXPECT_EQ(b.records("company")[id], atA);
    EXPECT_EQ(c.records("company")[id], atA);
}

TEST_F(InstallationsTest, ChangesOfDifferentFieldsAtBAndCMerge) {
    std::string id =
            a.set("company", R"({"name": "Merge Works", "city": "Linz", "industry": "software"})");
    syncAll();
    b.set("company", R"({"__recordId": ")" + id + R"(", "city": "Salzburg"})");
    c.set("company", R"({"__recordId": ")" + id + R"(", "industry": "trade"})");
    syncAll();
    for (const Installation* i : {&a, &b, &c}) {
        std::string line = i->records("company")[id];
        EXPECT_EQ(valueOf(line, "city"), "Salzburg") << i->dir;
        EXPECT_EQ(valueOf(line, "industry"), "trade") << i->dir;
        EXPECT_EQ(valueOf(line, "name"), "Merge Works") << i->dir;
    }
}

TEST_F(InstallationsTest, RemovalReplicates) {
    std::string id = a.set("company", R"({"name": "Short Lived", "industry": "public"})");
    syncAll();
    ASSERT_TRUE(c.records("company").count(id));
    ProgramResult removed = b.admin("record remove company " + id);
    ASSERT_EQ(removed.status, 0) << removed.err;
    syncAll();
    for (const Installation* i : {&a, &b, &c})
        EXPECT_FALSE(i->records("company").count(id)) << i->dir;
}

TEST_F(InstallationsTest, MessageRunsFromSentToDeliveredToRead) {
    // The Inbox shows a message to its addressee only, so the states are
    // read from each installation's store.
    std::string id = a.set("message", R"({"subject": "Lunch?", "whom": ")" + bobId + R"("})");
    EXPECT_EQ(valueOf(a.stored("message")[id], "status"), "sent");
    // B receives it as addressee and answers "delivered" to everybody.
    ASSERT_TRUE(a.syncDone(relay->port()));
    ASSERT_TRUE(c.syncDone(relay->port()));
    EXPECT_EQ(valueOf(c.stored("message")[id], "status"), "sent");
    ASSERT_TRUE(b.syncDone(relay->port()));
    EXPECT_EQ(valueOf(b.stored("message")[id], "status"), "delivered");
    EXPECT_EQ(valueOf(b.stored("message")[id], "dummy"), "delivery");
    syncAll();
    EXPECT_EQ(valueOf(a.stored("message")[id], "status"), "delivered");
    EXPECT_EQ(valueOf(c.stored("message")[id], "status"), "delivered");
    // The sender looking at it changes nothing; the addressee reads it.
    ASSERT_EQ(a.admin("record select message " + id).status, 0);
    EXPECT_EQ(valueOf(a.stored("message")[id], "status"), "delivered");
    ASSERT_EQ(b.admin("record select message " + id).status, 0);
    syncAll();
    for (const Installation* i : {&a, &b, &c})
        EXPECT_EQ(valueOf(i->stored("message")[id], "status"), "read") << i->dir;
}

// A burst of new records: one Save each, given to `record set` as one array.
std::string burst(const std::string& tag, int n) {
    std::string json = "[";
    for (int i = 0; i < n; i++) {
        json += std::string(i ? "," : "") + R"({"title": ")" + tag + " " + std::to_string(i) +
                R"(", "state": "open"})";
    }
    return json + "]";
}

// Waits until the sync whose log this is has begun to collect a batch of
// deltas, and then a little longer, so that a kill lands inside the batch.
bool collecting(const std::string& log) {
    bool started = waitFor(
            [&] {
                std::string text = readFile(log);
                size_t at = text.find("should get ");
                return at != std::string::npos && std::atoi(text.c_str() + at + 11) > 50;
            },
            60);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    return started;
}

std::set<std::string> titlesWith(const Installation& i, const std::string& tag) {
    std::set<std::string> titles;
    for (const auto& [id, line] : i.records("task")) {
        std::string title = valueOf(line, "title");
        if (title.rfind(tag + " ", 0) == 0) titles.insert(title);
    }
    return titles;
}

TEST_F(InstallationsTest, RelayKilledAndRestartedDuringABurstLosesNothing) {
    const int n = 1000;
    ProgramResult made = a.admin("record set task", burst("burst", n));
    ASSERT_EQ(made.status, 0) << made.err;
    ASSERT_EQ(countOf(made.out, "\n"), n);

    // The relay dies while A deposits the 2,000 deltas (one per record and
    // other user), and again while B collects.
    int before = relay->enqueued();
    {
        Child sync(a.commandLine("sync --timeout 2 --port " + std::to_string(relay->port())),
                   root + "/a-sync.log");
        ASSERT_TRUE(waitFor([&] { return relay->enqueued() >= before + 600; }, 60));
        relay->kill9();
        EXPECT_NE(sync.wait(30), 0) << "the sync should have lost its relay";
    }
    ASSERT_TRUE(relay->start()) << relay->log();
    EXPECT_NE(relay->log().find("delta(s) restored"), std::string::npos);
    ASSERT_TRUE(a.syncDone(relay->port()));
    {
        Child sync(b.commandLine("sync --timeout 2 --port " + std::to_string(relay->port())),
                   root + "/b-sync.log");
        ASSERT_TRUE(collecting(root + "/b-sync.log"));
        relay->kill9();
        sync.wait(30);
    }
    ASSERT_TRUE(relay->start()) << relay->log();
    ASSERT_TRUE(b.syncDone(relay->port()));
    ASSERT_TRUE(c.syncDone(relay->port()));
    for (const Installation* i : {&a, &b, &c})
        EXPECT_EQ(titlesWith(*i, "burst").size(), size_t(n)) << i->dir;
}

TEST_F(InstallationsTest, ClientKilledDuringSyncLosesNothing) {
    const int n = 200;
    ASSERT_EQ(a.admin("record set task", burst("killed", n)).status, 0);
    int before = relay->enqueued();
    {
        Child sync(a.commandLine("sync --timeout 2 --port " + std::to_string(relay->port())),
                   root + "/a-kill.log");
        ASSERT_TRUE(waitFor([&] { return relay->enqueued() >= before + 100; }, 60));
    }
    // Killed: its lock stays behind, as a killed client's does, and the
    // operator removes it.
    ASSERT_EQ(std::remove((a.dir + "/vantor.lock").c_str()), 0);
    ASSERT_TRUE(a.syncDone(relay->port()));
    {
        Child sync(c.commandLine("sync --timeout 2 --port " + std::to_string(relay->port())),
                   root + "/c-kill.log");
        ASSERT_TRUE(collecting(root + "/c-kill.log"));
    }
    std::remove((c.dir + "/vantor.lock").c_str());
    ASSERT_TRUE(c.syncDone(relay->port()));
    ASSERT_TRUE(b.syncDone(relay->port()));
    for (const Installation* i : {&a, &b, &c})
        EXPECT_EQ(titlesWith(*i, "killed").size(), size_t(n)) << i->dir;
}

// The sum of "received N" over the cycle lines of sync runs.
int receivedIn(const std::string& output) {
    int sum = 0;
    for (size_t at = output.find(", received "); at != std::string::npos;
         at = output.find(", received ", at + 1))
        sum += std::atoi(output.c_str() + at + 11);
    return sum;
}

// Every deposit and every delivery is its own durable operation, so a kill
// repeats at most the one delta in flight: A killed while it deposits, the
// relay killed while B collects. Counted at the relay (deposits) and at B
// (deltas processed and acknowledged, from its cycle lines).
TEST_F(InstallationsTest, KillsMidBurstRepeatNoAcknowledgedDelta) {
    const int n = 1000;
    ASSERT_EQ(a.admin("record set task", burst("counted", n)).status, 0);
    int before = relay->enqueued();
    {
        Child sync(a.commandLine("sync --timeout 2 --port " + std::to_string(relay->port())),
                   root + "/a-count.log");
        ASSERT_TRUE(waitFor([&] { return relay->enqueued() >= before + 600; }, 60));
    }
    ASSERT_EQ(std::remove((a.dir + "/vantor.lock").c_str()), 0);
    ASSERT_TRUE(a.syncDone(relay->port()));
    int deposits = relay->enqueued() - before;
    EXPECT_GE(deposits, 2 * n);
    EXPECT_LE(deposits, 2 * n + 1) << "acknowledged deposits were sent again";

    std::string bLog = root + "/b-count.log";
    {
        Child sync(b.commandLine("sync --timeout 2 --port " + std::to_string(relay->port())), bLog);
        // At once: a collect of this size takes well under a second.
        ASSERT_TRUE(waitFor([&] { return readFile(bLog).find("should get ") != std::string::npos; },
                            60));
        relay->kill9();
        EXPECT_NE(sync.wait(30), 0) << "the sync should have lost its relay";
    }
    ASSERT_TRUE(relay->start()) << relay->log();
    int received = receivedIn(readFile(bLog));
    EXPECT_GT(received, 0);
    bool done = false;
    for (int i = 0; i < 40 && !done; i++) {
        ProgramResult r = b.admin("sync --timeout 2 --port " + std::to_string(relay->port()));
        received += receivedIn(r.out);
        done = r.status == 0;
    }
    ASSERT_TRUE(done);
    EXPECT_GE(received, n);
    // A deposit repeated after A's kill is held twice and so delivered
    // twice; beyond that only the delta in flight at the relay's kill.
    EXPECT_LE(received, n + (deposits - 2 * n) + 1) << "acknowledged deltas were delivered again";
    ASSERT_TRUE(c.syncDone(relay->port()));
    for (const Installation* i : {&a, &b, &c})
        EXPECT_EQ(titlesWith(*i, "counted").size(), size_t(n)) << i->dir;
}

// All three sync at once while A's burst goes through the relay, which
// serves them side by side, and the relay is killed in the middle. Every
// change arrives at B and C, and each receives it at most once more than
// it was deposited, beyond the one delta in flight at the kill.
TEST_F(InstallationsTest, ConcurrentSyncsThroughARelayKilledMidBurst) {
    const int n = 600;
    ASSERT_EQ(a.admin("record set task", burst("together", n)).status, 0);
    int before = relay->enqueued();
    std::string port = std::to_string(relay->port());
    std::map<const Installation*, int> received;
    auto sync = [&](const Installation* i, const std::string& log) {
        return new Child(i->commandLine("sync --timeout 2 --port " + port), log);
    };
    {
        std::unique_ptr<Child> atA(sync(&a, root + "/a-together.log"));
        std::unique_ptr<Child> atB(sync(&b, root + "/b-together.log"));
        std::unique_ptr<Child> atC(sync(&c, root + "/c-together.log"));
        ASSERT_TRUE(waitFor([&] { return relay->enqueued() >= before + n; }, 60));
        relay->kill9();
        EXPECT_NE(atA->wait(30), 0) << "the sync should have lost its relay";
        atB->wait(30);
        atC->wait(30);
    }
    received[&b] = receivedIn(readFile(root + "/b-together.log"));
    received[&c] = receivedIn(readFile(root + "/c-together.log"));
    ASSERT_TRUE(relay->start()) << relay->log();
    ASSERT_TRUE(a.syncDone(relay->port()));
    int deposits = relay->enqueued() - before;
    EXPECT_GE(deposits, 2 * n);
    EXPECT_LE(deposits, 2 * n + 1) << "acknowledged deposits were sent again";
    for (const Installation* i : {&b, &c}) {
        bool done = false;
        for (int round = 0; round < 40 && !done; round++) {
            ProgramResult r = i->admin("sync --timeout 2 --port " + std::to_string(relay->port()));
            received[i] += receivedIn(r.out);
            done = r.status == 0;
        }
        ASSERT_TRUE(done) << i->dir;
        EXPECT_GE(received[i], n) << i->dir;
        EXPECT_LE(received[i], n + (deposits - 2 * n) + 1)
                << i->dir << ": acknowledged deltas were delivered again";
    }
    for (const Installation* i : {&a, &b, &c})
        EXPECT_EQ(titlesWith(*i, "together").size(), size_t(n)) << i->dir;
}

// Deltas that B could never apply, waiting in the relay's store ahead of a
// real change (left there by a relay that still took them): B keeps them
// aside, the change behind them arrives, and `deltas --refused` shows them.
TEST_F(InstallationsTest, PoisonDeltasAtTheRelayAreKeptAsideAndTheRestArrives) {
    relay->kill9();
    {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        NSString* stem = NSString::stringWithUTF8String_((root + "/relay/_relay_").c_str());
        LXContainer* store = LXContainer::alloc()->initWithName_(stem);
        LXUser* sender = LXUser::userWithString_("Mallory Mole/Nowhere/Void-x"_ns);
        LXUser* bob = LXUser::userWithString_(
                NSString::stringWithUTF8String_(("Bob Baker/Sales/Demo-" + bobId).c_str()));
        NSMutableDictionary* contents = NSMutableDictionary::dictionary();
        contents->setObject_forKey_("delete"_ns, "action"_ns);
        contents->setObject_forKey_("company"_ns, "sheet"_ns);
        contents->setObject_forKey_("no-such-record"_ns, "objectId"_ns);
        for (LXDelta* poison : {LXDelta::deltaWithPool_sender_contents_(
                                        LXPool::poolWithName_("Other"_ns), sender, contents),
                                LXDelta::deltaWithPool_sender_contents_(
                                        LXPool::poolWithName_("Rk2pWn"_ns), sender, nullptr)}) {
            poison->setAddressee_(bob);
            EXPECT_GE(store->set_(poison), 0);
        }
        store->release();
        pool->release();
    }
    ASSERT_TRUE(relay->start()) << relay->log();
    std::string id = a.set("company", R"({"name": "Behind The Poison", "industry": "trade"})");
    ASSERT_TRUE(a.syncDone(relay->port()));
    ASSERT_TRUE(b.syncDone(relay->port()));
    EXPECT_TRUE(b.records("company").count(id));
    ProgramResult refused = b.admin("deltas --refused");
    EXPECT_EQ(refused.status, 0) << refused.err;
    std::vector<std::string> lines;
    for (size_t start = 0, end; (end = refused.out.find('\n', start)) != std::string::npos;
         start = end + 1)
        lines.push_back(refused.out.substr(start, end - start));
    ASSERT_EQ(lines.size(), 2u) << refused.out;
    EXPECT_EQ(valueOf(lines[0], "reason"), "pool Other not registered");
    EXPECT_EQ(valueOf(lines[0], "from"), "Mallory Mole/Nowhere/Void-x");
    EXPECT_EQ(valueOf(lines[0], "to"), bobId);
    EXPECT_EQ(valueOf(lines[0], "action"), "delete");
    EXPECT_EQ(valueOf(lines[0], "recordId"), "no-such-record");
    EXPECT_NE(valueOf(lines[0], "refused"), "");
    EXPECT_EQ(valueOf(lines[1], "reason"), "no contents");
    EXPECT_EQ(valueOf(lines[1], "to"), bobId);
    // Nothing is left at the relay for B, and the outgoing list is apart.
    EXPECT_EQ(b.admin("sync --timeout 2 --port " + std::to_string(relay->port())).out,
              "cycle 1: sent 0, received 0, waiting 0\n");
    EXPECT_EQ(b.admin("deltas").out, "");
}

TEST_F(InstallationsTest, CutResetAndStalledConnectionsLoseNothing) {
    const int n = 100;
    ASSERT_EQ(a.admin("record set task", burst("faulty", n)).status, 0);
    // One connection in five goes wrong, in every way; a stall outlasts
    // the time-outs of both ends (2 s).
    vt_test::FaultProxyOptions options;
    options.sequence = 20261122;
    options.passWeight = 16;
    options.stallSeconds = 3;
    vt_test::FaultProxy proxy(static_cast<uint16_t>(relay->port()), options);
    // Through the faulty link until each side once got through a whole run.
    for (const Installation* i : {&a, &b, &c})
        EXPECT_TRUE(i->syncDone(proxy.port(), 400)) << i->dir;
    proxy.setFaultsEnabled(false);
    for (const Installation* i : {&a, &b, &c}) ASSERT_TRUE(i->syncDone(proxy.port())) << i->dir;
    for (const Installation* i : {&a, &b, &c})
        EXPECT_EQ(titlesWith(*i, "faulty").size(), size_t(n)) << i->dir;
    for (auto fate :
         {vt_test::Fate::Cut, vt_test::Fate::Reset, vt_test::Fate::Stall, vt_test::Fate::Refuse})
        EXPECT_GT(proxy.count(fate), 0) << vt_test::fateName(fate);
}

}  // namespace
