// The PDF report read back with poppler: positions to half a point, the
// 12-point line distance, faces and embedded fonts, Czech and Polish
// letters as written, what a layout may leave out, and every failure with
// its exact line and no file.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "foundation/NSDate.h"
#include "foundation/NSValue.h"
#include "reports/VTActionCreatePDF.h"
#include "tests/reports/report_fixture.h"
#include "tests/support/TestSupport.h"

namespace {

using vt_test::readFile;
using vt_test::runProgram;
using vt_test::writeFile;

struct Word {
    double xMin, yMin, xMax, yMax;  // poppler's: y counted down from the top
    std::string text;
};

// pdftotext -bbox: every word of the report with its box.
std::vector<Word> wordsOfReport() {
    std::string html = runProgram("pdftotext -bbox tmp/report.pdf -").out;
    static const std::regex word(
            "<word xMin=\"(-?[0-9.]+)\" yMin=\"(-?[0-9.]+)\" xMax=\"(-?[0-9.]+)\" "
            "yMax=\"(-?[0-9.]+)\">([^<]*)</word>");
    std::vector<Word> words;
    for (std::sregex_iterator i(html.begin(), html.end(), word), end; i != end; ++i)
        words.push_back({std::stod((*i)[1]), std::stod((*i)[2]), std::stod((*i)[3]),
                         std::stod((*i)[4]), (*i)[5]});
    return words;
}

const Word* find(const std::vector<Word>& words, const std::string& text) {
    for (const Word& w : words)
        if (w.text == text) return &w;
    return nullptr;
}

// A4 as libharu makes it by default, and the layout's scale on it.
const double kScale = 595.0 / 800.0;

class PdfTest : public ReportsTest {
protected:
    void SetUp() override {
        ReportsTest::SetUp();
        installFonts();
        std::filesystem::create_directory("tmp");
        std::filesystem::create_directory("layout");
        ASSERT_NE(define("((name company) (field name as string) (field city as string))"),
                  nullptr);
        person = define(
                "((name person) (field name as string) (formfield notes as multiline)"
                " (field company as reference company (name city)) (field born as datepicker)"
                " (field empty as string))");
        ASSERT_NE(person, nullptr);
        VTSheet* company = static_cast<VTSheet*>(workspace->sheets()->objectForKey_("company"_ns));
        uint32_t firm = add(company, {{"name", "Łódź"}, {"city", "Żółw"}});
        row = add(person, {{"name", "Nováková"},
                           {"notes", "první\r\ndruhá\r\ntřetí"},
                           {"company", idOf(company, firm)->UTF8String()}});
        set(person, row, "born", NSDate::dateWithString_("1984-02-29 00:00:00 +0100"_ns));
        other = add(person, {{"name", "Ostatní"}});
    }
    // Writes the layout of the person sheet and the report of a row.
    bool report(const std::string& layout, uint32_t which) {
        writeFile("layout/layout-person.xml", layout);
        NSObject* action = VTActionCreatePDF::alloc()->init();
        bool written = static_cast<VTActionCreatePDF*>(action)->writeReportForRow_matrix_(
                NSNumber::numberWithInt_(static_cast<int32_t>(which)), person->matrix());
        action->release();
        return written;
    }
    static bool reportExists() { return std::filesystem::exists("tmp/report.pdf"); }

