// The workspace: the compiled configuration, the first-user step and the
// seen sets, in real working directories.
#include "sync/LXPool.h"
#include "sync/LXTransceiver.h"
#include "sync/LXUser.h"
#include "workspace_fixture.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include "sheets/LXListParser.h"
#include "storage/NSUnarchiver.h"

namespace {

// A listening socket on 127.0.0.1 at the port, or -1 when it is taken.
int listenLoopback(uint16_t port) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd, 4) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// Whether a connection arrives within the time; it is closed at once.
bool acceptsWithin(int listener, int milliseconds) {
    pollfd waiting{listener, POLLIN, 0};
    if (poll(&waiting, 1, milliseconds) <= 0) return false;
    int fd = accept(listener, nullptr, nullptr);
    if (fd < 0) return false;
    close(fd);
    return true;
}

std::string sheetNames(VTWorkspace* w) {
    std::string out;
    NSArray* list = w->listOfSheets();
    for (uint32_t i = 0; i < list->count(); i++) {
        auto* sheet = static_cast<VTSheet*>(list->objectAtIndex_(i));
        out += (i ? " " : "") + std::string(sheet->name()->UTF8String()) + "(" +
               sheet->title()->UTF8String() + "," + std::to_string(sheet->fields()->count()) + ")";
    }
    return out;
}

NSObject* decodeCompiled() {
    NSData* data = NSData::dataWithContentsOfFile_("conf/conf.vtr"_ns);
    data->decryptWithKey_("Rk2pWn"_ns);
    NSUnarchiver* u = NSUnarchiver::alloc()->initForReadingWithData_(data);
    NSObject* root = NSRetain(u->decodeObject());
    u->release();
    return NSAutorelease(root);
}

constexpr const char kSheets[] = "role(Role,1) group(Group,2) user(User,6) task(Open tasks,2)";

TEST_F(WorkspaceTest, TheSourceWinsIsCompiledAndTheCompiledFileRunsAlone) {
    writeFile("conf/cro.vtr", kSmallConfiguration);
    writeFile("conf/conf.vtr", "an old compiled file of another meaning");
    NSDictionary* k = key("Ada Lovelace/Demo/Acme", "u1");

    VTWorkspace* first = build(k);
    ASSERT_NE(first, nullptr);
    // The comment row makes no sheet.
    EXPECT_EQ(sheetNames(first), kSheets);
    EXPECT_EQ(first->sheets()->count(), 4u);
    // The compiled file holds exactly what the parser made of the source.
    NSObject* root = decodeCompiled();
    ASSERT_NE(root, nullptr);
    ASSERT_TRUE(root->isKindOfClass_(NSDictionary::classObject()));
    EXPECT_EQ(static_cast<NSDictionary*>(root)->count(), 1u);
    NSObject* rows = static_cast<NSDictionary*>(root)->objectForKey_("Workspace"_ns);
    NSArray* parsed = LXListParser::listParserWithString_(ns(kSmallConfiguration))->parse();
    ASSERT_NE(rows, nullptr);
    EXPECT_TRUE(rows->isEqual_(parsed));
    std::string compiled = readFile("conf/conf.vtr");
    first->release();

    // A second start with the source writes the same bytes again.
    VTWorkspace* again = build(k);
    EXPECT_EQ(readFile("conf/conf.vtr"), compiled);
    again->release();

    // Without the source the compiled file runs, with the same sheets.
    std::filesystem::remove("conf/cro.vtr");
    VTWorkspace* alone = build(k);
    ASSERT_NE(alone, nullptr);
    EXPECT_EQ(sheetNames(alone), kSheets);
    EXPECT_EQ(readFile("conf/conf.vtr"), compiled);
    alone->release();
}

