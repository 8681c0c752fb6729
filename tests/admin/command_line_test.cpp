// vantor-admin's command lines as operators and scripts use them: --version,
// each command's --help, errors that name the wrong word, "--opt N" and
// "--opt=N" alike, -C DIR, and --json output on standard output with
// diagnostics on standard error only.
#include <gtest/gtest.h>

#include <regex>
#include <string>

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

ProgramResult admin(const std::string& args, const std::string& input = "") {
    return vt_test::runProgram(quoteShell(VANTOR_ADMIN_PATH) + " " + args, input);
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class CommandLineTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        dir = vt_test::makeTempDir("vt-admin-cli");
        ProgramResult made = vt_test::runProgram(
                "bash " + quoteShell(std::string(VANTOR_SOURCE_DIR) + "/scripts/new-workdir.sh") +
                " " + quoteShell(dir) + " >/dev/null");
        ASSERT_EQ(made.status, 0) << made.err;
    }
    static void TearDownTestSuite() { vt_test::removeTree(dir); }
    // In the demo installation, by -C.
    static ProgramResult inDemo(const std::string& args, const std::string& input = "") {
        return admin("-C " + quoteShell(dir) + " " + args, input);
    }
    static std::string dir;
};
std::string CommandLineTest::dir;

TEST(CommandLine, VersionOfBothPrograms) {
    const std::regex version("vantor-(admin|relay) [0-9]+\\.[0-9]+\\.[0-9]+\n");
    for (const std::string program : {VANTOR_ADMIN_PATH, VANTOR_RELAY_PATH}) {
        ProgramResult r = vt_test::runProgram(quoteShell(program) + " --version");
        EXPECT_EQ(r.status, 0) << program;
        EXPECT_TRUE(std::regex_match(r.out, version)) << r.out;
        EXPECT_EQ(r.err, "");
    }
}

// Every command answers --help (or -h, anywhere among its arguments) with
// its own usage on standard output and status 0, and runs nothing: a
// --help where a file name would stand is not taken for one.
TEST(CommandLine, EveryCommandHasItsHelp) {
    for (const std::string command : {"init", "parse-list", "archive", "container", "config", "key",
                                      "sheet", "record", "sync", "deltas", "relay"}) {
        for (const std::string& args :
             {command + " --help", command + " -h", command + " show --help"}) {
            ProgramResult r = admin(args);
            EXPECT_EQ(r.status, 0) << args;
            EXPECT_EQ(r.out.rfind("usage: vantor-admin " + command + " ", 0), 0u)
                    << args << ": " << r.out;
            EXPECT_EQ(r.err, "") << args;
        }
    }
    ProgramResult overview = admin("--help");
    EXPECT_EQ(overview.status, 0);
    EXPECT_TRUE(contains(overview.out, "-C DIR")) << overview.out;
    EXPECT_TRUE(contains(overview.out, "relay status DIR")) << overview.out;
}

// A wrong use exits 2 and quotes the word that is wrong, then shows the
// command's usage, all on standard error.
TEST(CommandLine, ErrorsNameTheWrongWord) {
    struct Case {
        const char* args;
        const char* said;
    };
    const Case cases[] = {
            {"key mak x", "vantor-admin: key: unknown verb (show, make, anchor): 'mak'"},
            {"sync --prot 1", "vantor-admin: sync: unknown option: '--prot'"},
            {"sync --port=70000", "for --port: '70000'"},
            {"sync --cycles", "missing value for: '--cycles'"},
            {"sync --timeout=soon", "for --timeout: 'soon'"},
            {"deltas --refused=yes", "this option takes no value: '--refused=yes'"},
            {"record frob company",
             "unknown verb (set, remove, select, action, list, history, restore): 'frob'"},
            {"record remove company", "missing SHEET or RECORDID after: 'remove'"},
            {"record list company extra", "unexpected argument: 'extra'"},
            {"container remove data/x seven", "not a record id: 'seven'"},
            {"config check a.vtr b.vtr", "one FILE only, not also: 'b.vtr'"},
            {"parse-list", "missing FILE"},
            {"archive encode --key=", "the key must not be empty"},
            {"relay stat /tmp", "unknown verb (status): 'stat'"},
            {"init", "missing DIR"},
    };
    for (const Case& c : cases) {
        ProgramResult r = admin(c.args);
        EXPECT_EQ(r.status, 2) << c.args;
        EXPECT_TRUE(contains(r.err, c.said)) << c.args << ": " << r.err;
        EXPECT_TRUE(contains(r.err, "usage: vantor-admin ")) << c.args;
        EXPECT_EQ(r.out, "") << c.args;
    }
    ProgramResult unknown = admin("frobnicate");
    EXPECT_EQ(unknown.status, 2);
    EXPECT_TRUE(contains(unknown.err, "unknown command 'frobnicate'")) << unknown.err;
    ProgramResult nowhere = admin("-C /nonexistent/vantor sheet list");
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_TRUE(contains(nowhere.err, "can't enter /nonexistent/vantor")) << nowhere.err;
}

