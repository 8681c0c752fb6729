// vantor-admin config check, key and sheet on real installations: the demo
// configuration passes and names only actions the runtime table knows, bad
// clauses are reported with their sheet and line, keys are shown and made,
// and sheets are listed and dumped through the workspace.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "foundation/Foundation.h"
#include "sheets/LXListParser.h"
#include "tests/support/RunProgram.h"

#ifndef VANTOR_ADMIN_PATH
#error "the build passes the path of vantor-admin as VANTOR_ADMIN_PATH"
#endif

namespace {

using vt_test::quoteShell;

vt_test::ProgramResult admin(const std::string& dir, const std::string& arguments,
                             const std::string& input = "") {
    return vt_test::runProgram(
            "cd " + quoteShell(dir) + " && " + quoteShell(VANTOR_ADMIN_PATH) + " " + arguments,
            input);
}

// Action classes that come with later parts of the client; until they are
// in the runtime table the demo may name them, and config check takes them
// as the client's own.
const char* const kPendingActionClasses[] = {"VTActionCSVExport", "VTActionCreatePDF",
                                             "VTActionOpenReportDesigner", "VTActionTestForm",
                                             "VTActionUserKeyGenerator"};

TEST(ConfigCommand, TheDemoConfigurationPassesAndNamesKnownActions) {
    vt_test::ProgramResult r = admin(VANTOR_DEMO_DIR, "config check conf/cro.vtr");
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("conf/cro.vtr: 14 sheets, 0 errors,"), std::string::npos) << r.out;

    // Every action of the demo: its class, if present, answers <selector>::;
    // a class not present must be one still to come.
    NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
    std::string text = vt_test::readFile(std::string(VANTOR_DEMO_DIR) + "/conf/cro.vtr");
    NSArray* rows =
            LXListParser::listParserWithString_(NSString::stringWithUTF8String_(text.c_str()))
                    ->parse();
    ASSERT_NE(rows, nullptr);
    std::set<std::string> classes;
    for (uint32_t i = 0; i < rows->count(); i++) {
        auto* sheet = static_cast<NSArray*>(rows->objectAtIndex_(i));
        for (uint32_t k = 0; k < sheet->count(); k++) {
            NSObject* element = sheet->objectAtIndex_(k);
            if (!element->isKindOfClass_(NSArray::classObject())) continue;
            auto* clause = static_cast<NSArray*>(element);
            if (clause->count() < 4 || !clause->objectAtIndex_(0)->isEqual_("action"_ns)) continue;
            std::string cls = static_cast<NSString*>(clause->objectAtIndex_(2))->UTF8String();
            std::string sel =
                    std::string(static_cast<NSString*>(clause->objectAtIndex_(3))->UTF8String()) +
                    "::";
            classes.insert(cls);
            Class found = NSClassFromCString(cls.c_str());
            if (found) {
                EXPECT_TRUE(found->instancesRespondToSelector_(NSSelectorFromCString(sel.c_str())))
                        << cls << " " << sel;
            } else {
                EXPECT_NE(std::find(std::begin(kPendingActionClasses),
                                    std::end(kPendingActionClasses), cls),
                          std::end(kPendingActionClasses))
                        << cls;
            }
        }
    }
    // All six action classes of the system are shown by the demo.
    EXPECT_EQ(classes.size(), 6u);
    pool->release();
}

TEST(ConfigCommand, TheDemoConfigurationPassesStrictly) {
    vt_test::ProgramResult r = admin(VANTOR_DEMO_DIR, "config check conf/cro.vtr --strict");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(r.out, "conf/cro.vtr: 14 sheets, 0 errors, 0 warnings\n");
}

