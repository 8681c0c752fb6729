// record set|remove|select|action|list|history|restore: the records of one sheet, changed
// as the user of the installation in the working directory changes them in
// the client (see Session.h for the login), so that each change is stamped,
// stored and queued for the other users as the form's buttons do it.
//
//   set SHEET                  a JSON object on standard input. With a
//                              __recordId it updates that record, without
//                              one it makes a new record; prints the id.
//                              An array of objects is a burst of Saves,
//                              one after the other.
//                              Keys are field names of the sheet; values
//                              are strings, or {"$date": "..."} for dates.
//                              Written as Save writes: one transaction,
//                              the given fields, the sheet's willStoreRow:
//                              hook, commit, the record marked as seen.
//   remove SHEET RECORDID      as the remove button (without its question)
//   select SHEET RECORDID      what selecting the row does to the record:
//                              the sheet's didSelectRow: hook (a message's
//                              addressee turns "delivered" into "read"),
//                              and the record counts as seen
//   action SHEET RECORDID CLASS  runs the sheet's action of that class on
//                              the record, as its button does
//                              (e.g. VTActionPushSpaces on a user)
//   list SHEET                 the records the user's table of the sheet
//                              shows (the read right, the sheet's
//                              filters), in row order, one JSON object per
//                              line, with the raw stored values:
//                              __recordId, the sheet's fields in order,
//                              then the other keys in name order
//   history SHEET RECORDID     the values of the record that newer ones
//                              replaced, here or at other installations,
//                              one JSON object per line: field, n (1 is
//                              the newest of that field), value, version,
//                              writer (the unique id of who wrote it)
//   restore SHEET RECORDID FIELD N
//                              writes entry N of the field's history back
//                              as a new change: a Save of that one value,
//                              with the checks and rights of set; prints
//                              the id
//
// set writes and checks by the rules of the Save button (sheets/
// VTSaveRules.h), one implementation for both: a field not given keeps the
// record's value, or for a new record takes what the empty form shows;
// hidden fields are written only when given; the sheet's `notempty` rules
// are checked as Save checks them. Values the form could not hold are
// refused: an
// enum value outside its list, a reference to a record that doesn't exist.
// set and remove need the rights the buttons need: deposit for a new
// record, update (or updateown on one's own record) for a change, remove
// (or removeown) for a removal. Nothing is written when a check fails.
// A change that doesn't reach the disk (a damaged store, a full disk)
// ends the command with status 1 and the reason; set prints no id, and
// nothing goes out to the other users.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Commands.h"
#include "Json.h"
#include "Session.h"
#include "app/VTLocalization.h"
#include "app/VTWorkspace.h"
#include "foundation/Foundation.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSaveRules.h"
#include "sheets/VTSheet.h"
#include "sheets/VTTableDataSource.h"
#include "toolkit/NSTableView.h"

