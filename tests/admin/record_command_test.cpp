// vantor-admin's headless client refuses bad input with a message and a
// status, and leaves the installation as it was: no record written, no
// delta queued, no lock left behind. Runs the built program in a fresh
// demo installation.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/support/RunProgram.h"

#ifndef VANTOR_ADMIN_PATH
#error "the build passes the path of vantor-admin as VANTOR_ADMIN_PATH"
#endif

namespace {

using vt_test::ProgramResult;
using vt_test::quoteShell;

bool exists(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

class RecordCommandTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        dir = vt_test::makeTempDir("vt-admin-record");
        ProgramResult made = vt_test::runProgram(
                "bash " + quoteShell(std::string(VANTOR_SOURCE_DIR) + "/scripts/new-workdir.sh") +
                " " + quoteShell(dir) + " >/dev/null");
        ASSERT_EQ(made.status, 0) << made.err;
    }
    static void TearDownTestSuite() { vt_test::removeTree(dir); }

    static ProgramResult admin(const std::string& args, const std::string& input = "",
                               const std::string& password = "vantor-demo") {
        return vt_test::runProgram("cd " + quoteShell(dir) +
                                           " && VANTOR_PASSWORD=" + quoteShell(password) + " " +
                                           quoteShell(VANTOR_ADMIN_PATH) + " " + args,
                                   input);
    }
    static std::string companies() { return admin("record list company").out; }
    static std::string deltas() { return admin("deltas").out; }

    // Each refusal: its status, the message, and nothing changed.
    static void expectRefused(const std::string& args, const std::string& input,
                              const std::string& message, int status = 1) {
        SCOPED_TRACE(args + " < " + input);
        std::string before = companies();
        std::string queued = deltas();
        ProgramResult r = admin(args, input);
        EXPECT_EQ(r.status, status);
        EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
        EXPECT_EQ(companies(), before);
        EXPECT_EQ(deltas(), queued);
        EXPECT_FALSE(exists(dir + "/vantor.lock"));
    }

    static std::string dir;
};

std::string RecordCommandTest::dir;

TEST_F(RecordCommandTest, LoginIsCheckedBeforeAnythingIsOpened) {
    ProgramResult wrong = admin("record list company", "", "Vantor-demo");
    EXPECT_EQ(wrong.status, 1);
    EXPECT_NE(wrong.err.find("wrong password"), std::string::npos) << wrong.err;
    EXPECT_FALSE(exists(dir + "/_deltas_.vci"));
    EXPECT_FALSE(exists(dir + "/vantor.lock"));

    // A client (or another command) at work here: refused, its lock kept.
    vt_test::writeFile(dir + "/vantor.lock", "");
    ProgramResult locked = admin("record list company");
    EXPECT_EQ(locked.status, 1);
    EXPECT_NE(locked.err.find("already running"), std::string::npos) << locked.err;
    EXPECT_TRUE(exists(dir + "/vantor.lock"));
    std::remove((dir + "/vantor.lock").c_str());
}

TEST_F(RecordCommandTest, RecordSetRefusesWhatTheFormCouldNotSave) {
    expectRefused("record set company", R"({"name": "Cut)", "invalid JSON");
    expectRefused("record set company", R"(["not an object"])", "JSON object");
    expectRefused("record set company", R"({"name": "X", "colour": "red"})",
                  "'colour' is no field");
    expectRefused("record set company", R"({"name": "X", "industry": "mining"})",
                  "not one of: software");
    expectRefused("record set company", R"({"name": "X", "industry": "trade", "since": "May"})",
                  "a date");
    expectRefused("record set message", R"({"subject": "Hi", "whom": "nobody"})",
                  "no record 'nobody'");
    expectRefused("record set nosuchsheet", R"({"name": "X"})", "no sheet named 'nosuchsheet'");
    expectRefused("record set company", R"({"__recordId": "unknown", "city": "Z"})",
                  "no record 'unknown'");
    expectRefused("record set company", "{}", "at least one field");
    // Save's validation, with the field's label: blanks are empty, and a
    // notempty enum not given is empty on a new record.
    expectRefused("record set company", R"({"name": "   ", "industry": "trade"})",
                  "Field 'Name' must not be empty");
    expectRefused("record set company", R"({"name": "Ok"})", "Field 'Industry' must not be empty");
    // Every object of a burst is checked before the first is saved.
    expectRefused("record set company", R"([{"name": "First", "industry": "trade"}, {"name": ""}])",
                  "'Name'");
}

