// Reports: the CSV export of 100,000 records against writing the same bytes
// with plain buffered writes (goal: within 2x), and the PDF report of a
// 50-element layout, time per report.
//
// The records are made in memory (no container is written), with a text, a
// multiline text, a reference and a date per record; the PDF report uses
// the Debian fonts that scripts/new-workdir.sh installs.
//
//   reports_bench --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "foundation/Foundation.h"
#include "foundation/NSDate.h"
#include "foundation/NSSet.h"
#include "reports/VTCSVFormat.h"
#include "sheets/LXListParser.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"

// The workspace operations a sheet sends, and no more.
class ReportsBenchWorkspace : public NSObject {
    NS_DECLARE_CLASS(ReportsBenchWorkspace, NSObject)

public:
    ReportsBenchWorkspace* init() override {
        NSObject::init();
        _sheets.adopt(static_cast<NSMutableDictionary*>(
                NSMutableDictionary::alloc()->initWithCapacity_(16)));
        _seen.adopt(NSMutableSet::alloc()->init());
        return this;
    }
    NSMutableDictionary* sheets() { return _sheets; }
    NSString* currentUserId() { return "Ada Lovelace/Demo/Admin"_ns; }
    NSMutableSet* setForSeenForKey_(NSString*) { return _seen; }

protected:
    ~ReportsBenchWorkspace() override = default;

private:
    Ref<NSMutableDictionary> _sheets;
    Ref<NSMutableSet> _seen;
};

NS_CLASS_BEGIN(ReportsBenchWorkspace, NSObject)
    NS_METHOD(sheets)
    NS_METHOD(currentUserId)
    NS_METHOD(setForSeenForKey_)
NS_CLASS_END(ReportsBenchWorkspace)