TEST_F(WorkspaceTest, WithoutAUsableConfigurationThereIsNoWorkspace) {
    std::string log;
    EXPECT_EQ(build(key("Ada Lovelace/Demo/Acme", "u1"), &log), nullptr);
    // The workspace tells the user itself, so that the client adds nothing.
    EXPECT_EQ(log,
              "no configuration: neither conf/cro.vtr nor a readable conf/conf.vtr\n"
              "alert: Error: No configuration: conf/cro.vtr is missing and conf/conf.vtr is "
              "missing or "
              "unreadable.\n");

    // A compiled file that doesn't decode is no configuration either.
    writeFile("conf/conf.vtr", "garbage that deciphers to no archive");
    EXPECT_EQ(build(key("Ada Lovelace/Demo/Acme", "u1"), &log), nullptr);
    EXPECT_NE(log.find("no configuration"), std::string::npos) << log;

    // A source that doesn't parse leaves the compiled file alone and does
    // not fall back to it.
    writeFile("conf/cro.vtr", "((name role) (field name as string)");
    EXPECT_EQ(build(key("Ada Lovelace/Demo/Acme", "u1"), &log), nullptr);
    EXPECT_EQ(readFile("conf/conf.vtr"), "garbage that deciphers to no archive");
    EXPECT_NE(
            log.find(
                    "configuration conf/cro.vtr does not parse; conf/conf.vtr is left as it was\n"),
            std::string::npos)
            << log;
}

TEST_F(WorkspaceTest, RunTimeFormsNeedAFormSheet) {
    writeFile("conf/cro.vtr", kSmallConfiguration);
    std::string log;
    VTWorkspace* w = build(key("Ada Lovelace/Demo/Acme", "u1"), &log);
    EXPECT_NE(log.find("run-time forms not rendered: no sheet named form\n"), std::string::npos)
            << log;
    EXPECT_EQ(w->listOfSheets()->count(), 4u);
    w->release();
}

class FirstUserTest : public WorkspaceTest {
protected:
    void SetUp() override {
        WorkspaceTest::SetUp();
        writeFile("conf/cro.vtr", kSmallConfiguration);
        storeRecords("group", {{{"__recordId", "g-designers"}, {"name", "Designers"}},
                               {{"__recordId", "g-all"}, {"name", "All"}},
                               {{"__recordId", "g-admins"}, {"name", "Admins"}},
                               {{"__recordId", "g-other"}, {"name", "Other"}}});
    }
    static NSString* userValue(VTWorkspace* w, const char* field) {
        return static_cast<NSString*>(
                w->sheetNamed_("user"_ns)->matrix()->valueInRow_column_(0, ns(field)));
    }
    // The ids of the named groups, in the group matrix's row order.
    static std::string groupIds(VTWorkspace* w, std::initializer_list<const char*> names) {
        std::string out;
        NSArray* rows = w->sheetNamed_("group"_ns)->matrix()->allObjectsSorted();
        for (uint32_t i = 0; i < rows->count(); i++) {
            auto* record = static_cast<NSDictionary*>(rows->objectAtIndex_(i));
            for (const char* name : names)
                if (record->objectForKey_("name"_ns)->isEqual_(ns(name)))
                    out += (out.empty() ? "" : " ") + str(record->objectForKey_("__recordId"_ns));
        }
        return out;
    }
};

TEST_F(FirstUserTest, TheFirstAdminGetsAFreshIdWrittenToTheAdminKeyOnce) {
    NSMutableDictionary* k = key("Ada Lovelace/Demo/Admin", nullptr, "pass word");
    std::string log;
    VTWorkspace* w = build(k, &log);
    ASSERT_NE(w, nullptr);
    EXPECT_NE(log.find("first admin: 1\n"), std::string::npos) << log;
    VTMatrix* users = w->sheetNamed_("user"_ns)->matrix();
    ASSERT_EQ(users->numberOfRows(), 1u);
    EXPECT_EQ(str(userValue(w, "firstName")), "Ada");
    EXPECT_EQ(str(userValue(w, "lastName")), "Lovelace");
    EXPECT_EQ(str(userValue(w, "orgUnit")), "Demo");
    EXPECT_EQ(str(userValue(w, "company")), "Admin");
    EXPECT_EQ(str(userValue(w, "role")), "manager");
    EXPECT_EQ(str(userValue(w, "groups")), groupIds(w, {"Admins", "Designers"}));
    EXPECT_EQ(str(userValue(w, "__creator")), "Ada Lovelace/Demo/Admin");
    // The fresh id went into the key dictionary and into userkey/admin.vuk.
    NSString* id = userValue(w, "__recordId");
    EXPECT_EQ(str(k->objectForKey_("UniqueID"_ns)), str(id));
    NSDictionary* written = VTUserKey::userKeyWithContentsOfFile_("userkey/admin.vuk"_ns);
    ASSERT_NE(written, nullptr);
    EXPECT_EQ(str(written->objectForKey_("UniqueID"_ns)), str(id));
    EXPECT_EQ(str(written->objectForKey_("Password"_ns)), "pass word");
    EXPECT_EQ(str(written->objectForKey_("UserID"_ns)), "Ada Lovelace/Demo/Admin");
    std::string keyBytes = readFile("userkey/admin.vuk");
    std::string stored = str(id);
    w->release();

    // The second start finds the row: nothing is written again.
    NSMutableDictionary* again = VTUserKey::userKeyWithContentsOfFile_("userkey/admin.vuk"_ns);
    VTWorkspace* second = build(again, &log);
    EXPECT_EQ(log.find("first admin"), std::string::npos) << log;
    EXPECT_EQ(second->sheetNamed_("user"_ns)->matrix()->numberOfRows(), 1u);
    EXPECT_EQ(str(userValue(second, "__recordId")), stored);
    EXPECT_EQ(readFile("userkey/admin.vuk"), keyBytes);
    EXPECT_EQ(second->currentUserRow(), 0);
    second->release();
}