TEST_F(RecordCommandTest, OtherCommandsRefuseUnknownRecordsAndUsage) {
    expectRefused("record remove company nothing-here", "", "no record 'nothing-here'");
    expectRefused("record select company nothing-here", "", "no record 'nothing-here'");
    expectRefused("record action company demo-company-1 VTActionPushSpaces", "",
                  "no action of the class");
    expectRefused("record set", "", "usage:", 2);
    expectRefused("sync --cycles 0", "", "usage:", 2);
    expectRefused("sync --port 99999", "", "usage:", 2);
}

TEST_F(RecordCommandTest, SyncWithoutARelayKeepsEveryDelta) {
    ProgramResult user = admin("record set user",
                               R"({"firstName": "Bob", "lastName": "Baker", "orgUnit": "Sales",
                                                     "company": "Demo", "role": "author"})");
    ASSERT_EQ(user.status, 0) << user.err;
    ASSERT_EQ(admin("record set company", R"({"name": "Queued", "industry": "trade"})").status, 0);
    std::string queued = deltas();
    ASSERT_NE(queued.find("\"action\":\"set\""), std::string::npos) << queued;

    // No transceiver.txt: no relay to go to.
    expectRefused("sync", "", "names no relay host");
    // A relay that isn't there: nothing leaves the delta store.
    vt_test::writeFile(dir + "/transceiver.txt", "127.0.0.1\n");
    expectRefused("sync --port 9 --timeout 1", "", "still waiting");
    EXPECT_EQ(deltas(), queued);
}

TEST_F(RecordCommandTest, ADamagedStoreIsNamedWhereverItIsReadAndTakesNoChange) {
    ProgramResult saved = admin("record set company", R"({"name": "Before", "industry": "trade"})");
    ASSERT_EQ(saved.status, 0) << saved.err;
    std::string queued = deltas();
    std::string data = vt_test::readFile(dir + "/data/company.vcd");
    std::filesystem::resize_file(dir + "/data/company.vcd", 7);
    const std::string named =
            "the store of the sheet 'company' (data/company.vcd, data/company.vci) is damaged";

    ProgramResult set = admin("record set company", R"({"name": "After", "industry": "trade"})");
    EXPECT_EQ(set.status, 1);
    EXPECT_EQ(set.out, "");
    EXPECT_NE(set.err.find("record set: " + named), std::string::npos) << set.err;
    for (const char* args :
         {"record remove company demo-company-1", "record list company", "sheet dump company"}) {
        ProgramResult r = admin(args);
        EXPECT_EQ(r.status, 1) << args;
        EXPECT_EQ(r.out, "") << args;
        EXPECT_NE(r.err.find(named), std::string::npos) << args << ": " << r.err;
    }
    // The other sheets are listed; the damaged one is named, not counted.
    ProgramResult sheets = admin("sheet list");
    EXPECT_EQ(sheets.status, 1);
    EXPECT_NE(sheets.err.find("sheet list: " + named), std::string::npos) << sheets.err;
    EXPECT_EQ(sheets.out.find("company \""), std::string::npos) << sheets.out;
    EXPECT_NE(sheets.out.find("contact \""), std::string::npos) << sheets.out;
    EXPECT_EQ(deltas(), queued);
    EXPECT_EQ(std::filesystem::file_size(dir + "/data/company.vcd"), 7u);

    vt_test::writeFile(dir + "/data/company.vcd", data);
    ProgramResult restored = admin("record list company");
    EXPECT_EQ(restored.status, 0) << restored.err;
    EXPECT_NE(restored.out.find("\"Before\""), std::string::npos) << restored.out;
    EXPECT_EQ(restored.out.find("\"After\""), std::string::npos) << restored.out;
}

