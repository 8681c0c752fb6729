// An organisation of its own, from nothing, as the README tells an
// operator to make one: init, the first start of the first administrator,
// two users made as rows of the user sheet with their keys, each in an
// installation of their own, and records replicated between them through a
// relay (bound to 127.0.0.1, on a port of the system's choosing). Also what
// relay status shows of the queues meanwhile.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>

#include "tests/support/RunProgram.h"

#ifndef VANTOR_ADMIN_PATH
#error "the build passes the path of vantor-admin as VANTOR_ADMIN_PATH"
#endif
#ifndef VANTOR_RELAY_PATH
#error "the build passes the path of vantor-relay as VANTOR_RELAY_PATH"
#endif

namespace {

using vt_test::ProgramResult;
using vt_test::quoteShell;
namespace fs = std::filesystem;

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// vantor-admin -C DIR ... as the user whose password is given.
ProgramResult as(const std::string& dir, const std::string& password, const std::string& args,
                 const std::string& input = "") {
    return vt_test::runProgram("VANTOR_PASSWORD=" + quoteShell(password) + " " +
                                       quoteShell(VANTOR_ADMIN_PATH) + " -C " + quoteShell(dir) +
                                       " " + args,
                               input);
}

std::string trimmed(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    return text;
}

class OrganisationTest : public testing::Test {
protected:
    void SetUp() override { root_ = vt_test::makeTempDir("vt-organisation"); }
    void TearDown() override {
        if (relayPid_ > 0) kill(relayPid_, SIGTERM);
        vt_test::removeTree(root_);
    }