    VTSheet* person = nullptr;
    uint32_t row = 0;
    uint32_t other = 0;
};

TEST_F(PdfTest, ElementsStandOnTheirBaseLinesAndFieldLinesAre12PointsApart) {
    ASSERT_TRUE(report(
            "<tool name=\"person\">\n"
            "<label posx=\"100\" posy=\"0\" fontfamily=\"Arial\" fontsize=\"10\">Jméno</label>\n"
            "<label posx=\"400\" posy=\"0\" fontfamily=\"Arial\" fontsize=\"30\">Příjmení</label>\n"
            "<field posx=\"100\" posy=\"200\" fontfamily=\"Times New Roman\" "
            "fontsize=\"30\">notes</field>\n"
            "<field posx=\"500\" posy=\"200\" fontfamily=\"Times New Roman\" "
            "fontsize=\"10\">name</field>\n"
            "</tool>\n",
            row));
    std::string info = runProgram("pdfinfo tmp/report.pdf").out;
    EXPECT_NE(info.find("Page size:       595 x 841 pts (A4)"), std::string::npos) << info;

    std::vector<Word> words = wordsOfReport();
    const Word* small = find(words, "Jméno");
    const Word* large = find(words, "Příjmení");
    ASSERT_TRUE(small && large) << runProgram("pdftotext -bbox tmp/report.pdf -").out;
    EXPECT_NEAR(small->xMin, 100 * kScale, 0.5);
    EXPECT_NEAR(large->xMin, 400 * kScale, 0.5);
    // One face at two sizes on one base line: the boxes' lower edges are
    // the base line less descent times size, so the two give the line.
    double base = (small->yMax * 30 - large->yMax * 10) / (30 - 10);
    EXPECT_NEAR(base, 10.0, 0.5);

    // Three lines, each 12 points under the one before at 30 points.
    const Word* first = find(words, "první");
    const Word* second = find(words, "druhá");
    const Word* third = find(words, "třetí");
    ASSERT_TRUE(first && second && third);
    EXPECT_NEAR(first->xMin, 100 * kScale, 0.5);
    EXPECT_NEAR(second->yMax - first->yMax, 12, 0.5);
    EXPECT_NEAR(third->yMax - second->yMax, 12, 0.5);
    // The fields at posy 200 stand 200 * s under the labels' line.
    const Word* name = find(words, "Nováková");
    ASSERT_TRUE(name);
    EXPECT_NEAR((name->yMax * 30 - first->yMax * 10) / (30 - 10), 10 + 200 * kScale, 0.5);
    // The line feed after each carriage return goes with it: no glyph
    // pushes the next lines to the right.
    EXPECT_NEAR(second->xMin, first->xMin, 0.5);
    EXPECT_NEAR(third->xMin, first->xMin, 0.5);
    // Only the selected record reaches the page.
    EXPECT_FALSE(find(words, "Ostatní"));
}

TEST_F(PdfTest, FacesAreEmbeddedAndEveryLetterComesBackAsWritten) {
    ASSERT_TRUE(report(
            "<tool>\n"
            "<label posx=\"20\" posy=\"20\" fontfamily=\"Tahoma\" fontsize=\"12\">Łódź Nováková "
            "řeka ŘÍČNÍ ůÚ</label>\n"
            "<field posx=\"220\" posy=\"20\" fontfamily=\"Arial\" fontsize=\"12\">name</field>\n"
            "<field posx=\"220\" posy=\"60\" fontfamily=\"Times New Roman\" "
            "fontsize=\"12\">company</field>\n"
            "<field posx=\"220\" posy=\"100\" fontfamily=\"Verdana\" fontsize=\"12\">born</field>\n"
            "<field posx=\"220\" posy=\"140\" fontfamily=\"Verdana\" "
            "fontsize=\"12\">__recordId</field>\n"
            "</tool>\n",
            row));
    std::string text = runProgram("pdftotext tmp/report.pdf -").out;
    EXPECT_NE(text.find("Łódź Nováková řeka ŘÍČNÍ ůÚ"), std::string::npos) << text;
    EXPECT_NE(text.find("Nováková"), std::string::npos) << text;
    // The reference as its display text, the date without its midnight, the
    // reserved key read straight from the row.
    EXPECT_NE(text.find("Łódź Żółw"), std::string::npos) << text;
    EXPECT_NE(text.find("29.2.1984"), std::string::npos) << text;
    EXPECT_EQ(text.find("00:00"), std::string::npos) << text;
    EXPECT_NE(text.find(idOf(person, row)->UTF8String()), std::string::npos) << text;

    // A label in the regular face, fields in bold, each font embedded.
    std::string fonts = runProgram("pdffonts tmp/report.pdf").out;
    for (const char* face : {"DejaVuSansCondensed", "LiberationSans-Bold", "LiberationSerif-Bold",
                             "DejaVuSans-Bold"}) {
        std::regex line(std::string("\\n[A-Z]{6}\\+") + face +
                        ",[A-Za-z]+ +CID TrueType +Identity-H +yes ");
        EXPECT_TRUE(std::regex_search(fonts, line)) << face << "\n" << fonts;
    }
    EXPECT_EQ(fonts.find(" no  "), std::string::npos) << fonts;
}

TEST_F(PdfTest, ALayoutOnlyBegunPrintsAsItsPlainTableAndIncompleteElementsAreDecided) {
    // Begun layouts have no fontfamily and no fontsize: Arial at 10 points,
    // regular for labels, bold for fields. An unknown family keeps the
    // font in force; an element without a position is skipped with a line;
    // an element without text prints nothing.
    std::string log = logOf([&] {
        ASSERT_TRUE(
                report("<tool name=\"person\">\n"
                       "<field posx=\"220\" posy=\"20\" width=\"200\" height=\"20\">name</field>\n"
                       "<label posx=\"20\" posy=\"20\" width=\"200\" height=\"20\">Name</label>\n"
                       "<label posx=\"20\" posy=\"60\" fontfamily=\"Comic\">Zweite</label>\n"
                       "<label posy=\"100\">Ohne</label>\n"
                       "<label posx=\"x\" posy=\"100\">Falsch</label>\n"
                       "<label posx=\"20\" posy=\"140\"></label>\n"
                       "<field posx=\"20\" posy=\"180\" fontsize=\"0\"/>\n"
                       "<field posx=\"20\" posy=\"220\">empty</field>\n"
                       "<!-- a comment --><other posx=\"1\" posy=\"1\">Jiné</other>\n"
                       "</tool>\n",
                       row));
    });
    EXPECT_EQ(log,
              "layout: label without posx or posy skipped\n"
              "layout: label without posx or posy skipped\n");
    std::vector<Word> words = wordsOfReport();
    const Word* value = find(words, "Nováková");
    const Word* label = find(words, "Name");
    const Word* second = find(words, "Zweite");
    ASSERT_TRUE(value && label && second);
    EXPECT_NEAR(value->xMin, 220 * kScale, 0.5);
    EXPECT_NEAR(label->xMin, 20 * kScale, 0.5);
    EXPECT_NEAR(label->yMax, value->yMax, 0.5);
    EXPECT_NEAR(second->yMax - label->yMax, 40 * kScale, 0.5);
    EXPECT_FALSE(find(words, "Ohne"));
    EXPECT_FALSE(find(words, "Falsch"));
    EXPECT_FALSE(find(words, "Jiné"));
    std::string fonts = runProgram("pdffonts tmp/report.pdf").out;
    EXPECT_NE(fonts.find("+LiberationSans "), std::string::npos) << fonts;
    EXPECT_NE(fonts.find("+LiberationSans-Bold,"), std::string::npos) << fonts;
    EXPECT_EQ(fonts.find("DejaVu"), std::string::npos) << fonts;
}

TEST_F(PdfTest, ASecondReportReplacesTheFirst) {
    const std::string layout =
            "<tool><field posx=\"20\" posy=\"20\" fontfamily=\"Arial\" fontsize=\"12\">name</field>"
            "</tool>";
    ASSERT_TRUE(report(layout, row));
    ASSERT_TRUE(report(layout, other));
    std::string text = runProgram("pdftotext tmp/report.pdf -").out;
    EXPECT_NE(text.find("Ostatní"), std::string::npos) << text;
    EXPECT_EQ(text.find("Nováková"), std::string::npos) << text;
}

TEST_F(PdfTest, EachFailureSaysItsLineAndLeavesNoFile) {
    const std::string layout =
            "<tool><label posx=\"20\" posy=\"20\" fontfamily=\"Arial\" fontsize=\"12\">x</label>"
            "</tool>";
    NSObject* action = VTActionCreatePDF::alloc()->init();
    auto write = [&] {
        return static_cast<VTActionCreatePDF*>(action)->writeReportForRow_matrix_(
                NSNumber::numberWithInt_(static_cast<int32_t>(row)), person->matrix());
    };
    // No layout: the alert (the localized table belongs to the client; here
    // the keys stand in brackets).
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(write()); }), "alert: [error]: [cannotfindlayoutpdf]\n");
    EXPECT_FALSE(reportExists());

    writeFile("layout/layout-person.xml", "<tool><label>unclosed</tool>");
    testing::internal::CaptureStderr();  // libxml2's own report of the error
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(write()); }), "cannot parse XML\n");
    testing::internal::GetCapturedStderr();
    EXPECT_FALSE(reportExists());

    // A missing font file and a missing folder tmp end in the library's
    // error handler: the file could not be opened (errno 2).
    writeFile("layout/layout-person.xml", layout);
    std::filesystem::remove("fonts/timesbold.ttf");
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(write()); }), "ERROR: error_no=1017, detail_no=2\n");
    EXPECT_FALSE(reportExists());
    std::filesystem::remove_all("fonts");
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(write()); }), "ERROR: error_no=1017, detail_no=2\n");
    installFonts();
    std::filesystem::remove_all("tmp");
    EXPECT_EQ(logOf([&] { EXPECT_FALSE(write()); }), "ERROR: error_no=1017, detail_no=2\n");
    EXPECT_FALSE(std::filesystem::exists("tmp"));

    // After a failure the next report runs as usual.
    std::filesystem::create_directory("tmp");
    EXPECT_EQ(logOf([&] { EXPECT_TRUE(write()); }), "");
    EXPECT_TRUE(reportExists());
    action->release();
}