TEST_F(RecordCommandTest, ADamagedUserStoreStopsTheStartAndTouchesNoKey) {
    ASSERT_EQ(admin("record list company").status, 0);  // Ada's row is made at the first start
    std::string key = vt_test::readFile(dir + "/userkey/admin.vuk");
    std::string users = vt_test::readFile(dir + "/data/user.vcd");
    std::filesystem::resize_file(dir + "/data/user.vcd", 3);
    ProgramResult r = admin("record list company");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find("the user store data/user is damaged"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("record list: the installation here can't be opened"), std::string::npos)
            << r.err;
    EXPECT_EQ(vt_test::readFile(dir + "/userkey/admin.vuk"), key);
    EXPECT_EQ(std::filesystem::file_size(dir + "/data/user.vcd"), 3u);
    EXPECT_FALSE(exists(dir + "/vantor.lock"));
    vt_test::writeFile(dir + "/data/user.vcd", users);
    EXPECT_EQ(admin("record list company").status, 0);
}

TEST_F(RecordCommandTest, AMissingDataFolderIsReportedAsMissing) {
    std::filesystem::rename(dir + "/data", dir + "/data.away");
    for (const char* args : {"record list company", "sheet list", "sheet dump company"}) {
        ProgramResult r = admin(args);
        EXPECT_EQ(r.status, 1) << args;
        EXPECT_NE(r.err.find("the data folder data/ is missing here"), std::string::npos)
                << args << ": " << r.err;
        EXPECT_EQ(r.err.find("damaged"), std::string::npos) << args << ": " << r.err;
        EXPECT_FALSE(exists(dir + "/data")) << args;
    }
    std::filesystem::rename(dir + "/data.away", dir + "/data");
}

TEST_F(RecordCommandTest, RecordListShowsWhatTheUsersTableShows) {
    // The sheet's reference filter: only the contacts of the two software
    // companies.
    ProgramResult software = admin("record list softwarecontact");
    ASSERT_EQ(software.status, 0) << software.err;
    EXPECT_NE(software.out.find("demo-contact-1"), std::string::npos) << software.out;
    EXPECT_NE(software.out.find("demo-contact-3"), std::string::npos) << software.out;
    EXPECT_EQ(software.out.find("demo-contact-2"), std::string::npos) << software.out;

    // A reader, in an installation of her own with her key.
    ProgramResult rita = admin("record set user",
                               R"({"firstName": "Rita", "lastName": "Reader", "orgUnit": "Demo",
                                                     "company": "Readers", "role": "author",
                                                     "groups": "demo-group-all"})");
    ASSERT_EQ(rita.status, 0) << rita.err;
    std::string id = rita.out.substr(0, rita.out.find('\n'));
    ProgramResult made = admin("key make " + quoteShell(id) + " --password-stdin", "rita-pw\n");
    ASSERT_EQ(made.status, 0) << made.err;
    std::string other = vt_test::makeTempDir("vt-admin-reader");
    ProgramResult copied = vt_test::runProgram(
            "cp -a " + quoteShell(dir) + "/. " + quoteShell(other) + " && rm " + quoteShell(other) +
            "/userkey/*.vuk && mv " + quoteShell(other) + "/Rita_Reader__Demo__Readers.vuk " +
            quoteShell(other) + "/userkey/");
    ASSERT_EQ(copied.status, 0) << copied.err;
    auto asRita = [&](const std::string& args) {
        return vt_test::runProgram("cd " + quoteShell(other) + " && VANTOR_PASSWORD=rita-pw " +
                                   quoteShell(VANTOR_ADMIN_PATH) + " " + args);
    };
    ProgramResult contacts = asRita("record list contact");
    EXPECT_EQ(contacts.status, 0) << contacts.err;
    EXPECT_NE(contacts.out.find("demo-contact-2"), std::string::npos) << contacts.out;
    for (const char* sheet : {"softwarecontact", "project"}) {
        ProgramResult refused = asRita(std::string("record list ") + sheet);
        EXPECT_EQ(refused.status, 1) << sheet;
        EXPECT_EQ(refused.out, "") << sheet;
        EXPECT_NE(refused.err.find("Rita Reader/Demo/Readers may not read the sheet '" +
                                   std::string(sheet) + "'"),
                  std::string::npos)
                << refused.err;
    }
    vt_test::removeTree(other);
}

}  // namespace