// A list that doesn't parse is placed: the parenthesis left open (found by
// the indentation of what follows it), a character before the first list,
// and text after the list, which the client never reads.
TEST(ConfigCommand, PlacesUnbalancedListsByLineAndColumn) {
    std::string dir = vt_test::makeTempDir("vantor-config");
    struct Case {
        const char* text;
        const char* said;
        int status;
    };
    const Case cases[] = {
            {"(\n ((name role)\n  (field name as string))\n ((name note)\n  (field title as "
             "string\n  (field body as text))\n)\n",
             "c.vtr:5:3: this '(' is never closed\n", 1},
            {"((name role) (field a as string)", "c.vtr:1:1: this '(' is never closed\n", 1},
            {"  x ((name role))",
             "c.vtr:1:3: '(' expected: the list must start with an opening parenthesis\n", 1},
            {"", "c.vtr:1:1: the text holds no list\n", 1},
            {"(((name role) (field name as string))) ((name lost))\n",
             "c.vtr:1:40: warning: text after the top-level list is not read\n", 1},
    };
    for (const Case& c : cases) {
        vt_test::writeFile(dir + "/c.vtr", c.text);
        vt_test::ProgramResult r = admin(dir, "config check c.vtr");
        EXPECT_EQ(r.status, c.status) << c.text;
        EXPECT_EQ(r.out.find(c.said), 0u) << c.text << "\n" << r.out;
    }
    // An atom may hold '(' without opening a list.
    vt_test::writeFile(dir + "/c.vtr", "(((name a(b) (field x as string)))\n");
    EXPECT_EQ(admin(dir, "config check c.vtr").out.find("never closed"), std::string::npos);
    vt_test::writeFile(dir + "/c.vtr", "((name role)");
    vt_test::ProgramResult json = admin(dir, "config check --json c.vtr");
    EXPECT_EQ(
            json.out,
            R"({"file":"c.vtr","line":1,"column":1,"severity":"error","message":"this '(' is never closed"})"
            "\n"
            R"({"file":"c.vtr","sheets":0,"errors":1,"warnings":0,"ok":false})"
            "\n");
    vt_test::removeTree(dir);
}

TEST(ConfigCommand, ReportsEachFaultWithSheetClauseAndLine) {
    std::string dir = vt_test::makeTempDir("vantor-config");
    vt_test::writeFile(dir + "/bad.vtr",
                       "(\n"
                       " ((name role) (field name as string))\n"
                       " ((name note)\n"
                       "  (field title as strin)\n"
                       "  (colour red)\n"
                       "  (filter title open)\n"
                       "  (# a comment)\n"
                       "  (validate title unique)\n"
                       "  (field owner as reference nobody (name)))\n"
                       " ((field orphan as string))\n"
                       ")\n");
    vt_test::ProgramResult r = admin(dir, "config check bad.vtr");
    EXPECT_EQ(r.status, 1);
    for (const char* line :
         {"bad.vtr:4: sheet note: clause (field title as strin): unknown type word 'strin': the "
          "field is left out\n",
          "bad.vtr:5: sheet note: clause (colour red): unknown keyword 'colour': the clause is "
          "skipped\n",
          "bad.vtr:6: sheet note: clause (filter title open): (filter <field> ((<word>...) ...))\n",
          "bad.vtr:8: warning: sheet note: clause (validate title unique): only the rule notempty "
          "has an effect\n",
          "bad.vtr:9: sheet note: a reference names the sheet 'nobody', which is not defined\n",
          "bad.vtr:10: sheet (unnamed): clause (field orphan as string): a field before the name "
          "clause\n",
          "bad.vtr:10: sheet (unnamed): no name clause: the sheet is rejected\n",
          "bad.vtr:0: sheet (unnamed): the required sheet 'user' is missing\n",
          "bad.vtr: 3 sheets, "}) {
        EXPECT_NE(r.out.find(line), std::string::npos) << line << "\nin:\n" << r.out;
    }
    EXPECT_EQ(r.out.find("a comment"), std::string::npos);
    // Nothing was made next to the file.
    vt_test::ProgramResult ls = vt_test::runProgram("ls " + quoteShell(dir));
    EXPECT_EQ(ls.out, "bad.vtr\n");

    vt_test::writeFile(dir + "/broken.vtr", "((name role)");
    EXPECT_EQ(admin(dir, "config check broken.vtr").status, 1);
    EXPECT_EQ(admin(dir, "config check missing.vtr").status, 1);
    EXPECT_EQ(admin(dir, "config").status, 2);
    vt_test::removeTree(dir);
}

class InstallationTest : public testing::Test {
protected:
    void SetUp() override {
        dir = vt_test::makeTempDir("vantor-installation") + "/demo";
        ASSERT_EQ(vt_test::runProgram(
                          "bash " +
                          quoteShell(std::string(VANTOR_SOURCE_DIR) + "/scripts/new-workdir.sh") +
                          " " + quoteShell(dir))
                          .status,
                  0);
    }
    void TearDown() override { vt_test::removeTree(dir.substr(0, dir.size() - 5)); }
    std::string dir;
};

