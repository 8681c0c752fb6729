// report pdf|csv|layout: the reports of one sheet, made as the user of the
// installation in the working directory makes them in the client (see
// Session.h for the login), with the same code as the sheet's buttons.
//
//   pdf SHEET RECORDID     writes tmp/report.pdf for that record as Print
//                          does, by layout/layout-SHEET.xml, and prints its
//                          path; no viewer is opened
//   csv SHEET NAME         writes every record of the sheet to the file the
//                          export dialog writes for the name NAME
//                          (export/NAME, ".csv" appended when NAME has no
//                          dot) and prints its path
//   layout SHEET           begins layout/layout-SHEET.xml as the report
//                          designer link does (an existing file is left as
//                          it is) and prints its path; with --designer it
//                          also starts VantorReportDesigner on it
//
// pdf and csv need the read right on the sheet, as the sheet's table does
// before any row can be selected. The Windows flavour has no PDF report
// (no libharu, libxml2 there); pdf says so.
#include <cstdio>
#include <string>
#include <vector>

#include "Commands.h"
#include "Session.h"
#include "app/VTWorkspace.h"
#include "foundation/Foundation.h"
#include "foundation/platform/Platform.h"
#include "reports/VTActionOpenReportDesigner.h"
#include "reports/VTCSVFormat.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"

namespace admin {

namespace {

bool mayRead(Session& s, VTSheet* sheet) {
    if (!checkStore(s.command(), sheet)) return false;
    if (s.workspace()->currentUserCanRead_(sheet)) return true;
    std::fprintf(stderr, "vantor-admin: %s: %s may not read the sheet '%s'\n", s.command(),
                 s.workspace()->currentUserId()->UTF8String(), sheet->name()->UTF8String());
    return false;
}

int pdf(Session& s, VTSheet* sheet, const char* id) {
    if (!mayRead(s, sheet)) return 1;
    Class action = NSClassFromCString("VTActionCreatePDF");
    if (!action) {
        std::fprintf(stderr,
                     "vantor-admin: report pdf: this build has no PDF report (the Windows "
                     "programs are built without libharu and libxml2)\n");
        return 1;
    }
    VTMatrix* m = sheet->matrix();
    NSMutableDictionary* record = m->objectWithRecordId_(NSString::stringWithUTF8String_(id));
    int32_t row = record ? m->rowForObjectUnlocked_(record) : -1;
    if (row < 0) {
        std::fprintf(stderr, "vantor-admin: report pdf: no record '%s' in the sheet '%s'\n", id,
                     sheet->name()->UTF8String());
        return 1;
    }
    NSString* layout = VTActionOpenReportDesigner::layoutPathForMatrix_(m);
    if (!vtFileExists(layout->UTF8String())) {
        std::fprintf(stderr,
                     "vantor-admin: report pdf: the sheet '%s' has no layout %s (begin one with "
                     "\"vantor-admin report layout %s\")\n",
                     sheet->name()->UTF8String(), layout->UTF8String(),
                     sheet->name()->UTF8String());
        return 1;
    }
    NSObject* performer = action->alloc()->init();
    bool written = NSSend<bool>(performer, NS_SEL("writeReportForRow:matrix:"),
                                static_cast<NSObject*>(NSNumber::numberWithInt_(row)),
                                static_cast<NSObject*>(m));
    performer->release();
    if (!written) {
        std::fprintf(stderr,
                     "vantor-admin: report pdf: no report written (the lines above say why; the "
                     "report needs the fonts in fonts/ and the folder tmp/)\n");
        return 1;
    }
    std::fprintf(s.results(), "tmp/report.pdf\n");
    return 0;
}

int csv(Session& s, VTSheet* sheet, const char* name) {
    if (!mayRead(s, sheet)) return 1;
    NSString* path = VTCSVFormat::exportPath(NSString::stringWithUTF8String_(name));
    LOG("'%s'", path->UTF8String());
    if (!VTCSVFormat(sheet->matrix()).writeFile(path->UTF8String())) {
        std::fprintf(stderr,
                     "vantor-admin: report csv: cannot write '%s' (the folder export/ and any "
                     "folder in the name must exist)\n",
                     path->UTF8String());
        return 1;
    }
    std::fprintf(s.results(), "%s\n", path->UTF8String());
    return 0;
}

int layout(Session& s, VTSheet* sheet, bool designer) {
    if (!checkStore(s.command(), sheet)) return 1;
    VTActionOpenReportDesigner* link =
            static_cast<VTActionOpenReportDesigner*>(VTActionOpenReportDesigner::alloc()->init());
    NSString* path = link->beginLayoutForMatrix_(sheet->matrix());
    if (designer)
        NSTask::launchedTaskWithLaunchPath_arguments_("VantorReportDesigner"_ns,
                                                      NSArray::arrayWithObjects_(path, nullptr));
    link->release();
    if (!vtFileExists(path->UTF8String())) {
        std::fprintf(stderr,
                     "vantor-admin: report layout: cannot write %s (the folder layout/ must "
                     "exist)\n",
                     path->UTF8String());
        return 1;
    }
    std::fprintf(s.results(), "%s\n", path->UTF8String());
    return 0;
}

}  // namespace

int runReport(int argc, char** argv) {
    Arguments args;
    if (!parseArguments("report", argc, argv, {{"--designer", false}}, &args)) return 2;
    const std::vector<std::string>& w = args.words;
    if (w.empty()) return wrongUsage("report", "missing verb (pdf, csv, layout)", "");
    const std::string& verb = w[0];
    size_t wanted = verb == "pdf" || verb == "csv" ? 3 : verb == "layout" ? 2 : 0;
    if (wanted == 0) return wrongUsage("report", "unknown verb (pdf, csv, layout)", verb);
    const char* needs = verb == "pdf"   ? "missing SHEET or RECORDID after"
                        : verb == "csv" ? "missing SHEET or NAME after"
                                        : "missing SHEET after";
    if (w.size() < wanted) return wrongUsage("report", needs, verb);
    if (w.size() > wanted) return wrongUsage("report", "unexpected argument", w[wanted]);
    if (args.has("--designer") && verb != "layout")
        return wrongUsage("report", "--designer belongs to report layout, not", verb);
    std::string command = "report " + verb;
    int status = 1;
    {
        Session session;
        if (session.open(command.c_str())) {
            if (VTSheet* sheet = session.sheetNamed(w[1].c_str())) {
                if (verb == "pdf") status = pdf(session, sheet, w[2].c_str());
                if (verb == "csv") status = csv(session, sheet, w[2].c_str());
                if (verb == "layout") status = layout(session, sheet, args.has("--designer"));
            }
        }
    }
    return status;
}

}  // namespace admin
