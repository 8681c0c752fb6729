// The interpreter of one sheet definition: VTSheet's initWithArray:workspace:
// and the clause vocabulary.
//
//   definition := '(' clause* ')'
//   clause     := '(' keyword element* ')'        unknown keywords are skipped
//
//   (source <sheet>)                  (name <name> [labelled (<word>...)])
//   (field|formfield|hiddenfield <fieldname> as <type> <args>)
//       fieldname := <key> | (<key> labelled <word>...)
//       type := string | multiline | datepicker | datetimepicker
//             | enum (<value>...) | reference|multireference <sheet> (<field>...)
//   (readOwn) (createdInView) (modifiedInView) (creatorInView) (modifierInView)
//   (type admin)                      (validate <field> <rule>)
//   (default <field> <value>)         (tooltip <field> <word>...)
//   (filterCurrentUser <field>)       (filter <field> ((<word>...) ...))
//   (reffilter <field> <sheet> ((<word>...) ...))
//   (datefilter <field> <from> <to>)  (access <field> <role>)
//   (restrict <action> (<word>...))   (action (<word>...) <class> <selector> <arg>...)
//
// Malformed input. The clause forms fix how many elements a clause has and
// which of them are lists. A clause that breaks its form (too few
// elements, an atom where a list belongs or the other way round, no list
// at all) is rejected whole, with one log line naming the sheet and the
// clause, so that nothing of it is half applied; the other clauses go on.
// A definition that yields no name or no field can't make a sheet (the
// matrix needs the name, the initial sort the first field): it is rejected
// with a log line and the answer is nil. Elements beyond a clause's form
// are not looked at.
#include <string>

#include "foundation/NSNull.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "sheets/VTTableDataSource.h"
#include "toolkit/NSTableView.h"

namespace {

bool isAtom(NSObject* o) { return o && o->isKindOfClass_(NSString::classObject()); }
bool isList(NSObject* o) { return o && o->isKindOfClass_(NSArray::classObject()); }

// A list as it was written, for log lines: "(name role labelled (Roles))".
void render(NSObject* o, std::string* out, int depth) {
    if (isAtom(o)) {
        *out += static_cast<NSString*>(o)->UTF8String();
        return;
    }
    if (!isList(o) || depth > 8) {
        *out += "...";
        return;
    }
    auto* list = static_cast<NSArray*>(o);
    *out += '(';
    for (uint32_t i = 0, n = list->count(); i < n; i++) {
        if (i) *out += ' ';
        render(list->objectAtIndex_(i), out, depth + 1);
    }
    *out += ')';
}

NSString* joinWords(NSArray* words) { return words->componentsJoinedByString_(" "_ns)->trim(); }

}  // namespace

// Reads the elements of one clause by its form. The first breach of the
// form logs the rejection; the caller tests `failed` before applying.
struct VTSheetClauses {
    VTSheet* sheet;
    NSArray* clause = nullptr;
    NSObject* element = nullptr;  // the clause as written, for the log
    bool failed = false;

    const char* sheetName() { return sheet->_name ? sheet->_name->UTF8String() : "(unnamed)"; }

    void fail(const char* why) {
        if (failed) return;
        failed = true;
        std::string text;
        render(element, &text, 0);
        LOG("sheet %s: clause %s rejected: %s", sheetName(), text.c_str(), why);
    }
    NSObject* at(uint32_t i) {
        if (i < clause->count()) return clause->objectAtIndex_(i);
        fail("too few elements");
        return nullptr;
    }
    NSString* atom(uint32_t i) {
        NSObject* o = at(i);
        if (o && !isAtom(o)) fail("a list where a word belongs");
        return failed ? nullptr : static_cast<NSString*>(o);
    }
    // A list of words.
    NSArray* words(NSObject* o) {
        if (failed) return nullptr;
        if (!isList(o)) {
            fail("a word where a list belongs");
            return nullptr;
        }
        auto* list = static_cast<NSArray*>(o);
        for (uint32_t i = 0, n = list->count(); i < n; i++)
            if (!isAtom(list->objectAtIndex_(i))) fail("a list where a word belongs");
        return failed ? nullptr : list;
    }
    NSArray* wordsAt(uint32_t i) {
        NSObject* o = at(i);
        return o ? words(o) : nullptr;
    }
    // A list of word lists: ((in progress) (open)).
    NSArray* wordListsAt(uint32_t i) {
        NSObject* o = at(i);
        if (!o) return nullptr;
        if (!isList(o)) {
            fail("a word where a list belongs");
            return nullptr;
        }
        auto* list = static_cast<NSArray*>(o);
        for (uint32_t k = 0, n = list->count(); k < n; k++) words(list->objectAtIndex_(k));
        return failed ? nullptr : list;
    }
    // Elements from `from` on, all words.
    NSArray* restAt(uint32_t from) {
        uint32_t n = clause->count();
        NSMutableArray* rest = NSMutableArray::arrayWithCapacity_(n > from ? n - from : 1);
        for (uint32_t i = from; i < n; i++) rest->addObject_(clause->objectAtIndex_(i));
        return words(rest);
    }

