// record set|remove|select|action|list: the records of one sheet, changed
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
//   list SHEET                 every record of the sheet's matrix in row
//                              order, one JSON object per line, with the
//                              raw stored values: __recordId, the sheet's
//                              fields in order, then the other keys in
//                              name order
//
// set and remove need the rights the buttons need: deposit for a new
// record, update (or updateown on one's own record) for a change, remove
// (or removeown) for a removal. Nothing is written when a check fails.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Commands.h"
#include "Json.h"
#include "Session.h"
#include "app/VTWorkspace.h"
#include "foundation/Foundation.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "sheets/VTTableDataSource.h"
#include "toolkit/NSTableView.h"

namespace admin {

namespace {

bool isFieldOf(VTSheet* sheet, NSString* key) {
    NSArray* fields = sheet->fields();
    for (uint32_t i = 0; i < fields->count(); i++) {
        if (static_cast<NSArray*>(fields->objectAtIndex_(i))->objectAtIndex_(0)->isEqual_(key)) return true;
    }
    return false;
}

// Whether the current user created the record (the "own" of updateown and
// removeown).
bool isOwn(VTWorkspace* w, NSDictionary* record) {
    NSObject* creator = record->objectForKey_("__creator"_ns);
    return creator && creator->isEqual_(w->currentUserId());
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

// Sends a hook of the sheet with the row as a retained number, which the
// hook releases.
void sendRowHook(VTSheet* sheet, const char* selector, uint32_t row) {
    SEL sel = NSSelectorFromCString(selector);
    if (!sheet->respondsToSelector_(sel)) return;
    NSNumber* number = NSNumber::numberWithInt_(static_cast<int32_t>(row));
    number->retain();
    sheet->performSelector_withObject_(sel, number);
}

// Checks one object of standard input: known fields, string or date
// values. Answers its __recordId (nil for a new record) through `recordId`.
bool checkValues(VTSheet* sheet, NSObject* object, NSString** recordId) {
    if (!object->isKindOfClass_(NSDictionary::classObject())) {
        std::fprintf(stderr, "vantor-admin: record set: standard input must hold a JSON object or an array of them\n");
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
        if (!isFieldOf(sheet, key)) {
            std::fprintf(stderr, "vantor-admin: record set: '%s' is no field of the sheet '%s'\n", key->UTF8String(),
                         sheet->name()->UTF8String());
            return false;
        }
        if (!value->isKindOfClass_(NSString::classObject()) && !value->isKindOfClass_(NSDate::classObject())) {
            std::fprintf(stderr, "vantor-admin: record set: the value of '%s' must be a string or a date\n",
                         key->UTF8String());
            return false;
        }
    }
    if (!*recordId && keys->count() == 0) {
        std::fprintf(stderr, "vantor-admin: record set: a new record needs at least one field\n");
        return false;
    }
    return true;
}

// One Save of the form with these values.
bool save(Session& s, VTSheet* sheet, NSDictionary* values, NSString* recordId) {
    VTWorkspace* w = s.workspace();
    VTMatrix* m = sheet->matrix();
    m->beginTransaction();
    uint32_t row;
    if (recordId) {
        int32_t found = rowOf(m, recordId);
        bool allowed = found >= 0 && (w->currentUserCanUpdate_(sheet) ||
                                      (w->currentUserCanUpdateOwn_(sheet) &&
                                       isOwn(w, m->objectWithRecordId_(recordId))));
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
        row = static_cast<uint32_t>(found);
    } else {
        if (!w->currentUserCanDeposit_(sheet)) {
            m->rollbackTransaction();
            std::fprintf(stderr, "vantor-admin: record set: %s may not make records in the sheet '%s'\n",
                         w->currentUserId()->UTF8String(), sheet->name()->UTF8String());
            return false;
        }
        row = m->numberOfRows();
    }
    // Field order, as Save writes the form's controls.
    NSArray* fields = sheet->fields();
    for (uint32_t i = 0; i < fields->count(); i++) {
        auto* field = static_cast<NSString*>(static_cast<NSArray*>(fields->objectAtIndex_(i))->objectAtIndex_(0));
        if (NSObject* value = values->objectForKey_(field)) m->setValue_inRow_column_(value, row, field);
    }
    sendRowHook(sheet, "willStoreRow:", row);
    m->commitTransaction();
    m->markAsSeen_rowIndex_(true, row);
    refreshViews(w, sheet);
    NSString* id = static_cast<NSString*>(m->valueInRow_column_(row, "__recordId"_ns));
    std::fprintf(s.results(), "%s\n", id->UTF8String());
    return true;
}

// One object, or an array of objects saved one after the other (a burst of
// Saves, each its own transaction). Every object is checked before the
// first is saved.
int set(Session& s, VTSheet* sheet) {
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
    for (uint32_t i = 0; i < objects->count(); i++) {
        NSAutoreleasePool* pool = NSAutoreleasePool::alloc()->init();
        bool saved = save(s, sheet, static_cast<NSDictionary*>(objects->objectAtIndex_(i)), ids[i]);
        pool->release();
        if (!saved) return 1;
    }
    return 0;
}

int remove(Session& s, VTSheet* sheet, const char* id) {
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
    auto* record = static_cast<NSDictionary*>(m->allObjectsSorted()->objectAtIndex_(static_cast<uint32_t>(row)));
    if (!w->currentUserCanRemove_(sheet) && !(w->currentUserCanRemoveOwn_(sheet) && isOwn(w, record))) {
        m->rollbackTransaction();
        std::fprintf(stderr, "vantor-admin: record remove: %s may not remove this record\n",
                     w->currentUserId()->UTF8String());
        return 1;
    }
    m->removeRow_(static_cast<uint32_t>(row));
    m->commitTransaction();
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
    sendRowHook(sheet, "didSelectRow:", static_cast<uint32_t>(row));
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
        if (candidate->objectAtIndex_(1)->isEqual_(NSString::stringWithUTF8String_(className))) descriptor = candidate;
    }
    Class cls = NSClassFromCString(className);
    if (!descriptor || !cls) {
        std::fprintf(stderr, "vantor-admin: record action: the sheet '%s' has no action of the class %s\n",
                     sheet->name()->UTF8String(), className);
        return 1;
    }
    // As the sheet's button: "<selector>::" with the row, and the matrix or,
    // when the clause has more atoms, the matrix and those atoms.
    auto* base = static_cast<NSString*>(descriptor->objectAtIndex_(2));
    SEL sel = NSSelectorFromCString((std::string(base->UTF8String()) + "::").c_str());
    NSObject* extra = descriptor->objectAtIndex_(3);
    NSObject* second = extra->isKindOfClass_(NSArray::classObject())
                               ? static_cast<NSObject*>(NSArray::arrayWithObjects_(m, extra, nullptr))
                               : static_cast<NSObject*>(m);
    NSObject* performer = cls->alloc()->init();
    if (!performer->respondsToSelector_(sel)) {
        std::fprintf(stderr, "vantor-admin: record action: %s has no operation %s\n", className, sel->name());
        performer->release();
        return 1;
    }
    performer->performSelector_withObject_withObject_(sel, NSNumber::numberWithInt_(row), second);
    // The client leaves an action alive for windows it may open; this tool
    // has none, and the action has done its work when perform:: returns.
    performer->release();
    return 0;
}

int list(Session& s, VTSheet* sheet) {
    VTMatrix* m = sheet->matrix();
    NSArray* fields = sheet->fields();
    for (uint32_t r = 0, n = m->numberOfRows(); r < n; r++) {
        auto* record = static_cast<NSDictionary*>(m->allObjectsSorted()->objectAtIndex_(r));
        std::vector<NSObject*> order;
        auto add = [&](NSObject* key) {
            if (record->objectForKey_(key) && std::find(order.begin(), order.end(), key) == order.end())
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

int usage() {
    std::fprintf(stderr,
                 "usage: vantor-admin record set SHEET            (a JSON object on standard input)\n"
                 "       vantor-admin record remove SHEET RECORDID\n"
                 "       vantor-admin record select SHEET RECORDID\n"
                 "       vantor-admin record action SHEET RECORDID CLASS\n"
                 "       vantor-admin record list SHEET\n"
                 "The password of the key in userkey/ comes from VANTOR_PASSWORD or the terminal.\n");
    return 2;
}

}  // namespace

int runRecord(int argc, char** argv) {
    if (argc < 3) return usage();
    std::string verb = argv[1];
    int wanted = verb == "set" || verb == "list" ? 3 : verb == "remove" || verb == "select" ? 4 : verb == "action" ? 5 : 0;
    if (wanted == 0 || argc != wanted) return usage();
    std::string command = "record " + verb;
    int status = 1;
    {
        Session session;
        if (session.open(command.c_str())) {
            if (VTSheet* sheet = session.sheetNamed(argv[2])) {
                if (verb == "set") status = set(session, sheet);
                if (verb == "remove") status = remove(session, sheet, argv[3]);
                if (verb == "select") status = select(sheet, argv[3]);
                if (verb == "action") status = action(sheet, argv[3], argv[4]);
                if (verb == "list") status = list(session, sheet);
            }
        }
    }
    return status;
}

}  // namespace admin
