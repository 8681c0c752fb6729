// The real client under Wine, headless and non-interactive, in temporary
// working directories: its refusals, its first-run seeding of data/, the
// user key and the workspace, and its exit statuses, judged by files and
// log lines. Each directory gets a small configuration and a first-admin
// key, written here with the product's own key code.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "app/VTUserKey.h"
#include "foundation/Foundation.h"
#include "tests/support/RunProgram.h"

#if !defined(VANTOR_CLIENT_PATH) || !defined(VANTOR_WINE) || !defined(VANTOR_DEMO_DIR) || \
        !defined(VANTOR_CLOSER_PATH)
#error "the build passes VANTOR_CLIENT_PATH, VANTOR_WINE, VANTOR_DEMO_DIR and VANTOR_CLOSER_PATH"
#endif

namespace {

// The client under test: this build's, or another build's (the Windows
// flavour runs this program against its vantor.exe).
const char* clientPath() {
    const char* path = std::getenv("VANTOR_CLIENT_PATH");
    return path ? path : VANTOR_CLIENT_PATH;
}

const char kConfiguration[] =
        "((# the sheets the client needs, and one more)\n"
        " ((name role) (field name as string))\n"
        " ((name group) (field name as string) (field roles as string))\n"
        " ((name user) (field firstName as string) (field lastName as string) (field orgUnit as "
        "string)\n"
        "  (field company as string) (field role as string) (field groups as string))\n"
        " ((name note labelled (My notes)) (field text as string)))\n";
const char kRefusal[] =
        "alert: Error: An instance of this application is already running in the same working "
        "directory.\n";

using vt_test::quoteShell;

class ClientTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(std::getenv("WINEPREFIX"), nullptr)
                << "run through ctest: it prepares the prefix";
        ASSERT_STREQ(std::getenv("VANTOR_NONINTERACTIVE"), "1");
        const testing::TestInfo* info = testing::UnitTest::GetInstance()->current_test_info();
        dir_ = testing::TempDir() + "vantor-client-" + info->name() + "-" +
               std::to_string(getpid());
        ASSERT_EQ(std::system(("rm -rf " + quoteShell(dir_) + " && mkdir -p " +
                               quoteShell(dir_ + "/data/init"))
                                      .c_str()),
                  0);
        install(dir_);
    }
    void TearDown() override { std::system(("rm -rf " + quoteShell(dir_)).c_str()); }

    // The client's standard output and exit status. A client that starts
    // waits at its login window: the closer closes that window, as a
    // person would, and the client ends. `timeout` turns a client that
    // waits for a person otherwise (a message box under the null driver)
    // into a failure instead of a hung test.
    vt_test::ProgramResult runClient(const std::string& dir) {
        std::string wine = quoteShell(VANTOR_WINE);
        return vt_test::runProgram(
                "cd " + quoteShell(dir) + " && { timeout 60 " + wine + " " +
                quoteShell(clientPath()) + " & client=$!; " + wine + " " +
                quoteShell(VANTOR_CLOSER_PATH) +
                " 'Vantor 3.0' >/dev/null 2>&1 & closer=$!; wait $client; status=$?; "
                "kill $closer 2>/dev/null; wait $closer; exit $status; }");
    }
    vt_test::ProgramResult runClient() { return runClient(dir_); }

    // A configuration and a first-admin key (no UniqueID yet).
    static void install(const std::string& dir) {
        ASSERT_EQ(std::system(("mkdir -p " + quoteShell(dir + "/conf") + " " +
                               quoteShell(dir + "/userkey") + " " + quoteShell(dir + "/data"))
                                      .c_str()),
                  0);
        std::ofstream(dir + "/conf/cro.vtr", std::ios::binary) << kConfiguration;
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        NSMutableDictionary* key = NSMutableDictionary::dictionary();
        key->setObject_forKey_("Ada Lovelace/Demo/Admin"_ns, "UserID"_ns);
        key->setObject_forKey_("secret"_ns, "Password"_ns);
        key->setObject_forKey_(NSNumber::numberWithBool_(false), "Admin"_ns);
        EXPECT_TRUE(VTUserKey::writeUserKey_toFile_(
                key, NSString::stringWithUTF8String_((dir + "/userkey/admin.vuk").c_str())));
        pool->release();
    }

    void write(const std::string& name, const std::string& content) {
        std::ofstream(dir_ + "/" + name, std::ios::binary) << content;
    }
    std::string read(const std::string& name) {
        std::ifstream in(dir_ + "/" + name, std::ios::binary);
        std::ostringstream s;
        s << in.rdbuf();
        return s.str();
    }
    bool exists(const std::string& name) { return access((dir_ + "/" + name).c_str(), F_OK) == 0; }

    std::string dir_;
};

