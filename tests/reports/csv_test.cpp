// The CSV file, byte for byte against expected text for every column rule:
// missing values, texts with quotes and line breaks, dates, references and
// multireferences with their NULL parts, the two stamp columns, hidden
// fields, row order without filters, and the export path's dot rule.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "foundation/NSDate.h"
#include "reports/VTCSVFormat.h"
#include "tests/reports/report_fixture.h"

namespace {

using vt_test::readFile;

class CsvTest : public ReportsTest {
protected:
    void SetUp() override {
        ReportsTest::SetUp();
        user =
                define("((name user) (field firstName as string) (field lastName as string)"
                       " (field nick as string))");
        ASSERT_NE(user, nullptr);
        project =
                define("((name project) (field title as string) (formfield notes as multiline)"
                       " (field lead as reference user (firstName lastName))"
                       " (field team as multireference user (firstName nick))"
                       " (field start as datepicker) (hiddenfield secret as string)"
                       " (filter title ((Alpha))))");
        ASSERT_NE(project, nullptr);
        ada = add(user, {{"firstName", "Ada"}, {"lastName", "Lovelace"}, {"nick", "Countess"}});
        bob = add(user, {{"firstName", "Bořek"}, {"lastName", "Šťastný"}});
    }
    void stamp(uint32_t row) {
        set(project, row, "__created", NSDate::dateWithString_("2026-11-23 09:05:07 +0100"_ns));
        set(project, row, "__creator", "Ada Lovelace/Demo/Admin"_ns);
    }
    std::string exported() {
        std::filesystem::create_directory("export");
        EXPECT_TRUE(VTCSVFormat(project->matrix()).writeFile("export/p.csv"));
        return readFile("export/p.csv");
    }
    VTSheet* user = nullptr;
    VTSheet* project = nullptr;
    uint32_t ada = 0, bob = 0;
};

TEST_F(CsvTest, EveryColumnRuleToTheByte) {
    std::string adaId = idOf(user, ada)->UTF8String();
    std::string bobId = idOf(user, bob)->UTF8String();
    // Everything given: a quote and line breaks stay as they are, the
    // reference is its display fields, a missing display field is NULL.
    uint32_t full = add(project, {{"title", "Say \"hi\", twice"},
                                  {"notes", "line one\r\nline two"},
                                  {"lead", adaId.c_str()},
                                  {"team", (adaId + "  " + bobId).c_str()},
                                  {"secret", "Łódź"}});
    set(project, full, "start", NSDate::dateWithString_("2026-01-02 00:00:00 +0100"_ns));
    stamp(full);
    // Nothing given but an empty title: two quotes, then ??? for each field
    // the record doesn't hold.
    uint32_t bare = add(project, {{"title", ""}});
    stamp(bare);
    // References to a removed record: every display field is NULL.
    uint32_t gone = add(project, {{"title", "Beta"}, {"lead", "no-such-id"}, {"team", "x y"}});
    stamp(gone);

    EXPECT_EQ(exported(),
              "\"Say \"hi\", twice\",\"line one\r\nline two\",\"Ada; Lovelace\","
              "\"Ada; Countess; Bořek; NULL\",\"2026-01-02 00:00:00 +0100\",\"Łódź\","
              "\"2026-11-23 09:05:07 +0100\",\"Ada Lovelace/Demo/Admin\"\n"
              "\"\",???,???,???,???,???,\"2026-11-23 09:05:07 +0100\",\"Ada Lovelace/Demo/Admin\"\n"
              "\"Beta\",???,\"NULL; NULL\",\"NULL; NULL; NULL; NULL\",???,???,"
              "\"2026-11-23 09:05:07 +0100\",\"Ada Lovelace/Demo/Admin\"\n");
}

TEST_F(CsvTest, RowsFollowThePresentOrderAndNoFilter) {
    // The sheet's filter shows only Alpha; the export has every row, in
    // the matrix's order.
    for (const char* title : {"Gamma", "Alpha", "Beta"}) stamp(add(project, {{"title", title}}));
    std::string text = exported();
    EXPECT_LT(text.find("Gamma"), text.find("Alpha")) << text;
    EXPECT_LT(text.find("Alpha"), text.find("Beta")) << text;
}

TEST_F(CsvTest, ASheetWithoutRecordsGivesAnEmptyFileAndAFolderMissingFailsTheOpen) {
    EXPECT_EQ(exported(), "");
    EXPECT_FALSE(VTCSVFormat(project->matrix()).writeFile("export/no-folder/p.csv"));
    EXPECT_FALSE(std::filesystem::exists("export/no-folder"));
}

TEST(CsvPath, ADotAnywhereKeepsTheNameElseCsvIsAppended) {
    NSAutoreleasePoolScope pool;
    auto path = [](const char* name) {
        return std::string(
                VTCSVFormat::exportPath(NSString::stringWithUTF8String_(name))->UTF8String());
    };
    EXPECT_EQ(path("report"), "export/report.csv");
    EXPECT_EQ(path("report.txt"), "export/report.txt");
    EXPECT_EQ(path("my.report"), "export/my.report");
    EXPECT_EQ(path(""), "export/.csv");
    EXPECT_EQ(path("sub/x"), "export/sub/x.csv");
}

}  // namespace