    // The walk of initWithArray:workspace:; false when the sheet is rejected.
    bool run(NSArray* definition);
    void apply(NSObject* element, Ref<NSString>* sourceName);
    void nameClause(NSString* sourceName);
    void fieldClause(NSString* kind);
};

void VTSheetClauses::nameClause(NSString* sourceName) {
    NSString* name = atom(1);
    NSArray* titleWords = !failed && clause->count() > 3 ? wordsAt(3) : nullptr;
    if (failed) return;
    if (sheet->_name) {
        fail("the sheet has a name already");
        return;
    }
    sheet->_name.set(name);
    NSDictionary* sheets = NSSend<NSDictionary*>(sheet->_workspace, NS_SEL("sheets"));
    if (sourceName) {
        NSObject* sourceSheet = sheets ? sheets->objectForKey_(sourceName) : nullptr;
        sheet->_source.set(NSSend<VTMatrix*>(sourceSheet, NS_SEL("matrix")));
    }
    sheet->_matrix.adopt(
            static_cast<VTMatrix*>(VTMatrix::alloc()->initWithName_sheets_workspace_sheet_source_(
                    name, sheets, sheet->_workspace, sheet, sheet->_source)));
    sheet->_title.set(titleWords ? joinWords(titleWords) : name->capitalizedString());
}

void VTSheetClauses::fieldClause(NSString* kind) {
    NSObject* nameForm = at(1);
    NSString* key = nullptr;
    NSString* label = nullptr;
    if (isAtom(nameForm)) {
        key = static_cast<NSString*>(nameForm);
        label = key->capitalizedString();
    } else if (nameForm) {
        NSArray* parts = words(nameForm);
        if (parts && parts->count() < 2) fail("too few elements in the field's name and label");
        if (failed) return;
        key = static_cast<NSString*>(parts->objectAtIndex_(0));
        label = joinWords(parts->subarrayWithRange_(
                NSMakeRange(2, parts->count() > 2 ? parts->count() - 2 : 0)));
    }
    at(2);  // the filler, "as"
    NSString* type = atom(3);
    if (failed) return;
    NSMutableArray* descriptor = nullptr;
    if (type->isEqual_("string"_ns) || type->isEqual_("multiline"_ns) ||
        type->isEqual_("datepicker"_ns) || type->isEqual_("datetimepicker"_ns)) {
        descriptor = NSArray::arrayWithObjects_(key, type, nullptr);
    } else if (type->isEqual_("enum"_ns)) {
        NSArray* values = wordsAt(4);
        if (!failed) descriptor = NSArray::arrayWithObjects_(key, type, values, nullptr);
    } else if (type->isEqual_("reference"_ns) || type->isEqual_("multireference"_ns)) {
        NSString* target = atom(4);
        NSArray* display = wordsAt(5);
        if (!failed) descriptor = NSArray::arrayWithObjects_(key, type, target, display, nullptr);
    }
    if (failed) return;
    if (!sheet->_matrix) {
        fail("a field before the name clause");
        return;
    }
    sheet->_fieldLabels->setObject_forKey_(label, key);
    if (kind->isEqual_("field"_ns)) sheet->_inView->addObject_(key);
    if (kind->isEqual_("hiddenfield"_ns))
        sheet->_hiddenFields->setObject_forKey_(NSNumber::numberWithBool_(true), key);
    // An unknown type word adds no field: only the label and the column
    // membership stay, as they do for every field clause.
    if (!descriptor) return;
    sheet->_fields->addObject_(descriptor);
    sheet->_matrix->addField_(descriptor);
}