// Whether the client came as far as its login window (which the closer
// then closed): no alert, and the workspace's line of the last sheet is
// the last of the run.
bool reachedTheLogin(const std::string& out) {
    size_t last = out.rfind("\nsheet note (My notes): ");
    return out.find("alert:") == std::string::npos && last != std::string::npos &&
           out.find('\n', last + 1) == out.size() - 1;
}

TEST_F(ClientTest, ANormalStartBuildsTheWorkspaceAndLeavesNoLock) {
    vt_test::ProgramResult run = runClient();
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, std::string("no user unique ID\n"
                                   "run-time forms not rendered: no sheet named form\n"
                                   "first admin: 1\n"
                                   "workspace: 4 sheets\n"
                                   "sheet role (Role): 0 records\n"
                                   "sheet group (Group): 0 records\n"
                                   "sheet user (User): 1 records\n"
                                   "sheet note (My notes): 0 records\n"));
    EXPECT_FALSE(exists("vantor.lock"));
    EXPECT_TRUE(exists("conf/conf.vtr"));
    EXPECT_TRUE(exists("_seen_.vci"));

    // The first start filled in the admin key: the second neither logs the
    // missing id nor repeats the first-user step.
    vt_test::ProgramResult again = runClient();
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out.find("no user unique ID"), std::string::npos) << again.out;
    EXPECT_EQ(again.out.find("first admin"), std::string::npos) << again.out;
    EXPECT_NE(again.out.find("sheet user (User): 1 records\n"), std::string::npos) << again.out;
    EXPECT_TRUE(reachedTheLogin(again.out)) << again.out;
}

TEST_F(ClientTest, WithoutAKeyOrAConfigurationTheStartIsRefused) {
    ASSERT_EQ(std::system(("rm -f " + quoteShell(dir_ + "/userkey/admin.vuk")).c_str()), 0);
    write("userkey/a.vuk", "too short a name to be read");
    vt_test::ProgramResult run = runClient();
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "alert: Error: No user key has been found.\n");
    EXPECT_FALSE(exists("vantor.lock"));

    install(dir_);
    ASSERT_EQ(std::system(("rm -f " + quoteShell(dir_ + "/conf/cro.vtr")).c_str()), 0);
    vt_test::ProgramResult bare = runClient();
    EXPECT_EQ(bare.status, 1);
    EXPECT_NE(bare.out.find("alert: Error: No configuration"), std::string::npos) << bare.out;
    EXPECT_FALSE(exists("vantor.lock"));
}

TEST_F(ClientTest, ALockFileRefusesTheStartBeforeAnythingElse) {
    write("vantor.lock", "held by another client");
    write("data/init/ab.vcd", "container");
    vt_test::ProgramResult run = runClient();
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, kRefusal);
    // The lock belongs to the other client, and nothing was seeded.
    EXPECT_EQ(read("vantor.lock"), "held by another client");
    EXPECT_FALSE(exists("data/ab.vcd"));

    // A start in another directory is not affected.
    std::string other = dir_ + "-other";
    ASSERT_EQ(std::system(("mkdir -p " + quoteShell(other)).c_str()), 0);
    install(other);
    vt_test::ProgramResult elsewhere = runClient(other);
    EXPECT_EQ(elsewhere.status, 0);
    EXPECT_TRUE(reachedTheLogin(elsewhere.out)) << elsewhere.out;
    std::system(("rm -rf " + quoteShell(other)).c_str());
}

// A lock whose process is gone is not taken over: the refusal names the
// process and how to remove the file. One made by a process of another
// kind (vantor-admin's Linux ids) can't be checked from here and counts as
// held.
TEST_F(ClientTest, AStaleLockIsNamedAndLeftForTheUserToRemove) {
    write("vantor.lock", "2147483000 windows\n");
    vt_test::ProgramResult run = runClient();
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(
            run.out,
            "alert: Error: The lock file vantor.lock was left behind by process 2147483000, which "
            "no longer "
            "runs. If nothing else works in this directory, delete vantor.lock and start again.\n");
    EXPECT_EQ(read("vantor.lock"), "2147483000 windows\n");

    write("vantor.lock", "2147483000 posix\n");
    run = runClient();
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, kRefusal);
}