// -C runs in the installation as a cd would; "--id N" and "--id=N" are one.
TEST_F(CommandLineTest, DirectoryOptionAndBothOptionSpellings) {
    ProgramResult here = vt_test::runProgram("cd " + quoteShell(dir) + " && " +
                                             quoteShell(VANTOR_ADMIN_PATH) + " sheet list");
    ProgramResult there = inDemo("sheet list");
    EXPECT_EQ(there.status, 0) << there.err;
    EXPECT_EQ(there.out, here.out);
    EXPECT_TRUE(contains(there.out, "company \"Companies\" 3 records")) << there.out;

    std::string stem = quoteShell(dir + "/scratch");
    ASSERT_EQ(admin("container store " + stem, R"({"name": "a"})").out, "1\n");
    EXPECT_EQ(admin("container store " + stem + " --id=1", R"({"name": "b"})").out, "1\n");
    EXPECT_EQ(admin("container store " + stem + " --id 1", R"({"name": "c"})").out, "1\n");
    EXPECT_TRUE(contains(admin("container dump " + stem).out, R"("name":"c")"));
}

// --json: one object per line on standard output, nothing else there.
TEST_F(CommandLineTest, JsonOutput) {
    ProgramResult key = inDemo("key show userkey/admin.vuk --json");
    EXPECT_EQ(key.status, 0) << key.err;
    EXPECT_EQ(key.out, R"({"UserID":"Ada Lovelace/Demo/Admin","UniqueID":null,"Admin":false})"
                       "\n");

    ProgramResult sheets = inDemo("sheet list --json");
    EXPECT_EQ(sheets.status, 0) << sheets.err;
    EXPECT_TRUE(contains(sheets.out,
                         R"({"name":"company","title":"Companies","records":3,"recordsOf":null})"))
            << sheets.out;
    for (size_t start = 0, end; (end = sheets.out.find('\n', start)) != std::string::npos;
         start = end + 1) {
        EXPECT_EQ(sheets.out[start], '{');
        EXPECT_EQ(sheets.out[end - 1], '}');
    }

    ProgramResult check = inDemo("container check data/init/company --json");
    EXPECT_EQ(check.status, 0) << check.err;
    EXPECT_TRUE(std::regex_match(check.out,
                                 std::regex(R"(\{"stem":"data/init/company","ok":true,"objects":3,)"
                                            R"("bytesInBlocks":[0-9]+,"dataFileBytes":[0-9]+,)"
                                            R"("highestId":3,"problems":\[\]\}\n)")))
            << check.out;

    ProgramResult config = inDemo("config check --json --strict");
    EXPECT_EQ(config.status, 0) << config.out;
    EXPECT_EQ(config.out, R"({"file":"conf/cro.vtr","sheets":14,"errors":0,"warnings":0,"ok":true})"
                          "\n");

    ProgramResult set = vt_test::runProgram(
            "cd " + quoteShell(dir) + " && VANTOR_PASSWORD=vantor-demo " +
                    quoteShell(VANTOR_ADMIN_PATH) + " record set company --json",
            R"([{"name": "A", "industry": "trade"}, {"name": "B", "industry": "trade"}])");
    EXPECT_EQ(set.status, 0) << set.err;
    EXPECT_TRUE(std::regex_match(set.out, std::regex(R"((\{"recordId":"[^"]+"\}\n){2})")))
            << set.out;
    // Standard error holds the log, and no progress line off a terminal.
    EXPECT_FALSE(contains(set.err, "saved")) << set.err;
}

}  // namespace