#if !defined(_WIN32)
// perform:: opens the report with the system's opener, here a stand-in on
// PATH that notes its argument; without an opener the alert follows.
TEST_F(PdfTest, PerformOpensTheReportOrSaysThereIsNoViewer) {
    writeFile("layout/layout-person.xml",
              "<tool><label posx=\"20\" posy=\"20\" fontfamily=\"Arial\">x</label></tool>");
    std::filesystem::create_directory("bin");
    std::string cwd = std::filesystem::current_path().string();
    writeFile("bin/xdg-open", "#!/bin/sh\necho \"$1\" > " + cwd + "/opened.tmp && /bin/mv " + cwd +
                                      "/opened.tmp " + cwd + "/opened\n");
    std::filesystem::permissions("bin/xdg-open", std::filesystem::perms::owner_all);
    const char* oldPath = std::getenv("PATH");
    std::string saved = oldPath ? oldPath : "";
    vt_test::setEnvironment("PATH", (cwd + "/bin").c_str());

    NSObject* action = VTActionCreatePDF::alloc()->init();
    auto perform = [&] {
        static_cast<VTActionCreatePDF*>(action)->perform__(
                NSNumber::numberWithInt_(static_cast<int32_t>(row)), person->matrix());
    };
    EXPECT_EQ(logOf(perform), "");
    EXPECT_TRUE(vt_test::waitUntil([] { return std::filesystem::exists("opened"); }));
    EXPECT_EQ(readFile("opened"), "tmp/report.pdf\n");

    vt_test::setEnvironment("PATH", (cwd + "/nothing").c_str());
    EXPECT_EQ(logOf(perform), "alert: [error]: [cannotlaunchpdf]\n");
    vt_test::setEnvironment("PATH", saved.c_str());
    action->release();
}
#endif

}  // namespace