namespace {

constexpr uint32_t kRecords = 100000;
constexpr uint32_t kUsers = 200;

struct Installation {
    std::string dir;
    ReportsBenchWorkspace* workspace = nullptr;
    VTSheet* project = nullptr;
};

VTSheet* define(ReportsBenchWorkspace* w, const char* text) {
    NSArray* list =
            LXListParser::listParserWithString_(NSString::stringWithUTF8String_(text))->parse();
    auto* sheet = static_cast<VTSheet*>(VTSheet::alloc()->initWithArray_workspace_(list, w));
    w->sheets()->setObject_forKey_(sheet, sheet->name());
    sheet->release();
    return sheet;
}

void set(VTMatrix* m, uint32_t row, const char* key, NSObject* value) {
    m->setValue_inRow_column_(value, row, NSString::stringWithUTF8String_(key));
}

// Built once per run, in a temporary working directory removed at exit.
Installation& installation() {
    static Installation made = [] {
        Installation in;
        std::string pattern =
                (std::filesystem::temp_directory_path() / "reports-bench-XXXXXX").string();
        in.dir = mkdtemp(&pattern[0]);
        std::atexit([] { std::filesystem::remove_all(installation().dir); });
        std::filesystem::current_path(in.dir);
        for (const char* folder : {"data", "export", "tmp", "layout", "fonts"})
            std::filesystem::create_directory(folder);
        NSAutoreleasePoolScope pool;
        in.workspace = static_cast<ReportsBenchWorkspace*>(ReportsBenchWorkspace::alloc()->init());
        VTSheet* user =
                define(in.workspace,
                       "((name user) (field firstName as string) (field lastName as string))");
        VTMatrix* users = user->matrix();
        std::vector<NSString*> ids;
        for (uint32_t i = 0; i < kUsers; i++) {
            set(users, i, "firstName", NSString::stringWithFormat_("Jana%u", i));
            set(users, i, "lastName", NSString::stringWithFormat_("Nováková%u", i));
            ids.push_back(static_cast<NSString*>(users->valueInRow_column_(i, "__recordId"_ns)));
        }
        in.project = define(in.workspace,
                            "((name project) (field title as string) (formfield notes as multiline)"
                            " (field lead as reference user (firstName lastName))"
                            " (field start as datepicker))");
        VTMatrix* m = in.project->matrix();
        NSDate* date = NSDate::dateWithString_("2026-11-23 09:05:07 +0100"_ns);
        for (uint32_t r = 0; r < kRecords; r++) {
            NSAutoreleasePoolScope round;
            set(m, r, "title", NSString::stringWithFormat_("Projekt číslo %u", r));
            set(m, r, "notes", "Převod účetní knihy.\r\nDruhá řádka poznámky."_ns);
            set(m, r, "lead", ids[r % kUsers]);
            set(m, r, "start", date);
            set(m, r, "__created", date);
            set(m, r, "__creator", "Ada Lovelace/Demo/Admin"_ns);
        }
        return in;
    }();
    return made;
}

void CsvExport(benchmark::State& state) {
    Installation& in = installation();
    VTCSVFormat format(in.project->matrix());
    for (auto _ : state) format.writeFile("export/project.csv");
    state.SetBytesProcessed(state.iterations() *
                            static_cast<int64_t>(std::filesystem::file_size("export/project.csv")));
}

// The peer: the bytes of the export, line by line through stdio's buffer.
void PlainBufferedWrite(benchmark::State& state) {
    Installation& in = installation();
    VTCSVFormat(in.project->matrix()).writeFile("export/project.csv");
    std::vector<std::string> lines;
    std::FILE* read = std::fopen("export/project.csv", "rb");
    std::string line;
    for (int c; (c = std::fgetc(read)) != EOF;) {
        line.push_back(static_cast<char>(c));
        if (c == '\n') lines.push_back(std::move(line)), line.clear();
    }
    std::fclose(read);
    int64_t bytes = 0;
    for (auto _ : state) {
        std::FILE* file = std::fopen("export/plain.csv", "wb");
        for (const std::string& l : lines) std::fwrite(l.data(), 1, l.size(), file);
        std::fclose(file);
        bytes += static_cast<int64_t>(std::filesystem::file_size("export/plain.csv"));
    }
    state.SetBytesProcessed(bytes);
}

void PdfReport50Elements(benchmark::State& state) {
    Installation& in = installation();
    const char* const fonts[][2] = {
            {"arial.ttf", "liberation/LiberationSans-Regular.ttf"},
            {"arialbold.ttf", "liberation/LiberationSans-Bold.ttf"},
            {"times.ttf", "liberation/LiberationSerif-Regular.ttf"},
            {"timesbold.ttf", "liberation/LiberationSerif-Bold.ttf"},
            {"tahoma.ttf", "dejavu/DejaVuSansCondensed.ttf"},
            {"tahomabold.ttf", "dejavu/DejaVuSansCondensed-Bold.ttf"},
            {"verdana.ttf", "dejavu/DejaVuSans.ttf"},
            {"verdanabold.ttf", "dejavu/DejaVuSans-Bold.ttf"},
    };
    for (const auto& font : fonts)
        std::filesystem::copy_file(std::string("/usr/share/fonts/truetype/") + font[1],
                                   std::string("fonts/") + font[0],
                                   std::filesystem::copy_options::overwrite_existing);
    // 25 rows of a label and a field, over the four families and the fields.
    static const char* const kFamilies[] = {"Arial", "Times New Roman", "Tahoma", "Verdana"};
    static const char* const kKeys[] = {"title", "notes", "lead", "start"};
    std::string layout = "<tool name=\"project\">\n";
    for (int i = 0; i < 25; i++) {
        std::string position = "posy=\"" + std::to_string(40 + 40 * i) + "\" fontfamily=\"" +
                               kFamilies[i % 4] + "\" fontsize=\"10\"";
        layout += "<label posx=\"40\" " + position + ">Popis řádku " + std::to_string(i) +
                  "</label>\n";
        layout += "<field posx=\"300\" " + position + ">" + kKeys[i % 4] + "</field>\n";
    }
    layout += "</tool>\n";
    std::FILE* file = std::fopen("layout/layout-project.xml", "wb");
    std::fwrite(layout.data(), 1, layout.size(), file);
    std::fclose(file);

    Class action = NSClassFromCString("VTActionCreatePDF");
    NSObject* report = action->alloc()->init();
    SEL write = NS_SEL("writeReportForRow:matrix:");
    NSObject* matrix = in.project->matrix();
    for (auto _ : state) {
        NSAutoreleasePoolScope pool;
        if (!NSSend<bool>(report, write, static_cast<NSObject*>(NSNumber::numberWithInt_(7)),
                          matrix))
            state.SkipWithError("no report written");
    }
    report->release();
}

BENCHMARK(CsvExport)->Unit(benchmark::kMillisecond);
BENCHMARK(PlainBufferedWrite)->Unit(benchmark::kMillisecond);
BENCHMARK(PdfReport50Elements)->Unit(benchmark::kMillisecond);

}  // namespace
