// sheet list | sheet dump NAME: the sheets of the installation in the
// working directory, built by the client's own workspace code from
// conf/cro.vtr (or conf/conf.vtr), and one sheet's records.
//
//   list        one line per sheet in configuration order:
//               NAME "TITLE" N records[, records of SOURCE]
//   dump NAME   one JSON object per record that the sheet's table shows,
//               in its initial order (sorted by the first field, through
//               the sheet's filters; the current user is the one of the
//               key that the client would find in userkey/, none without
//               one): __recordId, the sheet's fields in field order, then
//               the stamps that the record has. References show the
//               display texts of the records they name, as the table does.
//
// Nothing of the user's is written: the configuration is not compiled and
// no first-user row is made. The installation is opened as the client's
// start opens it: first-run seeding from data/init (without it, the empty
// user container made here would stop the client's own seeding later),
// then containers that don't exist yet are created empty.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Commands.h"
#include "Json.h"
#include "app/VTClient.h"
#include "app/VTLocalization.h"
#include "app/VTUserKey.h"
#include "app/VTWorkspace.h"
#include "foundation/NSString.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "sheets/VTTableDataSource.h"
#include "toolkit/NSTableView.h"

namespace admin {

// The installation's workspace, owned by the caller; nil with a message.
VTWorkspace* newInstallationWorkspace(const char* command) {
    LogToStderr redirect;
    VTInstallLocalizedStrings(VTLocalization::localization()->localizedStrings());
    if (!checkDataFolder(command)) return nullptr;
    VTSeedDataDirectory();
    NSArray* rows = VTWorkspace::configurationRowsFromFile_("conf/cro.vtr"_ns);
    if (!rows) {
        std::fprintf(stderr,
                     "vantor-admin: %s: no configuration here (conf/cro.vtr or conf/conf.vtr); run "
                     "it in an "
                     "installation directory\n",
                     command);
        return nullptr;
    }
    NSMutableDictionary* key = VTUserKey::discoverInDirectory_("userkey"_ns);
    return VTWorkspace::alloc()->initWithRows_userInfo_(
            rows, key ? key : NSMutableDictionary::dictionary());
}

namespace {

// A sheet whose store is damaged gets no line (its count would be a
// false 0) but a message, and the command ends with status 1.
int list(VTWorkspace* w, bool json) {
    NSArray* sheets = w->listOfSheets();
    int status = 0;
    for (uint32_t i = 0; i < sheets->count(); i++) {
        auto* sheet = static_cast<VTSheet*>(sheets->objectAtIndex_(i));
        if (!checkStore("sheet list", sheet)) {
            status = 1;
            continue;
        }
        if (json) {
            JsonObject shown;
            shown.add("name", sheet->name()->UTF8String())
                    .add("title", sheet->title()->UTF8String());
            shown.add("records", sheet->matrix()->numberOfRows());
            shown.add("recordsOf",
                      sheet->isPrimary() ? nullptr : sheet->primarySourceName()->UTF8String());
            std::printf("%s\n", shown.text().c_str());
            continue;
        }
        std::string line = std::string(sheet->name()->UTF8String()) + " \"" +
                           sheet->title()->UTF8String() + "\" " +
                           std::to_string(sheet->matrix()->numberOfRows()) + " records";
        if (!sheet->isPrimary())
            line += std::string(", records of ") + sheet->primarySourceName()->UTF8String();
        std::printf("%s\n", line.c_str());
    }
    return status;
}

int dump(VTWorkspace* w, const char* name) {
    VTSheet* sheet = w->sheetNamed_(NSString::stringWithUTF8String_(name));
    if (!sheet) {
        std::fprintf(stderr, "vantor-admin: sheet dump: no sheet named '%s'\n", name);
        return 1;
    }
    if (!checkStore("sheet dump", sheet)) return 1;
    auto* source = static_cast<VTTableDataSource*>(sheet->sheetTableView()->dataSource());
    NSArray* fields = sheet->fields();
    source->filter();
    NSArray* records = source->allObjectsFiltered();
    for (uint32_t r = 0; r < records->count(); r++) {
        auto* record = static_cast<NSDictionary*>(records->objectAtIndex_(r));
        NSMutableDictionary* shown = NSMutableDictionary::dictionary();
        std::vector<NSObject*> order;
        auto put = [&](NSString* key, NSObject* value) {
            if (!value) return;
            shown->setObject_forKey_(value, key);
            order.push_back(key);
        };
        put("__recordId"_ns, record->objectForKey_("__recordId"_ns));
        for (uint32_t f = 0; f < fields->count(); f++) {
            auto* key = static_cast<NSString*>(
                    static_cast<NSArray*>(fields->objectAtIndex_(f))->objectAtIndex_(0));
            NSObject* value = record->objectForKey_(key);
            put(key, value ? source->resolveValue_forField_(value, key) : nullptr);
        }
        for (const char* stamp : {"__creator", "__created", "__modifier", "__modified"}) {
            NSString* key = NSString::stringWithUTF8String_(stamp);
            put(key, record->objectForKey_(key));
        }
        std::string json;
        appendJSON(&json, shown, [&](NSDictionary* d) { return d == shown ? &order : nullptr; });
        std::printf("%s\n", json.c_str());
    }
    return 0;
}

}  // namespace

int runSheet(int argc, char** argv) {
    Arguments args;
    if (!parseArguments("sheet", argc, argv, {{"--json", false}}, &args)) return 2;
    const std::vector<std::string>& words = args.words;
    if (words.empty()) return wrongUsage("sheet", "missing verb (list, dump)", "");
    bool listing = words[0] == "list";
    if (!listing && words[0] != "dump")
        return wrongUsage("sheet", "unknown verb (list, dump)", words[0]);
    if (!listing && words.size() < 2) return wrongUsage("sheet", "missing NAME after", words[0]);
    if (words.size() > (listing ? 1u : 2u))
        return wrongUsage("sheet", "unexpected argument", words[listing ? 1 : 2]);
    if (!listing && args.has("--json"))
        return wrongUsage("sheet", "dump prints JSON already; no", "--json");
    VTWorkspace* w = newInstallationWorkspace(listing ? "sheet list" : "sheet dump");
    if (!w) return 1;
    int status = listing ? list(w, args.has("--json")) : dump(w, words[1].c_str());
    std::fflush(stdout);
    {
        LogToStderr redirect;
        w->release();
    }
    return status;
}

}  // namespace admin