// The client waiting at an alert (no user key; under Wine's null driver
// a message box waits for ever when nobody answers it) holds the lock,
// made with its id. Ctrl-C (SIGINT) and SIGTERM end it, and it removes
// the lock as it goes.
TEST_F(ClientTest, CtrlCAndSigtermRemoveTheLock) {
    ASSERT_EQ(std::system(("rm -f " + quoteShell(dir_ + "/userkey/admin.vuk")).c_str()), 0);
    for (int signal : {SIGINT, SIGTERM}) {
        pid_t client = fork();
        if (client == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            unsetenv("VANTOR_NONINTERACTIVE");
            int null = open("/dev/null", O_WRONLY);
            dup2(null, 1);
            if (chdir(dir_.c_str()) != 0) _exit(126);
            execl(VANTOR_WINE, VANTOR_WINE, clientPath(), static_cast<char*>(nullptr));
            _exit(127);
        }
        ASSERT_GT(client, 0);
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!exists("vantor.lock") && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        std::string lock = read("vantor.lock");
        EXPECT_EQ(lock.substr(lock.find(' ')), " windows\n") << lock;
        // The alert comes after the lock: give the client time to reach it.
        std::this_thread::sleep_for(std::chrono::seconds(2));
        kill(client, signal);
        int status = 0;
        ASSERT_EQ(waitpid(client, &status, 0), client);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        EXPECT_FALSE(exists("vantor.lock")) << strsignal(signal);
    }
}

TEST_F(ClientTest, AFirstRunSeedsContainerFilesByName) {
    for (const char* name :
         {"a.vcd", "ab.vcd", "ab.vci", "user.vci", "user.vcd", "notes.txt", "big.VCD", "x.vcix"}) {
        write(std::string("data/init/") + name, std::string("from init: ") + name);
    }
    // The copied user container holds no container, so the start stops
    // at the workspace; the seeding before it is what this test is about.
    vt_test::ProgramResult run = runClient();
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("alert: Error: The user data (data/user) is damaged."),
              std::string::npos)
            << run.out;
    for (const char* copied : {"ab.vcd", "ab.vci", "user.vci", "user.vcd"}) {
        EXPECT_EQ(read(std::string("data/") + copied), std::string("from init: ") + copied)
                << copied;
    }
    // Five characters are too few, other endings are skipped, and the
    // ending is compared case-sensitively.
    for (const char* skipped : {"a.vcd", "notes.txt", "big.VCD", "x.vcix"}) {
        EXPECT_FALSE(exists(std::string("data/") + skipped)) << skipped;
    }
}

TEST_F(ClientTest, SeedingNeverOverwritesAnExistingContainer) {
    write("data/init/ab.vcd", "from init");
    write("data/init/cd.vcd", "from init");
    write("data/ab.vcd", "the user's own records");
    vt_test::ProgramResult run = runClient();
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(read("data/ab.vcd"), "the user's own records");
    EXPECT_EQ(read("data/cd.vcd"), "from init");
}

TEST_F(ClientTest, AnExistingUserContainerMeansNoSeedingAtAll) {
    write("data/user.vci", "index");
    write("data/init/ab.vcd", "from init");
    write("data/init/user.vcd", "from init");
    // The user index written above is no container: the start stops at
    // the workspace, after the seeding step that this test is about.
    vt_test::ProgramResult run = runClient();
    EXPECT_EQ(run.status, 1);
    EXPECT_FALSE(exists("data/ab.vcd"));
    EXPECT_FALSE(exists("data/user.vcd"));
}

// Without data/ there is nothing to open, and the start says so once,
// without making the folder or any container.
TEST_F(ClientTest, AMissingDataFolderStopsTheStartAndIsNotCreated) {
    ASSERT_EQ(std::system(("rm -rf " + quoteShell(dir_ + "/data")).c_str()), 0);
    vt_test::ProgramResult run = runClient();
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out.find("alert:"), run.out.rfind("alert:")) << run.out;
    EXPECT_NE(run.out.find("alert: Error: The data folder (data/) is missing."), std::string::npos)
            << run.out;
    EXPECT_FALSE(exists("data"));
    EXPECT_FALSE(exists("vantor.lock"));
}

}  // namespace