namespace admin {

namespace {

// Why a commit failed, for the command's message: the commit has put the
// matrix back as it was, and nothing went out to the other users.
void reportFailedCommit(const char* command, VTSheet* sheet) {
    if (!checkStore(command, sheet)) return;
    std::fprintf(
            stderr,
            "vantor-admin: %s: nothing saved: the store of the sheet '%s' could not be written\n",
            command, sheet->name()->UTF8String());
}

int32_t rowOf(VTMatrix* m, NSString* recordId) {
    NSMutableDictionary* record = m->objectWithRecordId_(recordId);
    return record ? m->rowForObjectUnlocked_(record) : -1;
}

// What the end of Save and Remove does for the user's view: the sheet's
// table filtered and reloaded, and the other sheets refreshed.
void refreshViews(VTWorkspace* w, VTSheet* sheet) {
    if (NSTableView* table = sheet->sheetTableView()) {
        NSSend<void>(table->dataSource(), NS_SEL("filter"));
        table->reloadData();
    }
    w->refreshSheetsExceptThisOne_(sheet);
}

// Checks one object of standard input: known fields, values the form
// could hold, and Save's validation. Answers its __recordId (nil for a new
// record) through `recordId`.
bool checkValues(VTSheet* sheet, NSObject* object, NSString** recordId) {
    if (!object->isKindOfClass_(NSDictionary::classObject())) {
        std::fprintf(stderr,
                     "vantor-admin: record set: standard input must hold a JSON object or an array "
                     "of them\n");
        return false;
    }
    auto* values = static_cast<NSDictionary*>(object);
    *recordId = nullptr;
    NSArray* keys = values->allKeys();
    for (uint32_t i = 0; i < keys->count(); i++) {
        auto* key = static_cast<NSString*>(keys->objectAtIndex_(i));
        NSObject* value = values->objectForKey_(key);
        if (key->isEqual_("__recordId"_ns) && value->isKindOfClass_(NSString::classObject())) {
            *recordId = static_cast<NSString*>(value);
            continue;
        }
        NSArray* descriptor = VTSaveDescriptorOf(sheet, key);
        if (!descriptor) {
            std::fprintf(stderr, "vantor-admin: record set: '%s' is no field of the sheet '%s'\n",
                         key->UTF8String(), sheet->name()->UTF8String());
            return false;
        }
        std::string unfit = VTSaveUnfitValue(sheet, descriptor, value);
        if (!unfit.empty()) {
            std::fprintf(stderr, "vantor-admin: record set: the field '%s': %s\n",
                         key->UTF8String(), unfit.c_str());
            return false;
        }
    }
    if (!*recordId && keys->count() == 0) {
        std::fprintf(stderr, "vantor-admin: record set: a new record needs at least one field\n");
        return false;
    }
    // An id that names no record is reported when the record is saved.
    NSDictionary* record = *recordId ? sheet->matrix()->objectWithRecordId_(*recordId) : nullptr;
    if (*recordId && !record) return true;
    if (NSString* empty = VTSaveFirstEmptyField(sheet, values, record)) {
        NSString* message =
                VTSaveEmptyFieldMessage(sheet, empty, VTLocalizedString("validation_notempty"_ns));
        std::fprintf(stderr, "vantor-admin: record set: %s: %s\n",
                     VTLocalizedString("validation_error"_ns)->UTF8String(), message->UTF8String());
        return false;
    }
    return true;
}

// One Save of the form with these values.
bool save(Session& s, VTSheet* sheet, NSDictionary* values, NSString* recordId, bool json) {
    VTWorkspace* w = s.workspace();
    VTMatrix* m = sheet->matrix();
    m->beginTransaction();
    int32_t row = -1;
    if (recordId) {
        int32_t found = rowOf(m, recordId);
        bool allowed = found >= 0 && sheet->mayUpdate(m->objectWithRecordId_(recordId));
        if (!allowed) {
            m->rollbackTransaction();
            if (found < 0)
                std::fprintf(stderr, "vantor-admin: record set: no record '%s' in the sheet '%s'\n",
                             recordId->UTF8String(), sheet->name()->UTF8String());
            else
                std::fprintf(stderr, "vantor-admin: record set: %s may not change this record\n",
                             w->currentUserId()->UTF8String());
            return false;
        }
        row = found;
    } else {
        if (!w->currentUserCanDeposit_(sheet)) {
            m->rollbackTransaction();
            std::fprintf(stderr,
                         "vantor-admin: record set: %s may not make records in the sheet '%s'\n",
                         w->currentUserId()->UTF8String(), sheet->name()->UTF8String());
            return false;
        }
    }
    row = VTSaveWriteFields(sheet, values, row);
    if (!m->commitTransaction()) {
        reportFailedCommit("record set", sheet);
        return false;
    }
    m->markAsSeen_rowIndex_(true, static_cast<uint32_t>(row));
    refreshViews(w, sheet);
    NSString* id = static_cast<NSString*>(
            m->valueInRow_column_(static_cast<uint32_t>(row), "__recordId"_ns));
    if (json) {
        std::fprintf(s.results(), "%s\n",
                     JsonObject().add("recordId", id->UTF8String()).text().c_str());
    } else {
        std::fprintf(s.results(), "%s\n", id->UTF8String());
    }
    return true;
}

// One object, or an array of objects saved one after the other (a burst of
// Saves, each its own transaction). Every object is checked before the
// first is saved.
int set(Session& s, VTSheet* sheet, bool json) {
    // A damaged store shows no records: an id given would be "unknown" and
    // a new record could not be stored. Said as it is, before anything else.
    if (!checkStore("record set", sheet)) return 1;
    std::string error;
    Ref<NSObject> parsed = adoptRef(newObjectFromJSON(readAll(stdin), &error));
    if (!parsed) {
        std::fprintf(stderr, "vantor-admin: record set: %s\n", error.c_str());
        return 1;
    }
    NSArray* objects = parsed->isKindOfClass_(NSArray::classObject())
                               ? static_cast<NSArray*>(parsed.get())
                               : NSArray::arrayWithObjects_(parsed.get(), nullptr);
    std::vector<NSString*> ids(objects->count());
    for (uint32_t i = 0; i < objects->count(); i++) {
        if (!checkValues(sheet, objects->objectAtIndex_(i), &ids[i])) return 1;
    }
    Progress progress("record set: saved", objects->count());
    for (uint32_t i = 0; i < objects->count(); i++) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        bool saved = save(s, sheet, static_cast<NSDictionary*>(objects->objectAtIndex_(i)), ids[i],
                          json);
        pool->release();
        if (!saved) return 1;
        progress.show(i + 1);
    }
    return 0;
}

int remove(Session& s, VTSheet* sheet, const char* id) {
    if (!checkStore("record remove", sheet)) return 1;
    VTWorkspace* w = s.workspace();
    VTMatrix* m = sheet->matrix();
    m->beginTransaction();
    int32_t row = rowOf(m, NSString::stringWithUTF8String_(id));
    if (row < 0) {
        m->rollbackTransaction();
        std::fprintf(stderr, "vantor-admin: record remove: no record '%s' in the sheet '%s'\n", id,
                     sheet->name()->UTF8String());
        return 1;
    }
    auto* record = static_cast<NSDictionary*>(
            m->allObjectsSorted()->objectAtIndex_(static_cast<uint32_t>(row)));
    if (!w->currentUserCanRemove_(sheet) &&
        !(w->currentUserCanRemoveOwn_(sheet) && sheet->isOwnRecord(record))) {
        m->rollbackTransaction();
        std::fprintf(stderr, "vantor-admin: record remove: %s may not remove this record\n",
                     w->currentUserId()->UTF8String());
        return 1;
    }
    m->removeRow_(static_cast<uint32_t>(row));
    if (!m->commitTransaction()) {
        reportFailedCommit("record remove", sheet);
        return 1;
    }
    refreshViews(w, sheet);
    return 0;
}

int select(VTSheet* sheet, const char* id) {
    VTMatrix* m = sheet->matrix();
    int32_t row = rowOf(m, NSString::stringWithUTF8String_(id));
    if (row < 0) {
        std::fprintf(stderr, "vantor-admin: record select: no record '%s' in the sheet '%s'\n", id,
                     sheet->name()->UTF8String());
        return 1;
    }
    VTSendRowHook(sheet, NS_SEL("didSelectRow:"), row);
    m->markAsSeen_rowIndex_(true, static_cast<uint32_t>(row));
    return 0;
}

int action(VTSheet* sheet, const char* id, const char* className) {
    VTMatrix* m = sheet->matrix();
    int32_t row = rowOf(m, NSString::stringWithUTF8String_(id));
    if (row < 0) {
        std::fprintf(stderr, "vantor-admin: record action: no record '%s' in the sheet '%s'\n", id,
                     sheet->name()->UTF8String());
        return 1;
    }
    NSArray* descriptor = nullptr;
    NSArray* actions = sheet->actions();
    for (uint32_t i = 0; i < actions->count() && !descriptor; i++) {
        auto* candidate = static_cast<NSArray*>(actions->objectAtIndex_(i));
        if (candidate->objectAtIndex_(1)->isEqual_(NSString::stringWithUTF8String_(className)))
            descriptor = candidate;
    }
    Class cls = NSClassFromCString(className);
    if (!descriptor || !cls) {
        std::fprintf(stderr,
                     "vantor-admin: record action: the sheet '%s' has no action of the class %s\n",
                     sheet->name()->UTF8String(), className);
        return 1;
    }
    // As the sheet's button: "<selector>::" with the row, and the matrix or,
    // when the clause has more atoms, the matrix and those atoms.
    auto* base = static_cast<NSString*>(descriptor->objectAtIndex_(2));
    SEL sel = NSSelectorFromCString((std::string(base->UTF8String()) + "::").c_str());
    NSObject* extra = descriptor->objectAtIndex_(3);
    NSObject* second =
            extra->isKindOfClass_(NSArray::classObject())
                    ? static_cast<NSObject*>(NSArray::arrayWithObjects_(m, extra, nullptr))
                    : static_cast<NSObject*>(m);
    NSObject* performer = cls->alloc()->init();
    if (!performer->respondsToSelector_(sel)) {
        std::fprintf(stderr, "vantor-admin: record action: %s has no operation %s\n", className,
                     sel->name());
        performer->release();
        return 1;
    }
    performer->performSelector_withObject_withObject_(sel, NSNumber::numberWithInt_(row), second);
    // The client leaves an action alive for windows it may open; this tool
    // has none, and the action has done its work when perform:: returns.
    performer->release();
    return 0;
}

// What the user's table of the sheet shows: nothing without the read
// right, else the records that pass the sheet's filters (its value, date
// and reference filters, the current-user filter and readOwn), in row
// order.
int list(Session& s, VTSheet* sheet) {
    VTWorkspace* w = s.workspace();
    if (!checkStore("record list", sheet)) return 1;
    if (!w->currentUserCanRead_(sheet)) {
        std::fprintf(stderr, "vantor-admin: record list: %s may not read the sheet '%s'\n",
                     w->currentUserId()->UTF8String(), sheet->name()->UTF8String());
        return 1;
    }
    NSTableView* table = sheet->sheetTableView();
    auto* source = static_cast<VTTableDataSource*>(table ? table->dataSource() : nullptr);
    if (!source) {
        std::fprintf(stderr, "vantor-admin: record list: the sheet '%s' has no table\n",
                     sheet->name()->UTF8String());
        return 1;
    }
    source->filter();
    NSArray* shown = source->allObjectsFiltered();
    NSArray* fields = sheet->fields();
    for (uint32_t r = 0, n = shown->count(); r < n; r++) {
        auto* record = static_cast<NSDictionary*>(shown->objectAtIndex_(r));
        std::vector<NSObject*> order;
        auto add = [&](NSObject* key) {
            if (record->objectForKey_(key) &&
                std::find(order.begin(), order.end(), key) == order.end())
                order.push_back(key);
        };
        NSObject* idKey = "__recordId"_ns;
        add(idKey);
        for (uint32_t f = 0; f < fields->count(); f++)
            add(static_cast<NSArray*>(fields->objectAtIndex_(f))->objectAtIndex_(0));
        NSArray* rest = record->allKeys()->sortedArrayUsingSelector_(NS_SEL("compare:"));
        for (uint32_t k = 0; k < rest->count(); k++) {
            NSObject* key = rest->objectAtIndex_(k);
            bool known = false;
            for (NSObject* o : order) known = known || o->isEqual_(key);
            if (!known) order.push_back(key);
        }
        std::string json;
        appendJSON(&json, record, [&](NSDictionary* d) { return d == record ? &order : nullptr; });
        std::fprintf(s.results(), "%s\n", json.c_str());
    }
    return 0;
}

// The record's history as the sheet gives it, for a user who may read the
// sheet.
int history(Session& s, VTSheet* sheet, const char* id) {
    VTWorkspace* w = s.workspace();
    if (!checkStore("record history", sheet)) return 1;
    if (!w->currentUserCanRead_(sheet)) {
        std::fprintf(stderr, "vantor-admin: record history: %s may not read the sheet '%s'\n",
                     w->currentUserId()->UTF8String(), sheet->name()->UTF8String());
        return 1;
    }
    NSString* recordId = NSString::stringWithUTF8String_(id);
    if (!sheet->matrix()->objectWithRecordId_(recordId)) {
        std::fprintf(stderr, "vantor-admin: record history: no record '%s' in the sheet '%s'\n", id,
                     sheet->name()->UTF8String());
        return 1;
    }
    NSArray* entries = sheet->historyOfRecordWithId_(recordId);
    std::vector<NSObject*> order;
    for (const char* key : {"field", "n", "value", "version", "writer"})
        order.push_back(NSString::stringWithUTF8String_(key));
    for (uint32_t i = 0, n = entries->count(); i < n; i++) {
        auto* entry = static_cast<NSDictionary*>(entries->objectAtIndex_(i));
        std::string json;
        appendJSON(&json, entry, [&](NSDictionary* d) { return d == entry ? &order : nullptr; });
        std::fprintf(s.results(), "%s\n", json.c_str());
    }
    return 0;
}

// An old value written back through Save: it gets a new version, so it
// wins everywhere, and the value it replaces joins the history.
int restore(Session& s, VTSheet* sheet, const char* id, const char* field, const char* entry) {
    if (!checkStore("record restore", sheet)) return 1;
    char* end = nullptr;
    long n = std::strtol(entry, &end, 10);
    if (!end || *end || n < 1) {
        std::fprintf(stderr,
                     "vantor-admin: record restore: N must be a number from 1, as record history "
                     "shows it\n");
        return 2;
    }
    NSString* recordId = NSString::stringWithUTF8String_(id);
    NSString* name = NSString::stringWithUTF8String_(field);
    NSObject* value = sheet->valueOfField_ofRecordWithId_fromHistoryEntry_(
            name, recordId, static_cast<uint32_t>(n));
    if (!value) {
        std::fprintf(stderr,
                     "vantor-admin: record restore: the record '%s' of the sheet '%s' has no entry "
                     "%ld of '%s' in its history\n",
                     id, sheet->name()->UTF8String(), n, field);
        return 1;
    }
    NSMutableDictionary* values = NSDictionary::dictionaryWithObjectsAndKeys_(
            recordId, "__recordId"_ns, value, name, nullptr);
    NSString* checkedId = nullptr;
    if (!checkValues(sheet, values, &checkedId)) return 1;
    return save(s, sheet, values, checkedId, false) ? 0 : 1;
}

}  // namespace