void VTSheetClauses::apply(NSObject* written, Ref<NSString>* sourceName) {
    failed = false;
    element = written;
    clause = isList(written) ? static_cast<NSArray*>(written) : nullptr;
    if (!clause) {
        fail("not a list");
        return;
    }
    if (clause->count() == 0) {
        fail("an empty clause");
        return;
    }
    NSObject* head = clause->objectAtIndex_(0);
    if (!isAtom(head)) {
        fail("a list where the keyword belongs");
        return;
    }
    auto* keyword = static_cast<NSString*>(head);
    const char* k = keyword->UTF8String();
    std::string kw(k);
    if (kw == "source") {
        NSString* name = atom(1);
        if (!failed) sourceName->set(name);
    } else if (kw == "name") {
        nameClause(*sourceName);
    } else if (kw == "field" || kw == "formfield" || kw == "hiddenfield") {
        fieldClause(keyword);
    } else if (kw == "readOwn") {
        sheet->_readOwn = 1;
    } else if (kw == "createdInView") {
        sheet->_createdInView = 1;
    } else if (kw == "modifiedInView") {
        sheet->_modifiedInView = 1;
    } else if (kw == "creatorInView") {
        sheet->_creatorInView = 1;
    } else if (kw == "modifierInView") {
        sheet->_modifierInView = 1;
    } else if (kw == "type") {
        NSString* word = atom(1);
        if (!failed && word->isEqual_("admin"_ns)) sheet->_adminType = 1;
    } else if (kw == "validate" || kw == "default" || kw == "access") {
        NSString* field = atom(1);
        NSString* value = atom(2);
        if (failed) return;
        if (kw == "validate") sheet->_validation->addObject_forKey_(value, field);
        if (kw == "default") sheet->_defaultValues->setObject_forKey_(value, field);
        if (kw == "access") sheet->_access->addObject_forKey_(value, field);
    } else if (kw == "tooltip") {
        NSString* field = atom(1);
        NSArray* text = failed ? nullptr : restAt(2);
        if (!failed) sheet->_toolTips->setObject_forKey_(joinWords(text), field);
    } else if (kw == "filterCurrentUser") {
        NSString* field = atom(1);
        if (!failed) sheet->_filterCurrentUser.set(field);
    } else if (kw == "filter") {
        NSString* field = atom(1);
        NSArray* allowed = wordListsAt(2);
        if (failed) return;
        for (uint32_t i = 0, n = allowed->count(); i < n; i++)
            sheet->_filters->addObject_forKey_(
                    joinWords(static_cast<NSArray*>(allowed->objectAtIndex_(i))), field);
    } else if (kw == "reffilter") {
        NSString* field = atom(1);
        NSString* target = atom(2);
        NSArray* allowed = wordListsAt(3);
        if (failed) return;
        NSMutableArray* key = NSArray::arrayWithObjects_(field, target, nullptr);
        for (uint32_t i = 0, n = allowed->count(); i < n; i++)
            sheet->_referenceFilters->addObject_forKey_(
                    joinWords(static_cast<NSArray*>(allowed->objectAtIndex_(i))), key);
    } else if (kw == "datefilter") {
        NSString* field = atom(1);
        NSString* from = atom(2);
        NSString* to = atom(3);
        if (!failed)
            sheet->_dateFilters->addObject_forKey_(NSArray::arrayWithObjects_(from, to, nullptr),
                                                   field);
    } else if (kw == "restrict") {
        NSString* action = atom(1);
        NSArray* role = wordsAt(2);
        if (!failed) sheet->_accessRights->addObject_forKey_(joinWords(role), action);
    } else if (kw == "action") {
        NSArray* title = wordsAt(1);
        NSString* cls = atom(2);
        NSString* selector = atom(3);
        NSArray* args = failed ? nullptr : restAt(4);
        if (failed) return;
        NSObject* argsOrNull = args->count() ? static_cast<NSObject*>(args) : NSNull::null();
        sheet->_actions->addObject_(NSArray::arrayWithObjects_(NSString::stringWithArray_(title),
                                                               cls, selector, argsOrNull, nullptr));
    }
    // Any other keyword, "#" among them, is passed over without a word.
}

