// vantor-admin report: a demo record printed by its layout and read back,
// a sheet exported to the byte, a layout begun and then left alone, and
// every bad input refused with its message, its status and no file.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/RunProgram.h"

#ifndef VANTOR_ADMIN_PATH
#error "the build passes the path of vantor-admin as VANTOR_ADMIN_PATH"
#endif

namespace {

using vt_test::ProgramResult;
using vt_test::quoteShell;

class ReportCommandTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        dir = vt_test::makeTempDir("vt-admin-report");
        ProgramResult made = vt_test::runProgram(
                "bash " + quoteShell(std::string(VANTOR_SOURCE_DIR) + "/scripts/new-workdir.sh") +
                " " + quoteShell(dir) + " >/dev/null");
        ASSERT_EQ(made.status, 0) << made.err;
    }
    static void TearDownTestSuite() { vt_test::removeTree(dir); }

    static ProgramResult admin(const std::string& args,
                               const std::string& password = "vantor-demo") {
        return vt_test::runProgram("cd " + quoteShell(dir) +
                                   " && VANTOR_PASSWORD=" + quoteShell(password) + " " +
                                   quoteShell(VANTOR_ADMIN_PATH) + " " + args);
    }
    static bool exists(const std::string& path) {
        return std::filesystem::exists(dir + "/" + path);
    }
    static void expectRefused(const std::string& args, int status, const std::string& message) {
        SCOPED_TRACE(args);
        ProgramResult r = admin(args);
        EXPECT_EQ(r.status, status);
        EXPECT_EQ(r.out, "");
        EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
        EXPECT_FALSE(exists("vantor.lock"));
    }

    static std::string dir;
};

std::string ReportCommandTest::dir;

TEST_F(ReportCommandTest, PdfPrintsTheRecordByTheDemoLayout) {
    ProgramResult r = admin("report pdf contact demo-contact-1");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "tmp/report.pdf\n");
    std::string text =
            vt_test::runProgram("pdftotext -layout " + quoteShell(dir + "/tmp/report.pdf") + " -")
                    .out;
    for (const char* expected :
         {"Vinohradská 12", "Contact", "Last name", "Novak", "Jana", "Northwind Software Prague",
          "jana.novak@northwind.example", "demo-contact-1"})
        EXPECT_NE(text.find(expected), std::string::npos) << expected << "\n" << text;
    EXPECT_EQ(text.find("Berger"), std::string::npos) << text;

    std::filesystem::remove(dir + "/tmp/report.pdf");
    expectRefused("report pdf contact no-such-id", 1,
                  "no record 'no-such-id' in the sheet 'contact'");
    expectRefused("report pdf company demo-company-1", 1,
                  "the sheet 'company' has no layout layout/layout-company.xml");
    expectRefused("report pdf nosheet x", 1, "no sheet named 'nosheet'");
    EXPECT_FALSE(exists("tmp/report.pdf"));

    // The fonts are the installation's: without them the library's error
    // is all there is, and no file.
    std::filesystem::rename(dir + "/fonts", dir + "/fonts.away");
    ProgramResult noFonts = admin("report pdf contact demo-contact-1");
    std::filesystem::rename(dir + "/fonts.away", dir + "/fonts");
    EXPECT_EQ(noFonts.status, 1);
    EXPECT_NE(noFonts.err.find("ERROR: error_no=1017, detail_no=2\n"), std::string::npos)
            << noFonts.err;
    EXPECT_NE(noFonts.err.find("vantor-admin: report pdf: no report written"), std::string::npos);
    EXPECT_FALSE(exists("tmp/report.pdf"));
}

TEST_F(ReportCommandTest, CsvWritesTheExportFileToTheByte) {
    ProgramResult r = admin("report csv company list");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "export/list.csv\n");
    EXPECT_EQ(vt_test::readFile(dir + "/export/list.csv"),
              "\"Blue Byte Labs\",\"Brno\",\"software\",\"2021-09-15 00:00:00 +0100\",???,"
              "\"2024-01-02 09:00:00 +0100\",\"Ada Lovelace/Demo/Admin\"\n"
              "\"Kettle & Co\",\"Vienna\",\"trade\",\"2015-06-01 00:00:00 +0100\",???,"
              "\"2024-01-02 09:00:00 +0100\",\"Ada Lovelace/Demo/Admin\"\n"
              "\"Northwind Software\",\"Prague\",\"software\",\"2019-03-01 00:00:00 +0100\",???,"
              "\"2024-01-02 09:00:00 +0100\",\"Ada Lovelace/Demo/Admin\"\n");
    EXPECT_NE(r.err.find("'export/list.csv'\n"), std::string::npos) << r.err;

    // A dot keeps the name; references are their display texts.
    ProgramResult named = admin("report csv contact people.txt");
    ASSERT_EQ(named.status, 0) << named.err;
    EXPECT_EQ(named.out, "export/people.txt\n");
    EXPECT_NE(vt_test::readFile(dir + "/export/people.txt")
                      .find("\"Novak\",\"Jana\",\"Northwind Software; Prague\","),
              std::string::npos);

    expectRefused("report csv company sub/x", 1, "cannot write 'export/sub/x.csv'");
    EXPECT_FALSE(exists("export/sub"));
}

TEST_F(ReportCommandTest, LayoutBeginsOnceAndBadUsageIsRefused) {
    ProgramResult r = admin("report layout company");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "layout/layout-company.xml\n");
    std::string begun = vt_test::readFile(dir + "/layout/layout-company.xml");
    EXPECT_EQ(begun.rfind("<tool name=\"company\">\n<field posx=\"220\" posy=\"20\" width=\"200\" "
                          "height=\"20\">name</field>\n",
                          0),
              0u)
            << begun;
    // The begun layout prints at once, as a plain table.
    EXPECT_EQ(admin("report pdf company demo-company-3").status, 0);
    ProgramResult again = admin("report layout company");
    EXPECT_EQ(again.status, 0);
    EXPECT_NE(again.err.find("XML file exists\n"), std::string::npos) << again.err;
    EXPECT_EQ(vt_test::readFile(dir + "/layout/layout-company.xml"), begun);

    expectRefused("report", 2, "missing verb (pdf, csv, layout)");
    expectRefused("report print contact", 2, "unknown verb (pdf, csv, layout): 'print'");
    expectRefused("report pdf contact", 2, "missing SHEET or RECORDID after: 'pdf'");
    expectRefused("report csv contact a b", 2, "unexpected argument: 'b'");
    expectRefused("report csv contact x --designer", 2, "--designer belongs to report layout");
    ProgramResult wrong = admin("report layout company", "not-the-password");
    EXPECT_EQ(wrong.status, 1);
    EXPECT_NE(wrong.err.find("wrong password"), std::string::npos) << wrong.err;
}

}  // namespace
