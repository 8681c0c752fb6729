// The real client under Wine, headless and non-interactive, in temporary
// working directories: its refusals, its first-run seeding of data/ and its
// exit statuses, judged by files and log lines.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/RunProgram.h"

#if !defined(VANTOR_CLIENT_PATH) || !defined(VANTOR_WINE) || !defined(VANTOR_DEMO_DIR)
#error "the build passes VANTOR_CLIENT_PATH, VANTOR_WINE and VANTOR_DEMO_DIR"
#endif

namespace {

const char kStopLine[] =
        "start-up ends after seeding data/: user keys, the workspace and the windows are not built "
        "yet\n";
const char kRefusal[] =
        "alert: Error: An instance of this application is already running in the same working "
        "directory.\n";

using vt_test::quoteShell;

class ClientTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(std::getenv("WINEPREFIX"), nullptr) << "run through ctest: it prepares the prefix";
        ASSERT_STREQ(std::getenv("VANTOR_NONINTERACTIVE"), "1");
        const testing::TestInfo* info = testing::UnitTest::GetInstance()->current_test_info();
        dir_ = testing::TempDir() + "vantor-client-" + info->name() + "-" + std::to_string(getpid());
        ASSERT_EQ(std::system(("rm -rf " + quoteShell(dir_) + " && mkdir -p " + quoteShell(dir_ + "/data/init")).c_str()),
                  0);
    }
    void TearDown() override { std::system(("rm -rf " + quoteShell(dir_)).c_str()); }

    // The client's standard output and exit status. `timeout` turns a client
    // that waits for a person (a message box under the null driver) into a
    // failure instead of a hung test.
    vt_test::ProgramResult runClient(const std::string& dir) {
        return vt_test::runProgram("cd " + quoteShell(dir) + " && timeout 60 " + quoteShell(VANTOR_WINE) + " " +
                                   quoteShell(VANTOR_CLIENT_PATH));
    }
    vt_test::ProgramResult runClient() { return runClient(dir_); }

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

TEST_F(ClientTest, ANormalStartRunsItsStepsAndLeavesNoLock) {
    vt_test::ProgramResult run = runClient();
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, kStopLine);
    EXPECT_FALSE(exists("vantor.lock"));

    vt_test::ProgramResult again = runClient();
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out, kStopLine);
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
    vt_test::ProgramResult elsewhere = runClient(other);
    EXPECT_EQ(elsewhere.status, 0);
    EXPECT_EQ(elsewhere.out, kStopLine);
    std::system(("rm -rf " + quoteShell(other)).c_str());
}

TEST_F(ClientTest, AFirstRunSeedsContainerFilesByName) {
    for (const char* name : {"a.vcd", "ab.vcd", "ab.vci", "user.vci", "user.vcd", "notes.txt", "big.VCD", "x.vcix"}) {
        write(std::string("data/init/") + name, std::string("from init: ") + name);
    }
    vt_test::ProgramResult run = runClient();
    EXPECT_EQ(run.status, 0);
    for (const char* copied : {"ab.vcd", "ab.vci", "user.vci", "user.vcd"}) {
        EXPECT_EQ(read(std::string("data/") + copied), std::string("from init: ") + copied) << copied;
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
    vt_test::ProgramResult run = runClient();
    EXPECT_EQ(run.status, 0);
    EXPECT_FALSE(exists("data/ab.vcd"));
    EXPECT_FALSE(exists("data/user.vcd"));
}

TEST_F(ClientTest, NoDataDirectoryIsCreated) {
    ASSERT_EQ(std::system(("rm -rf " + quoteShell(dir_ + "/data")).c_str()), 0);
    vt_test::ProgramResult run = runClient();
    EXPECT_EQ(run.status, 0);
    EXPECT_FALSE(exists("data"));
}

}  // namespace