TEST_F(InstallationTest, KeysAreShownAndMadeForUserRows) {
    vt_test::ProgramResult shown = admin(dir, "key show userkey/admin.vuk");
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.out, "UserID: Ada Lovelace/Demo/Admin\nUniqueID: (none)\nAdmin: false\n");
    EXPECT_EQ(admin(dir, "key show userkey/admin.vuk --show-password").out,
              "UserID: Ada Lovelace/Demo/Admin\nUniqueID: (none)\nAdmin: false\nPassword: "
              "vantor-demo\n");
    EXPECT_EQ(admin(dir, "key show conf/cro.vtr").status, 1);

    // A user row, stored as the client would, then a key for it.
    ASSERT_EQ(
            admin(dir, "container store data/user",
                  R"({"__recordId": "u-7", "firstName": "Grace", "lastName": "Hopper", "orgUnit": "Navy", "company": "Acme"})")
                    .status,
            0);
    vt_test::ProgramResult made = admin(dir, "key make u-7", "  s3cret \n");
    EXPECT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(made.out, "Grace_Hopper__Navy__Acme.vuk\n");
    EXPECT_EQ(admin(dir, "key show Grace_Hopper__Navy__Acme.vuk --show-password").out,
              "UserID: Grace Hopper/Navy/Acme\nUniqueID: u-7\nAdmin: false\nPassword: s3cret\n");
    // By user id too; an empty password and an unknown user are refused.
    EXPECT_EQ(admin(dir, "key make 'Grace Hopper/Navy/Acme' --password-stdin", "x\n").status, 0);
    vt_test::ProgramResult empty = admin(dir, "key make u-7", "   \n");
    EXPECT_EQ(empty.status, 1);
    EXPECT_NE(empty.err.find("The passwords must be non-empty and equal."), std::string::npos);
    EXPECT_EQ(admin(dir, "key make nobody", "x\n").status, 1);
}

TEST_F(InstallationTest, SheetsAreListedAndDumpedThroughTheWorkspace) {
    vt_test::ProgramResult list = admin(dir, "sheet list");
    EXPECT_EQ(list.status, 0) << list.err;
    EXPECT_NE(list.out.find("role \"Roles\" 4 records\n"), std::string::npos) << list.out;
    EXPECT_NE(
            list.out.find("softwarecontact \"Software contacts\" 3 records, records of contact\n"),
            std::string::npos)
            << list.out;
    // References show display texts; the reference filter of the source
    // sheet keeps only software companies' contacts.
    vt_test::ProgramResult dump = admin(dir, "sheet dump softwarecontact");
    EXPECT_EQ(dump.status, 0);
    // The prepared records carry the stamps of Ada's Save.
#define ADA_STAMPS                                                                              \
    "\"__creator\":\"Ada Lovelace/Demo/Admin\",\"__created\":{\"$date\":\"2024-01-02 09:00:00 " \
    "+0100\"}"
    EXPECT_EQ(dump.out,
              "{\"__recordId\":\"demo-contact-1\",\"lastName\":\"Novak\",\"firstName\":\"Jana\","
              "\"company\":"
              "\"Northwind Software Prague\",\"phone\":\"+420 221 000 111\"," ADA_STAMPS
              "}\n"
              "{\"__recordId\":\"demo-contact-3\",\"lastName\":\"Svoboda\",\"firstName\":\"Petr\","
              "\"company\":"
              "\"Blue Byte Labs Brno\",\"phone\":\"+420 541 000 333\"," ADA_STAMPS "}\n");
    EXPECT_EQ(admin(dir, "sheet dump group").out,
              "{\"__recordId\":\"demo-group-admins\",\"name\":\"Admins\",\"roles\":\"administrator;"
              " staff\"," ADA_STAMPS
              "}\n"
              "{\"__recordId\":\"demo-group-all\",\"name\":\"All\",\"roles\":\"reader\"," ADA_STAMPS
              "}\n"
              "{\"__recordId\":\"demo-group-designers\",\"name\":\"Designers\",\"roles\":"
              "\"designer; staff\"," ADA_STAMPS "}\n");
#undef ADA_STAMPS
    EXPECT_EQ(admin(dir, "sheet dump nosuchsheet").status, 1);
    // The configuration was not compiled by looking at it.
    EXPECT_EQ(vt_test::runProgram("test -e " + quoteShell(dir + "/conf/conf.vtr")).status, 1);
}

}  // namespace