int runRecord(int argc, char** argv) {
    Arguments args;
    if (!parseArguments("record", argc, argv, {{"--json", false}}, &args)) return 2;
    const std::vector<std::string>& w = args.words;
    if (w.empty())
        return wrongUsage("record",
                          "missing verb (set, remove, select, action, list, history, restore)", "");
    const std::string& verb = w[0];
    size_t wanted = verb == "set" || verb == "list"                             ? 2
                    : verb == "remove" || verb == "select" || verb == "history" ? 3
                    : verb == "action"                                          ? 4
                    : verb == "restore"                                         ? 5
                                                                                : 0;
    if (wanted == 0)
        return wrongUsage("record",
                          "unknown verb (set, remove, select, action, list, history, restore)",
                          verb);
    const char* needs = wanted == 2   ? "missing SHEET after"
                        : wanted == 3 ? "missing SHEET or RECORDID after"
                        : wanted == 4 ? "missing SHEET, RECORDID or CLASS after"
                                      : "missing SHEET, RECORDID, FIELD or N after";
    if (w.size() < wanted) return wrongUsage("record", needs, verb);
    if (w.size() > wanted) return wrongUsage("record", "unexpected argument", w[wanted]);
    if (args.has("--json") && verb != "set")
        return wrongUsage("record", "--json belongs to record set, not", verb);
    std::vector<const char*> word;
    for (const std::string& each : w) word.push_back(each.c_str());
    std::string command = "record " + verb;
    int status = 1;
    {
        Session session;
        if (session.open(command.c_str())) {
            if (VTSheet* sheet = session.sheetNamed(word[1])) {
                if (verb == "set") status = set(session, sheet, args.has("--json"));
                if (verb == "remove") status = remove(session, sheet, word[2]);
                if (verb == "select") status = select(sheet, word[2]);
                if (verb == "action") status = action(sheet, word[2], word[3]);
                if (verb == "list") status = list(session, sheet);
                if (verb == "history") status = history(session, sheet, word[2]);
                if (verb == "restore") status = restore(session, sheet, word[2], word[3], word[4]);
            }
        }
    }
    return status;
}

}  // namespace admin