TEST_F(FirstUserTest, AnyOtherFirstUserKeepsTheIdOfItsKeyAndJoinsAll) {
    NSMutableDictionary* k = key("Bob Builder/Sales/Acme", "1700000000.5-3-42");
    std::string log;
    VTWorkspace* w = build(k, &log);
    EXPECT_NE(log.find("first admin: 0\n"), std::string::npos) << log;
    EXPECT_EQ(str(userValue(w, "__recordId")), "1700000000.5-3-42");
    EXPECT_EQ(str(userValue(w, "role")), "manager");
    EXPECT_EQ(str(userValue(w, "groups")), "g-all");
    EXPECT_EQ(str(userValue(w, "company")), "Acme");
    EXPECT_FALSE(std::filesystem::exists("userkey/admin.vuk"));
    // The record is found by the id it carries, in this run already.
    EXPECT_NE(w->sheetNamed_("user"_ns)->matrix()->objectWithRecordId_("1700000000.5-3-42"_ns),
              nullptr);
    w->release();

    VTWorkspace* second = build(k, &log);
    EXPECT_EQ(log.find("first admin"), std::string::npos) << log;
    EXPECT_EQ(second->sheetNamed_("user"_ns)->matrix()->numberOfRows(), 1u);
    EXPECT_EQ(str(userValue(second, "__recordId")), "1700000000.5-3-42");
    second->release();
}

TEST_F(FirstUserTest, AnIdentityOfTheWrongShapeWritesNoRow) {
    std::string log;
    VTWorkspace* w = build(key("Nobody/Demo", "x"), &log);
    EXPECT_NE(log.find("first user: user id 'Nobody/Demo' is not of the form 'First "
                       "Last/Unit/Company'; no user row "
                       "written\n"),
              std::string::npos)
            << log;
    EXPECT_EQ(w->sheetNamed_("user"_ns)->matrix()->numberOfRows(), 0u);
    w->release();
}

TEST_F(FirstUserTest, ADamagedUserStoreStopsTheStartAndTouchesNoKey) {
    // Ada's row is there, but the data file was cut: the store answers no
    // rows, which must not pass for an empty user sheet.
    storeRecords("user", {{{"__recordId", "u-ada"},
                           {"firstName", "Ada"},
                           {"lastName", "Lovelace"},
                           {"orgUnit", "Demo"},
                           {"company", "Admin"}}});
    std::filesystem::resize_file("data/user.vcd", 3);
    NSMutableDictionary* k = key("Ada Lovelace/Demo/Admin", "u-ada");
    ASSERT_TRUE(VTUserKey::writeUserKey_toFile_(k, "userkey/admin.vuk"_ns));
    std::string keyBytes = readFile("userkey/admin.vuk");
    std::string index = readFile("data/user.vci");
    std::string log;
    EXPECT_EQ(build(k, &log), nullptr);
    EXPECT_NE(log.find("the user store data/user is damaged; the start stops, no user row or key "
                       "is written\n"),
              std::string::npos)
            << log;
    EXPECT_NE(log.find("alert: Error: The user data (data/user) is damaged. Please restore it from "
                       "a backup.\n"),
              std::string::npos)
            << log;
    EXPECT_EQ(log.find("first admin"), std::string::npos) << log;
    EXPECT_EQ(str(k->objectForKey_("UniqueID"_ns)), "u-ada");
    EXPECT_EQ(readFile("userkey/admin.vuk"), keyBytes);
    EXPECT_EQ(readFile("data/user.vci"), index);
    EXPECT_EQ(std::filesystem::file_size("data/user.vcd"), 3u);
}