    // The relay in its own directory; `timeout` ends it should the test die
    // before TearDown.
    void startRelay() {
        fs::create_directory(root_ + "/relay");
        std::string log = root_ + "/relay.log";
        std::string command = "timeout 300 " + quoteShell(VANTOR_RELAY_PATH) +
                              " --bind 127.0.0.1 --port 0 --timeout 10 --dir " +
                              quoteShell(root_ + "/relay") + " > " + quoteShell(log) +
                              " 2>&1 & echo $!";
        ProgramResult started = vt_test::runProgram(command);
        relayPid_ = std::atoi(started.out.c_str());
        ASSERT_GT(relayPid_, 0);
        std::smatch found;
        const std::regex listening("listening on port ([0-9]+)");
        for (int i = 0; i < 2000; i++) {
            std::string text = vt_test::readFile(log);
            if (std::regex_search(text, found, listening)) {
                port_ = found[1];
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        FAIL() << "the relay did not start: " << vt_test::readFile(log);
    }

    // A user's installation as the README describes it: the configuration,
    // an empty data/, the key and transceiver.txt.
    std::string userInstallation(const std::string& name, const std::string& keyFile) {
        std::string dir = root_ + "/" + name;
        fs::create_directories(dir + "/data");
        fs::create_directories(dir + "/userkey");
        fs::copy(root_ + "/org/conf", dir + "/conf", fs::copy_options::recursive);
        fs::rename(root_ + "/org/" + keyFile, dir + "/userkey/" + keyFile);
        fs::copy_file(root_ + "/org/transceiver.txt", dir + "/transceiver.txt");
        return dir;
    }

    std::string root_;
    std::string port_;
    int relayPid_ = -1;
};

TEST_F(OrganisationTest, InitFirstStartTwoUsersAndReplication) {
    std::string org = root_ + "/org";
    ProgramResult init = vt_test::runProgram(
            quoteShell(VANTOR_ADMIN_PATH) + " init " + quoteShell(org) +
                    " --name 'Grace Hopper' --relay 127.0.0.1 --password-stdin --json",
            "navy-1906\n");
    ASSERT_EQ(init.status, 0) << init.err;
    EXPECT_EQ(init.out, "{\"installation\":\"" + org +
                                "\",\"userId\":\"Grace Hopper/Demo/Admin\",\"key\":\"" + org +
                                "/userkey/admin.vuk\",\"configuration\":\"demo\"}\n");
    // init never overwrites an installation.
    ProgramResult again = vt_test::runProgram(
            quoteShell(VANTOR_ADMIN_PATH) + " init " + quoteShell(org) + " --password-stdin",
            "x\n");
    EXPECT_EQ(again.status, 1);
    EXPECT_TRUE(contains(again.err, "exists and is not an empty directory")) << again.err;
    EXPECT_EQ(as(org, "navy-1906", "config check --strict").status, 0);

    // The first start: the first-user step makes Grace's row, a manager in
    // Admins and Designers, and writes its id into her key.
    ProgramResult users = as(org, "navy-1906", "record list user");
    ASSERT_EQ(users.status, 0) << users.err;
    EXPECT_TRUE(contains(users.out, R"("firstName":"Grace","lastName":"Hopper")")) << users.out;
    EXPECT_TRUE(contains(users.out, R"("groups":"init-group-admins init-group-designers")"))
            << users.out;
    EXPECT_FALSE(
            contains(as(org, "", "key show userkey/admin.vuk --json").out, "\"UniqueID\":null"));
    EXPECT_EQ(as(org, "wrong", "record list user").status, 1);

    // Two users and their keys.
    std::string ids[2];
    std::string keys[2];
    const char* rows[2] = {
            R"({"firstName": "Alice", "lastName": "Ames", "orgUnit": "Sales", "company": "Acme",
                "role": "manager", "groups": "init-group-designers"})",
            R"({"firstName": "Bob", "lastName": "Baker", "orgUnit": "Works", "company": "Acme",
                "role": "manager", "groups": "init-group-designers"})",
    };
    const char* passwords[2] = {"alice-pw", "bob-pw"};
    for (int i = 0; i < 2; i++) {
        ProgramResult made = as(org, "navy-1906", "record set user --json", rows[i]);
        ASSERT_EQ(made.status, 0) << made.err;
        std::smatch id;
        ASSERT_TRUE(std::regex_search(made.out, id, std::regex(R"re(\{"recordId":"([^"]+)"\})re")))
                << made.out;
        ids[i] = id[1];
        // Alice's key named as a script reads it, Bob's as JSON.
        std::string json = i == 1 ? " --json" : "";
        ProgramResult key = as(org, "", "key make " + ids[i] + " --password-stdin" + json,
                               std::string(passwords[i]) + "\n");
        ASSERT_EQ(key.status, 0) << key.err;
        keys[i] = trimmed(key.out);
        if (i == 1) {
            EXPECT_EQ(key.out,
                      "{\"key\":\"Bob_Baker__Works__Acme.vuk\",\"UserID\":\"Bob Baker/Works/Acme\","
                      "\"UniqueID\":\"" +
                              ids[1] + "\"}\n");
            keys[i] = "Bob_Baker__Works__Acme.vuk";
        }
        ASSERT_EQ(
                as(org, "navy-1906", "record action user " + ids[i] + " VTActionPushSpaces").status,
                0);
    }
    EXPECT_EQ(keys[0], "Alice_Ames__Sales__Acme.vuk");
    std::string alice = userInstallation("alice", keys[0]);
    std::string bob = userInstallation("bob", keys[1]);

    ASSERT_NO_FATAL_FAILURE(startRelay());
    std::string sync = "sync --timeout 10 --port " + port_;
    ProgramResult sent = as(org, "navy-1906", sync + " --json");
    ASSERT_EQ(sent.status, 0) << sent.err;
    EXPECT_TRUE(std::regex_search(sent.out,
                                  std::regex(R"(^\{"cycle":1,"sent":[1-9][0-9]*,"received":0,)")))
            << sent.out;

    // What the relay now holds: a queue for each new user, nothing read
    // away from them by looking.
    ProgramResult status = as(org, "", "relay status " + quoteShell(root_ + "/relay") + " --json");
    ASSERT_EQ(status.status, 0) << status.err;
    for (const std::string& id : ids) {
        EXPECT_TRUE(std::regex_search(
                status.out, std::regex("\\{\"addressee\":\"" + id + "\",\"deltas\":[1-9]")))
                << status.out;
    }
    EXPECT_TRUE(contains(status.out, "\"unqueued\":0")) << status.out;
    EXPECT_TRUE(contains(as(org, "", "relay status " + quoteShell(root_ + "/relay")).out,
                         "queue " + ids[0] + ": "));

    // Each user collects everything; then a company travels from Alice to
    // Bob.
    ASSERT_EQ(as(alice, "alice-pw", sync).status, 0);
    ASSERT_EQ(as(bob, "bob-pw", sync).status, 0);
    EXPECT_TRUE(contains(as(bob, "bob-pw", "record list user").out, R"("firstName":"Alice")"));
    ProgramResult company =
            as(alice, "alice-pw", "record set company",
               R"({"name": "Relay Works", "city": "Ostrava", "industry": "software"})");
    ASSERT_EQ(company.status, 0) << company.err;
    ASSERT_EQ(as(alice, "alice-pw", sync).status, 0);
    ASSERT_EQ(as(bob, "bob-pw", sync).status, 0);
    ProgramResult atBob = as(bob, "bob-pw", "record list company");
    EXPECT_TRUE(contains(atBob.out, "\"__recordId\":\"" + trimmed(company.out) + "\""))
            << atBob.out;
    EXPECT_TRUE(contains(atBob.out, R"("name":"Relay Works")")) << atBob.out;
    // And to the administrator.
    ASSERT_EQ(as(org, "navy-1906", sync).status, 0);
    EXPECT_TRUE(
            contains(as(org, "navy-1906", "record list company").out, R"("name":"Relay Works")"));
}

}  // namespace
