// Three installations and a relay, as separate processes on loopback: the
// relay (vantor-relay), and the headless client (vantor-admin record and
// sync) in three working directories. A is the first admin's installation
// made from the demo; B and C belong to two users that A creates as
// records, with keys made by `key make`, and start with nothing but the
// configuration and their key until A pushes every record to them.
//
// The suite is built once and its tests run in order on the same
// installations; each test makes its own records.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/Foundation.h"
#include "storage/LXContainer.h"
#include "sync/LXDelta.h"
#include "tests/support/FaultProxy.h"
#include "tests/support/RunProgram.h"

namespace {

using vt_test::ProgramResult;
using vt_test::quoteShell;
using vt_test::readFile;
using vt_test::runProgram;
using vt_test::writeFile;

std::string envPath(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

int countOf(const std::string& text, const std::string& what) {
    int n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) n++;
    return n;
}

// The text value of a key in one line of `record list` (a flat object of
// strings, dates and numbers as vantor-admin prints them).
std::string valueOf(const std::string& line, const std::string& key) {
    std::string head = "\"" + key + "\":";
    size_t at = line.find(head);
    if (at == std::string::npos) return "";
    at += head.size();
    while (at < line.size() && line[at] == ' ') at++;
    if (at >= line.size() || line[at] != '"') return "";
    std::string value;
    for (at++; at < line.size() && line[at] != '"'; at++) {
        if (line[at] == '\\' && at + 1 < line.size()) at++;
        value += line[at];
    }
    return value;
}

// A child process running a shell command line, its output in a file.
class Child {
public:
    Child(const std::string& commandLine, const std::string& logPath) {
        _pid = fork();
        if (_pid == 0) {
            int fd = open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
            if (fd >= 0) {
                dup2(fd, 1);
                dup2(fd, 2);
                close(fd);
            }
            setpgid(0, 0);
            // Ends with the test, also when the test itself is killed.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            execl("/bin/sh", "sh", "-c", commandLine.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
    }
    ~Child() { kill9(); }
    void kill9() {
        if (_pid <= 0) return;
        kill(-_pid, SIGKILL);  // the shell and the program it runs
        int status;
        waitpid(_pid, &status, 0);
        _pid = -1;
    }
    // The exit status once it ended by itself within the time, else -1.
    int wait(double seconds) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        while (_pid > 0) {
            int status;
            if (waitpid(_pid, &status, WNOHANG) == _pid) {
                _pid = -1;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            if (std::chrono::steady_clock::now() > deadline) return -1;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return -1;
    }
    bool running() const { return _pid > 0; }

private:
    pid_t _pid = -1;
};

template <class F>
bool waitFor(F done, double seconds) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// The relay process, restartable on the port it first got.
class Relay {
public:
    explicit Relay(const std::string& root) : _dir(root + "/relay"), _log(root + "/relay.log") {
        mkdir(_dir.c_str(), 0755);
    }
    bool start() {
        size_t from = readFile(_log).size();
        _child.reset(new Child("exec " + quoteShell(envPath("VANTOR_RELAY_PATH")) + " --port " + std::to_string(_port) +
                                       " --dir " + quoteShell(_dir) + " --timeout 2",
                               _log));
        std::string head = "listening on port ";
        bool up = waitFor(
                [&] {
                    std::string log = readFile(_log);
                    size_t at = log.find(head, from);
                    if (at == std::string::npos) return false;
                    _port = std::atoi(log.c_str() + at + head.size());
                    return true;
                },
                10);
        return up && _port > 0;
    }
    void kill9() { _child.reset(); }
    int port() const { return _port; }
    int enqueued() const { return countOf(readFile(_log), "delta enqueued"); }
    std::string log() const { return readFile(_log); }

private:
    std::string _dir, _log;
    int _port = 0;
    std::unique_ptr<Child> _child;
};

class Installation {
public:
    Installation() = default;
    Installation(const std::string& dir, const std::string& password) : dir(dir), password(password) {}
    std::string commandLine(const std::string& args) const {
        return "cd " + quoteShell(dir) + " && VANTOR_PASSWORD=" + quoteShell(password) + " exec " +
               quoteShell(envPath("VANTOR_ADMIN_PATH")) + " " + args;
    }
    ProgramResult admin(const std::string& args, const std::string& input = "") const {
        return runProgram(commandLine(args), input);
    }
    // Sync until a run ends with nothing left to move; a run that fails
    // (relay away, connection broken) is repeated.
    bool syncDone(int port, int attempts = 40) const {
        for (int i = 0; i < attempts; i++) {
            ProgramResult r = admin("sync --timeout 2 --port " + std::to_string(port));
            if (r.status == 0) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }
    // id -> the record's line in `record list`.
    std::map<std::string, std::string> records(const std::string& sheet) const {
        std::map<std::string, std::string> byId;
        ProgramResult r = admin("record list " + sheet);
        EXPECT_EQ(r.status, 0) << r.err;
        size_t start = 0;
        for (size_t end; (end = r.out.find('\n', start)) != std::string::npos; start = end + 1) {
            std::string line = r.out.substr(start, end - start);
            byId[valueOf(line, "__recordId")] = line;
        }
        return byId;
    }
    // id -> the record's line in `container dump` of the sheet's store:
    // every stored record, whatever the user's table of the sheet shows.
    std::map<std::string, std::string> stored(const std::string& stem) const {
        std::map<std::string, std::string> byId;
        ProgramResult r = admin("container dump data/" + stem);
        EXPECT_EQ(r.status, 0) << r.err;
        size_t start = 0;
        for (size_t end; (end = r.out.find('\n', start)) != std::string::npos; start = end + 1) {
            std::string line = r.out.substr(start, end - start);
            byId[valueOf(line, "__recordId")] = line;
        }
        return byId;
    }
    std::string set(const std::string& sheet, const std::string& json) const {
        ProgramResult r = admin("record set " + sheet, json);
        EXPECT_EQ(r.status, 0) << r.err;
        return r.out.substr(0, r.out.find('\n'));
    }

    std::string dir;
    std::string password;
};

class InstallationsTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        root = vt_test::makeTempDir("vt-installations");
        relay = new Relay(root);
        ASSERT_TRUE(relay->start()) << relay->log();
        a = Installation(root + "/a", "vantor-demo");
        b = Installation(root + "/b", "bob-secret");
        c = Installation(root + "/c", "carol-secret");
        std::string source = envPath("VANTOR_SOURCE_DIR");
        ProgramResult made = runProgram("bash " + quoteShell(source + "/scripts/new-workdir.sh") + " " +
                                        quoteShell(a.dir) + " >/dev/null");
        ASSERT_EQ(made.status, 0) << made.err;
        writeFile(a.dir + "/transceiver.txt", "127.0.0.1\n");

        // The two users, made by the admin as records of the user sheet.
        bobId = a.set("user", R"({"firstName": "Bob", "lastName": "Baker", "orgUnit": "Sales", "company": "Demo",
                                  "role": "manager", "groups": "demo-group-admins"})");
        carolId = a.set("user", R"({"firstName": "Carol", "lastName": "Cooper", "orgUnit": "Sales",
                                    "company": "Demo", "role": "manager", "groups": "demo-group-admins"})");
        ASSERT_FALSE(bobId.empty());
        ASSERT_FALSE(carolId.empty());
        for (auto* user : {&b, &c}) {
            const std::string& id = user == &b ? bobId : carolId;
            ProgramResult key = a.admin("key make " + id + " --password-stdin", user->password + "\n");
            ASSERT_EQ(key.status, 0) << key.err;
            std::string keyFile = key.out.substr(0, key.out.find('\n'));
            ASSERT_EQ(std::system(("mkdir -p " + quoteShell(user->dir + "/userkey") + " " + quoteShell(user->dir + "/data") + " && cp -r " +
                                   quoteShell(source + "/demo/conf") + " " + quoteShell(user->dir) + " && mv " +
                                   quoteShell(a.dir + "/" + keyFile) + " " + quoteShell(user->dir + "/userkey/"))
                                          .c_str()),
                      0);
            writeFile(user->dir + "/transceiver.txt", "127.0.0.1\n");
            ProgramResult pushed = a.admin("record action user " + id + " VTActionPushSpaces");
            ASSERT_EQ(pushed.status, 0) << pushed.err;
        }
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
        for (const Installation* i : {&a, &b, &c}) ASSERT_TRUE(i->syncDone(relay->port())) << i->dir;
        // A second round brings what the first round made at B and C (the
        // replies of a message) to the others.
        for (const Installation* i : {&a, &b, &c}) ASSERT_TRUE(i->syncDone(relay->port())) << i->dir;
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
    std::string id = a.set("company", R"({"name": "Fresh Fields", "city": "Graz", "industry": "trade",
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
    std::string id = a.set("company", R"({"name": "Merge Works", "city": "Linz", "industry": "software"})");
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
    for (const Installation* i : {&a, &b, &c}) EXPECT_FALSE(i->records("company").count(id)) << i->dir;
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
        Child sync(a.commandLine("sync --timeout 2 --port " + std::to_string(relay->port())), root + "/a-sync.log");
        ASSERT_TRUE(waitFor([&] { return relay->enqueued() >= before + 600; }, 60));
        relay->kill9();
        EXPECT_NE(sync.wait(30), 0) << "the sync should have lost its relay";
    }
    ASSERT_TRUE(relay->start()) << relay->log();
    EXPECT_NE(relay->log().find("delta(s) restored"), std::string::npos);
    ASSERT_TRUE(a.syncDone(relay->port()));
    {
        Child sync(b.commandLine("sync --timeout 2 --port " + std::to_string(relay->port())), root + "/b-sync.log");
        ASSERT_TRUE(collecting(root + "/b-sync.log"));
        relay->kill9();
        sync.wait(30);
    }
    ASSERT_TRUE(relay->start()) << relay->log();
    ASSERT_TRUE(b.syncDone(relay->port()));
    ASSERT_TRUE(c.syncDone(relay->port()));
    for (const Installation* i : {&a, &b, &c}) EXPECT_EQ(titlesWith(*i, "burst").size(), size_t(n)) << i->dir;
}

TEST_F(InstallationsTest, ClientKilledDuringSyncLosesNothing) {
    const int n = 200;
    ASSERT_EQ(a.admin("record set task", burst("killed", n)).status, 0);
    int before = relay->enqueued();
    {
        Child sync(a.commandLine("sync --timeout 2 --port " + std::to_string(relay->port())), root + "/a-kill.log");
        ASSERT_TRUE(waitFor([&] { return relay->enqueued() >= before + 100; }, 60));
    }
    // Killed: its lock stays behind, as a killed client's does, and the
    // operator removes it.
    ASSERT_EQ(std::remove((a.dir + "/vantor.lock").c_str()), 0);
    ASSERT_TRUE(a.syncDone(relay->port()));
    {
        Child sync(c.commandLine("sync --timeout 2 --port " + std::to_string(relay->port())), root + "/c-kill.log");
        ASSERT_TRUE(collecting(root + "/c-kill.log"));
    }
    std::remove((c.dir + "/vantor.lock").c_str());
    ASSERT_TRUE(c.syncDone(relay->port()));
    ASSERT_TRUE(b.syncDone(relay->port()));
    for (const Installation* i : {&a, &b, &c}) EXPECT_EQ(titlesWith(*i, "killed").size(), size_t(n)) << i->dir;
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
        LXUser* bob = LXUser::userWithString_(NSString::stringWithUTF8String_(("Bob Baker/Sales/Demo-" + bobId).c_str()));
        NSMutableDictionary* contents = NSMutableDictionary::dictionary();
        contents->setObject_forKey_("delete"_ns, "action"_ns);
        contents->setObject_forKey_("company"_ns, "sheet"_ns);
        contents->setObject_forKey_("no-such-record"_ns, "objectId"_ns);
        for (LXDelta* poison : {LXDelta::deltaWithPool_sender_contents_(LXPool::poolWithName_("Other"_ns), sender, contents),
                                LXDelta::deltaWithPool_sender_contents_(LXPool::poolWithName_("Rk2pWn"_ns), sender, nullptr)}) {
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
    for (size_t start = 0, end; (end = refused.out.find('\n', start)) != std::string::npos; start = end + 1)
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
    for (const Installation* i : {&a, &b, &c}) EXPECT_TRUE(i->syncDone(proxy.port(), 400)) << i->dir;
    proxy.setFaultsEnabled(false);
    for (const Installation* i : {&a, &b, &c}) ASSERT_TRUE(i->syncDone(proxy.port())) << i->dir;
    for (const Installation* i : {&a, &b, &c}) EXPECT_EQ(titlesWith(*i, "faulty").size(), size_t(n)) << i->dir;
    for (auto fate : {vt_test::Fate::Cut, vt_test::Fate::Reset, vt_test::Fate::Stall, vt_test::Fate::Refuse})
        EXPECT_GT(proxy.count(fate), 0) << vt_test::fateName(fate);
}

}  // namespace