TEST_F(WorkspaceTest, AMissingDataFolderIsReportedAsMissingAndNothingIsMade) {
    writeFile("conf/cro.vtr", kSmallConfiguration);
    std::filesystem::remove_all("data");
    std::string log;
    EXPECT_EQ(build(key("Ada Lovelace/Demo/Admin", nullptr), &log), nullptr);
    EXPECT_EQ(
            log,
            "no data folder: data/ is missing in the working directory; nothing opened or created\n"
            "alert: Error: The data folder (data/) is missing.\n");
    EXPECT_FALSE(std::filesystem::exists("data"));
    EXPECT_FALSE(std::filesystem::exists("_seen_.vcd"));
    EXPECT_FALSE(std::filesystem::exists("userkey/admin.vuk"));
}

TEST_F(WorkspaceTest, SeenSetsLiveInTheirOwnContainer) {
    writeFile("conf/cro.vtr", kSmallConfiguration);
    VTWorkspace* w = build(key("Ada Lovelace/Demo/Acme", "u1"));
    EXPECT_TRUE(std::filesystem::exists("_seen_.vcd"));
    NSMutableSet* set = w->setForSeenForKey_("task"_ns);
    EXPECT_EQ(set->count(), 0u);
    EXPECT_EQ(w->setForSeenForKey_("task"_ns), set);
    set->addObject_("r1"_ns);
    w->saveSetsForSeen();
    w->release();

    VTWorkspace* again = build(key("Ada Lovelace/Demo/Acme", "u1"));
    EXPECT_TRUE(again->setForSeenForKey_("task"_ns)->member_("r1"_ns));
    again->release();
}

}  // namespace

TEST_F(FirstUserTest, StartingTheTransceiverRegistersThePoolAndTheUserAndRunsOnTheHostOfTheFile) {
    NSMutableDictionary* k = key("Bob Builder/Sales/Acme", "1700000000.5-3-42");
    std::string log;
    VTWorkspace* w = build(k, &log);
    ASSERT_NE(w, nullptr);
    writeFile("transceiver.txt", "  127.0.0.1\r\n");
    // The relay's port on the host of the file, where the cycle has to
    // knock. Taken by something else here, the test can't tell.
    int listener = listenLoopback(static_cast<uint16_t>(LXTransceiver::relayPort()));
    if (listener < 0) {
        w->release();
        GTEST_SKIP() << "the relay port is in use on this machine";
    }
    LXTransceiver* transceiver = LXTransceiver::defaultTransceiver();
    // One cycle and the thread ends: the lifetime is already over.
    transceiver->setLifetime_(NSDate::date()->addTimeInterval_(-1));
    uint32_t threads = NSThread::registeredThreadCount();
    logOf([&] { w->startTransceiver(); });

    auto* pool = static_cast<LXPool*>(w->pool());
    ASSERT_NE(pool, nullptr);
    EXPECT_EQ(str(pool->poolName()), "Rk2pWn");
    EXPECT_EQ(pool->delegate(), w);
    EXPECT_EQ(str(transceiver->user()->uniqueId()), "1700000000.5-3-42");
    EXPECT_EQ(str(transceiver->user()->organization()), "Acme");
    // The trimmed host of the file: the cycle connects to it.
    EXPECT_TRUE(acceptsWithin(listener, 10000)) << "no connection to the host of transceiver.txt";
    close(listener);
    for (int i = 0; i < 200 && NSThread::registeredThreadCount() > threads; i++)
        NSThread::sleepForTimeInterval_(0.05);
    EXPECT_EQ(NSThread::registeredThreadCount(), threads)
            << "the transceiver's thread ended with its lifetime";
    w->release();
}