bool VTSheetClauses::run(NSArray* definition) {
    Ref<NSString> sourceName;
    for (uint32_t i = 0, n = definition->count(); i < n; i++)
        apply(definition->objectAtIndex_(i), &sourceName);
    if (!sheet->_name) {
        LOG("sheet (unnamed): no name clause; sheet rejected");
        return false;
    }
    if (sheet->_fields->count() == 0) {
        LOG("sheet %s: no field clause; sheet rejected", sheetName());
        return false;
    }
    return true;
}

VTSheet* VTSheet::initWithArray_workspace_(NSArray* definition, NSObject* workspace) {
    NSObject::init();
    _workspace = workspace;
    _fields.adopt(NSMutableArray::alloc()->initWithCapacity_(10));
    _guiObjects.adopt(NSMutableArray::alloc()->initWithCapacity_(10));
    _fieldControls.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10)));
    _referenceObjects.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10)));
    _fieldLabels.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10)));
    _hiddenFields.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10)));
    _actionInfos.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10)));
    _inView.adopt(NSMutableSet::alloc()->init());
    _validation.adopt(static_cast<VTKeyedArrays*>(VTKeyedArrays::alloc()->init()));
    _accessRights.adopt(static_cast<VTKeyedArrays*>(VTKeyedArrays::alloc()->init()));
    _filters.adopt(static_cast<VTKeyedArrays*>(VTKeyedArrays::alloc()->init()));
    _referenceFilters.adopt(static_cast<VTKeyedArrays*>(VTKeyedArrays::alloc()->init()));
    _dateFilters.adopt(static_cast<VTKeyedArrays*>(VTKeyedArrays::alloc()->init()));
    _access.adopt(static_cast<VTKeyedArrays*>(VTKeyedArrays::alloc()->init()));
    _actions.adopt(NSMutableArray::alloc()->initWithCapacity_(10));
    _defaultValues.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10)));
    _toolTips.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10)));
    _keptValues.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10)));

    // The definition comes from configuration data and may arrive by
    // message as any object: look at it as an object before as a list.
    NSObject* written = reinterpret_cast<NSObject*>(definition);
    if (!isList(written)) {
        std::string text;
        render(written, &text, 0);
        LOG("sheet (unnamed): definition %s is not a list; sheet rejected", text.c_str());
        release();
        return nullptr;
    }
    VTSheetClauses clauses{this};
    if (!clauses.run(definition)) {
        release();
        return nullptr;
    }

    _matrix->load();
    _activeRow = static_cast<int32_t>(_matrix->numberOfRows());
    _tableView.adopt(static_cast<NSTableView*>(
            NSTableView::alloc()->initWithFrame_(NSMakeRect(330, 10, 500, 500))));
    makeDataSource();
    _matrix->sortByFirstField();
    NSSend<void>(_tableView->dataSource(), NS_SEL("filter"));
    return this;
}

void VTSheet::makeDataSource() {
    NSObject* currentUser =
            _filterCurrentUser ? static_cast<NSObject*>(_filterCurrentUser.get()) : NSNull::null();
    NSDictionary* specialFilters =
            NSDictionary::dictionaryWithObjectsAndKeys_(currentUser, "currentUser"_ns, nullptr);
    NSDictionary* sheets = NSSend<NSDictionary*>(_workspace, NS_SEL("sheets"));
    Ref<VTTableDataSource> dataSource = adoptRef(static_cast<VTTableDataSource*>(
            VTTableDataSource::alloc()
                    ->initWithMatrix_fields_sheets_filters_referenceFilters_dateFilters_specialFilters_readOwn_(
                            _matrix, _fields, sheets, _filters, _referenceFilters, _dateFilters,
                            specialFilters, _readOwn)));
    _tableView->setDataSource_(dataSource);
}
