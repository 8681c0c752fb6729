// Sheet definitions: the clause vocabulary on a configuration that uses all
// of it, the rejection of malformed clauses, rights and column clicks; and
// the table side: every filter stage of the data source, cell texts, the
// simple list source and the table view's object side.
#include <fstream>
#include <sstream>
#include <thread>

#include "foundation/NSDate.h"
#include "foundation/NSNull.h"
#include "foundation/NSValue.h"
#include "sheets/LXListParser.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "sheets/VTTableDataSource.h"
#include "test_workspace.h"
#include "toolkit/NSTableColumn.h"
#include "toolkit/NSTableView.h"

namespace {

std::string joined(NSArray* a, const char* sep = " ") {
    if (!a) return "nil";
    std::string out;
    for (uint32_t i = 0; i < a->count(); i++) {
        NSObject* o = a->objectAtIndex_(i);
        std::string s = o->isKindOfClass_(NSArray::classObject())
                                ? "(" + joined(static_cast<NSArray*>(o)) + ")"
                                : static_cast<NSString*>(o->description())->UTF8String();
        out += (i ? sep : "") + s;
    }
    return out;
}

class SheetTest : public SheetsTest {
protected:
    NSArray* parse(const std::string& text) {
        return LXListParser::listParserWithString_(NSString::stringWithUTF8String_(text.c_str()))
                ->parse();
    }
    // Creates a sheet from a definition and enters it under its name.
    VTSheet* define(const std::string& text) { return defineList(parse(text)); }
    VTSheet* defineList(NSArray* list) {
        auto* sheet =
                static_cast<VTSheet*>(VTSheet::alloc()->initWithArray_workspace_(list, workspace));
        if (!sheet) return nullptr;
        workspace->sheets()->setObject_forKey_(sheet, sheet->name());
        sheet->release();
        return sheet;
    }
    // Every sheet of a configuration text, comment rows skipped.
    void defineAll(NSArray* rows) {
        for (uint32_t i = 0; i < rows->count(); i++) {
            auto* row = static_cast<NSArray*>(rows->objectAtIndex_(i));
            if (row->count() && row->objectAtIndex_(0)->isEqual_("#"_ns)) continue;
            ASSERT_NE(defineList(row), nullptr) << joined(row);
        }
    }
    VTSheet* sheet(const char* name) {
        return static_cast<VTSheet*>(
                workspace->sheets()->objectForKey_(NSString::stringWithUTF8String_(name)));
    }
    VTTableDataSource* sourceOf(VTSheet* s) {
        return static_cast<VTTableDataSource*>(s->sheetTableView()->dataSource());
    }
    // A user record; answers its id.
    NSString* addUser(const char* first, const char* last, const char* unit = "Demo",
                      const char* company = "Admin") {
        VTMatrix* m = sheet("user")->matrix();
        uint32_t row = m->numberOfRows();
        m->setValue_inRow_column_(NSString::stringWithUTF8String_(first), row, "firstName"_ns);
        m->setValue_inRow_column_(NSString::stringWithUTF8String_(last), row, "lastName"_ns);
        m->setValue_inRow_column_(NSString::stringWithUTF8String_(unit), row, "orgUnit"_ns);
        m->setValue_inRow_column_(NSString::stringWithUTF8String_(company), row, "company"_ns);
        return static_cast<NSString*>(m->valueInRow_column_(row, "__recordId"_ns));
    }
    void defineUsers() {
        ASSERT_NE(define("((name user) (field firstName as string) (field lastName as string)"
                         " (field orgUnit as string) (field company as string))"),
                  nullptr);
    }
    // Appends a record of (field, value) pairs to a sheet's matrix.
    static void add(VTSheet* s, std::initializer_list<std::pair<const char*, NSObject*>> values) {
        VTMatrix* m = s->matrix();
        uint32_t row = m->numberOfRows();
        for (auto& [field, value] : values)
            m->setValue_inRow_column_(value, row, NSString::stringWithUTF8String_(field));
        if (values.size() == 0) m->setValue_inRow_column_(nullptr, row, "__none"_ns);
    }
    // The values of one field over the rows that pass, in table order.
    static std::string visible(VTSheet* s, const char* field) {
        VTTableDataSource* ds = static_cast<VTTableDataSource*>(s->sheetTableView()->dataSource());
        ds->filter();
        std::string out;
        NSArray* records = ds->allObjectsFiltered();
        for (uint32_t i = 0; i < records->count(); i++) {
            NSObject* v = static_cast<NSDictionary*>(records->objectAtIndex_(i))
                                  ->objectForKey_(NSString::stringWithUTF8String_(field));
            out += (i ? "," : "") + str(v);
        }
        return out;
    }
    static NSTableColumn* columnFor(const char* identifier) {
        return NSAutorelease(
                static_cast<NSTableColumn*>(NSTableColumn::alloc()->initWithIdentifier_(
                        NSString::stringWithUTF8String_(identifier))));
    }
};

TEST_F(SheetTest, TheWholeVocabularyOnOneConfiguration) {
    std::ifstream in(VANTOR_SOURCE_DIR "/tests/sheets/all_clauses.vtr");
    std::stringstream text;
    text << in.rdbuf();
    NSArray* rows = parse(text.str());
    ASSERT_NE(rows, nullptr);
    std::string log = logOf([&] { defineAll(rows); });
    // Nothing in it is malformed and unknown keywords pass silently. The
    // action titles go through stringWithArray:, whose mark sets log a line
    // of their own each time they are made; those are all there is.
    const std::string mark = "unsupported Unicode character (> 0x07ff)\n";
    for (size_t at; (at = log.find(mark)) != std::string::npos;) log.erase(at, mark.size());
    EXPECT_EQ(log, "");

    EXPECT_EQ(str(sheet("role")->title()), "Roles");
    EXPECT_EQ(str(sheet("user")->title()), "User");
    EXPECT_EQ(str(sheet("9lives")->title()), "9lives");
    VTSheet* task = sheet("task");
    EXPECT_EQ(str(task->title()), "Open tasks");

    // Fields in clause order; the unknown type word adds none.
    EXPECT_EQ(
            joined(task->fields(), "|"),
            "(title string)|(status enum (open started closed))|(notes multiline)|(due datepicker)|"
            "(at datetimepicker)|(owner reference user (firstName lastName))|"
            "(team multireference user (firstName lastName))|(internal string)");
    EXPECT_EQ(task->matrix()->fields()->count(), 8u);
    EXPECT_EQ(task->matrix()->fields()->objectForKey_("team"_ns),
              task->fields()->objectAtIndex_(6));
    EXPECT_EQ(str(task->fieldLabels()->objectForKey_("status"_ns)), "Current state");
    EXPECT_EQ(str(task->fieldLabels()->objectForKey_("title"_ns)), "Title");
    EXPECT_EQ(str(task->fieldLabels()->objectForKey_("legacy"_ns)), "Legacy");
    for (const char* key : {"title", "status", "due", "owner", "team", "legacy"})
        EXPECT_TRUE(task->inView()->member_(NSString::stringWithUTF8String_(key))) << key;
    for (const char* key : {"notes", "at", "internal"})
        EXPECT_FALSE(task->inView()->member_(NSString::stringWithUTF8String_(key))) << key;
    EXPECT_EQ(task->hiddenFields()->count(), 1u);
    EXPECT_NE(task->hiddenFields()->objectForKey_("internal"_ns), nullptr);

    EXPECT_EQ(str(task->defaultValues()->objectForKey_("status"_ns)), "closed");
    EXPECT_EQ(str(task->toolTips()->objectForKey_("status"_ns)), "Where the task stands");
    EXPECT_EQ(str(task->toolTips()->objectForKey_("title"_ns)), "");
    EXPECT_EQ(joined(task->validation()->objectsForKey_("title"_ns)), "notempty unique");
    EXPECT_EQ(str(task->filterCurrentUser()), "owner");
    EXPECT_EQ(joined(task->filters()->objectsForKey_("status"_ns), "|"), "open|in progress");
    EXPECT_EQ(joined(task->referenceFilters()->objectsForKey_(
                             NSArray::arrayWithObjects_("team"_ns, "user"_ns, nullptr)),
                     "|"),
              "Ada Lovelace|Bob Builder");
    EXPECT_EQ(joined(task->dateFilters()->objectsForKey_("due"_ns), "|"), "(-7 0)|(-30.5 30)");
    EXPECT_EQ(joined(task->access()->objectsForKey_("notes"_ns)), "manager editor");
    EXPECT_EQ(joined(task->accessRights()->objectsForKey_("read"_ns), "|"), "All|Power users");
    EXPECT_TRUE(task->readOwn());
    EXPECT_TRUE(task->isAdminType());
    EXPECT_TRUE(task->createdInView() && task->modifiedInView() && task->creatorInView() &&
                task->modifierInView());
    EXPECT_EQ(
            joined(task->actions(), "|"),
            "(Send now! VTMailAction send: (urgent copy))|([Print] VTPrintAction print: <NSNull>)");
    EXPECT_EQ(task->actions()->count(), 2u);
    EXPECT_EQ(static_cast<NSArray*>(task->actions()->objectAtIndex_(1))->objectAtIndex_(3),
              NSNull::null());
    EXPECT_EQ(task->activeRow(), 0);

    // The special filter and the data source come from the clauses too.
    VTTableDataSource* ds = sourceOf(task);
    ASSERT_NE(ds, nullptr);
    EXPECT_EQ(ds->objectIndices()->count(), 0u);
    // It filters by every stage the clauses name: each record but the
    // first fails exactly one of them (current user, readOwn, value
    // filter, date filters, reference filter).
    NSString* ada = addUser("Ada", "Lovelace");
    NSString* eve = addUser("Eve", "Other");
    NSString* me = "Ada Lovelace/Demo/Admin"_ns;
    NSDate* yesterday = NSDate::date()->addTimeInterval_(-24 * 3600);
    NSDate* longAgo = NSDate::date()->addTimeInterval_(-10 * 24 * 3600);
    auto addTask = [&](const char* title, NSObject* owner, NSObject* creator, NSObject* status,
                       NSObject* due, NSObject* team) {
        add(task, {{"title", NSString::stringWithUTF8String_(title)},
                   {"owner", owner},
                   {"__creator", creator},
                   {"status", status},
                   {"due", due},
                   {"team", team}});
    };
    addTask("shown", ada, me, "in progress"_ns, yesterday, ada);
    addTask("not the owner", eve, me, "open"_ns, yesterday, ada);
    addTask("not my own", ada, "Eve Other/Demo/Admin"_ns, "open"_ns, yesterday, ada);
    addTask("closed", ada, me, "closed"_ns, yesterday, ada);
    addTask("too old", ada, me, "open"_ns, longAgo, ada);
    addTask("other team", ada, me, "open"_ns, yesterday, eve);
    EXPECT_EQ(visible(task, "title"), "shown");

    // A sheet on a source shares its store; one on a missing source has its own.
    VTSheet* mine = sheet("mytask");
    EXPECT_FALSE(mine->isPrimary());
    EXPECT_EQ(mine->source(), task->matrix());
    EXPECT_EQ(str(mine->primarySourceName()), "task");
    EXPECT_EQ(str(mine->matrix()->name()), "task");
    EXPECT_FALSE(mine->isAdminType());
    EXPECT_TRUE(task->isPrimary());
    EXPECT_EQ(str(task->primarySourceName()), "task");
    EXPECT_TRUE(sheet("9lives")->isPrimary());
    EXPECT_EQ(str(sheet("9lives")->matrix()->name()), "9lives");
}

TEST_F(SheetTest, MalformedClausesAreRejectedWithALineNamingSheetAndClause) {
    struct Case {
        const char* definition;
        const char* log;
        bool sheet;
    } cases[] = {
            {"((name t) (field a as string) oops)", "sheet t: clause oops rejected: not a list\n",
             true},
            {"((name t) (field a as string) (default a))",
             "sheet t: clause (default a) rejected: too few elements\n", true},
            {"((name t) (field a as string) ())", "sheet t: clause () rejected: an empty clause\n",
             true},
            {"((name t) (field a as string) ((x) y))",
             "sheet t: clause ((x) y) rejected: a list where the keyword belongs\n", true},
            {"((name t) (field a as string) (filter a (open closed)))",
             "sheet t: clause (filter a (open closed)) rejected: a word where a list belongs\n",
             true},
            {"((name t) (field a as string) (restrict read All))",
             "sheet t: clause (restrict read All) rejected: a word where a list belongs\n", true},
            {"((name t) (field a as string) (datefilter a (-7) 0))",
             "sheet t: clause (datefilter a (-7) 0) rejected: a list where a word belongs\n", true},
            {"((name t) (field a as string) (name u))",
             "sheet t: clause (name u) rejected: the sheet has a name already\n", true},
            {"((field a as string) (name t) (field b as string))",
             "sheet (unnamed): clause (field a as string) rejected: a field before the name "
             "clause\n",
             true},
            {"((name t) (field (a) as string) (field b as string))",
             "sheet t: clause (field (a) as string) rejected: too few elements in the field's name "
             "and label\n",
             true},
            {"((name t) (field a as reference user) (field b as string))",
             "sheet t: clause (field a as reference user) rejected: too few elements\n", true},
            {"((name t labelled Tasks) (field a as string))",
             "sheet (unnamed): clause (name t labelled Tasks) rejected: a word where a list "
             "belongs\n"
             "sheet (unnamed): clause (field a as string) rejected: a field before the name "
             "clause\n"
             "sheet (unnamed): no name clause; sheet rejected\n",
             false},
            {"((name t) (field a as enum open))",
             "sheet t: clause (field a as enum open) rejected: a word where a list belongs\n"
             "sheet t: no field clause; sheet rejected\n",
             false},
            {"((name t) (field a as))",
             "sheet t: clause (field a as) rejected: too few elements\nsheet t: no field clause; "
             "sheet rejected\n",
             false},
            {"((name t))", "sheet t: no field clause; sheet rejected\n", false},
            {"()", "sheet (unnamed): no name clause; sheet rejected\n", false},
    };
    for (const Case& c : cases) {
        VTSheet* s = nullptr;
        std::string log = logOf([&] { s = define(c.definition); });
        EXPECT_EQ(log, c.log) << c.definition;
        EXPECT_EQ(s != nullptr, c.sheet) << c.definition;
        if (s) {
            EXPECT_GE(s->fields()->count(), 1u);
            workspace->sheets()->removeAllObjects();
        }
    }
    std::string log = logOf([&] {
        // By message, as a definition that isn't a list can only come.
        VTSheet* s = NSSend<VTSheet*>(VTSheet::alloc(), NS_SEL("initWithArray:workspace:"),
                                      "atom"_ns, static_cast<NSObject*>(workspace));
        EXPECT_EQ(s, nullptr);
    });
    EXPECT_EQ(log, "sheet (unnamed): definition atom is not a list; sheet rejected\n");
}

TEST_F(SheetTest, SmallClauseRulesAndRights) {
    VTSheet* s =
            define("((name user) (field status as string) (field (state labelled Current  state) "
                   "as string)"
                   " (type user) (restrict read (Power users)) (restrict read (All)) (restrict "
                   "read (All)))");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(str(s->title()), "User");
    EXPECT_EQ(str(s->fieldLabels()->objectForKey_("status"_ns)), "Status");
    EXPECT_EQ(str(s->fieldLabels()->objectForKey_("state"_ns)), "Current state");
    EXPECT_FALSE(s->isAdminType());
    EXPECT_TRUE(s->isRestrictedForAction_("read"_ns));
    EXPECT_FALSE(s->isRestrictedForAction_("update"_ns));
    NSMutableSet* roles = s->rolesForAction_("read"_ns);
    EXPECT_EQ(roles->count(), 2u);
    EXPECT_TRUE(roles->member_("Power users"_ns));
    EXPECT_EQ(s->rolesForAction_("remove"_ns)->count(), 0u);
    EXPECT_EQ(s->currentUserRole(), 3);
    EXPECT_EQ(s->workspace(), workspace);
    EXPECT_FALSE(s->isFullyInitialized());
    EXPECT_EQ(s->fieldControls()->count(), 0u);
}

TEST_F(SheetTest, ColumnClicksSortReverseRefilterAndRefreshTheOthers) {
    VTSheet* s = define(
            "((name task) (field title as string) (field rank as string) (filter rank ((1) (2))))");
    ASSERT_NE(s, nullptr);
    add(s, {{"title", "b"_ns}, {"rank", "1"_ns}});
    add(s, {{"title", "c"_ns}, {"rank", "9"_ns}});
    add(s, {{"title", "a"_ns}, {"rank", "2"_ns}});
    NSTableView* table = s->sheetTableView();
    NSTableColumn* title = columnFor("title");
    table->addTableColumn_(title);
    EXPECT_EQ(title->tableView(), table);
    EXPECT_EQ(table->tableColumns()->count(), 1u);

    // The sheet sorted by its first field when it was made: a click right
    // after that would reverse. Sort by another field first.
    s->matrix()->sortByField_("rank"_ns);
    s->columnAction_(title);
    EXPECT_EQ(visible(s, "title"), "a,b");
    EXPECT_EQ(str(sourceOf(s)->tableView_objectValueForTableColumn_row_(table, title, 0)), "a");
    ASSERT_EQ(workspace->refreshedExcept.size(), 1u);
    EXPECT_EQ(workspace->refreshedExcept[0], s);
    s->columnAction_(title);
    EXPECT_EQ(str(sourceOf(s)->tableView_objectValueForTableColumn_row_(table, title, 0)), "b");
    EXPECT_EQ(sourceOf(s)->translateIndex_(0), 1);  // c is filtered out at matrix row 0
    EXPECT_EQ(sourceOf(s)->translateIndexReversely_(0), -1);
    EXPECT_EQ(sourceOf(s)->translateIndexReversely_(2), 1);
    EXPECT_EQ(sourceOf(s)->translateIndex_(5), -1);
}

TEST_F(SheetTest, ValueFiltersCombineKeysAndTakeAlternatives) {
    VTSheet* s = define(
            "((name task) (field title as string) (field status as string) (field kind as string)"
            " (filter status ((open) (in progress))) (filter kind ((bug))))");
    ASSERT_NE(s, nullptr);
    add(s, {{"title", "1"_ns}, {"status", "open"_ns}, {"kind", "bug"_ns}});
    add(s, {{"title", "2"_ns}, {"status", "in progress"_ns}, {"kind", "bug"_ns}});
    add(s, {{"title", "3"_ns}, {"status", "open"_ns}, {"kind", "idea"_ns}});
    add(s, {{"title", "4"_ns}, {"status", "closed"_ns}, {"kind", "bug"_ns}});
    add(s, {{"title", "5"_ns}, {"kind", "bug"_ns}});  // no status: fails
    EXPECT_EQ(visible(s, "title"), "1,2");
}

TEST_F(SheetTest, OwnRecordsAndCurrentUserFilters) {
    defineUsers();
    NSString* ada = addUser("Ada", "Lovelace");
    NSString* bob = addUser("Bob", "Builder");
    NSString* gone = addUser("Cy", "Gone");
    VTSheet* own = define("((name notes) (field title as string) (readOwn))");
    ASSERT_NE(own, nullptr);
    add(own, {{"title", "mine"_ns}, {"__creator", "Ada Lovelace/Demo/Admin"_ns}});
    add(own, {{"title", "theirs"_ns}, {"__creator", "Bob Builder/Demo/Admin"_ns}});
    add(own, {{"title", "nobody's"_ns}});
    EXPECT_EQ(visible(own, "title"), "mine");

    VTSheet* assigned =
            define("((name work) (field title as string) (field who as reference user (firstName)) "
                   "(filterCurrentUser who))");
    ASSERT_NE(assigned, nullptr);
    add(assigned, {{"title", "a"_ns}, {"who", ada}});
    add(assigned, {{"title", "b"_ns}, {"who", bob}});
    add(assigned, {{"title", "c"_ns}, {"who", gone}});
    add(assigned, {{"title", "d"_ns}});
    sheet("user")->matrix()->removeRecord_(gone);  // a deleted user hides the record
    EXPECT_EQ(visible(assigned, "title"), "a");

    // The identity is taken once: another user later changes nothing.
    workspace->setUserId("Bob Builder/Demo/Admin"_ns);
    EXPECT_EQ(visible(assigned, "title"), "a");
    VTTableDataSource::resetIdentityForTesting();
    EXPECT_EQ(visible(assigned, "title"), "b");

    // A user without own records sees nothing on a readOwn sheet.
    workspace->setUserId("Dee Nobody/Demo/Admin"_ns);
    VTTableDataSource::resetIdentityForTesting();
    EXPECT_EQ(visible(own, "title"), "");
    for (int32_t row = 0; row < 3; row++)
        EXPECT_EQ(sourceOf(own)->translateIndexReversely_(row), -1);
}

// Waits, if need be, so that the next second boundary is far enough away
// for a test that compares dates to the second.
void awayFromASecondBoundary() {
    while (NSDate::date()->systemTime().milliseconds > 700)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

TEST_F(SheetTest, DateFiltersHoldAtTheirExactBoundsAndPassNonDates) {
    VTSheet* s =
            define("((name task) (field title as string) (field due as datepicker) (datefilter due "
                   "-7 0))");
    ASSERT_NE(s, nullptr);
    awayFromASecondBoundary();
    NSDate* now = NSDate::date();
    add(s, {{"title", "lower"_ns}, {"due", now->addTimeInterval_(-7 * 86400.0)}});
    add(s, {{"title", "before"_ns}, {"due", now->addTimeInterval_(-7 * 86400.0 - 1)}});
    add(s, {{"title", "now"_ns}, {"due", now}});
    add(s, {{"title", "later"_ns}, {"due", now->addTimeInterval_(2)}});
    add(s, {{"title", "text"_ns}, {"due", "tomorrow"_ns}});
    add(s, {{"title", "empty"_ns}});
    std::string shown;
    std::string log = logOf([&] { shown = visible(s, "title"); });
    EXPECT_EQ(shown, "lower,now,text,empty");
    EXPECT_EQ(log, "not NSDate!\nnot NSDate!\n");

    // Two clauses on one field narrow the range; fractions of days count.
    VTSheet* narrow =
            define("((name narrow) (field title as string) (field due as datepicker)"
                   " (datefilter due -7 0) (datefilter due -0.5 1))");
    ASSERT_NE(narrow, nullptr);
    awayFromASecondBoundary();
    now = NSDate::date();
    add(narrow, {{"title", "week"_ns}, {"due", now->addTimeInterval_(-3 * 86400.0)}});
    add(narrow, {{"title", "halfday"_ns}, {"due", now->addTimeInterval_(-12 * 3600.0)}});
    add(narrow, {{"title", "hour"_ns}, {"due", now->addTimeInterval_(-3600.0)}});
    EXPECT_EQ(visible(narrow, "title"), "halfday,hour");
}

TEST_F(SheetTest, ReferenceFiltersMatchAnyIdsDisplayText) {
    defineUsers();
    NSString* ada = addUser("Ada", "Lovelace");
    NSString* bob = addUser("Bob", "Builder");
    VTSheet* s =
            define("((name task) (field title as string) (field team as multireference user "
                   "(firstName lastName))"
                   " (reffilter team user ((Bob Builder) (Nobody))))");
    ASSERT_NE(s, nullptr);
    add(s, {{"title", "both"_ns},
            {"team", NSString::stringWithFormat_("%s %s", ada->UTF8String(), bob->UTF8String())}});
    add(s, {{"title", "ada"_ns}, {"team", ada}});
    add(s, {{"title", "stale"_ns}, {"team", "gone-1"_ns}});
    add(s, {{"title", "none"_ns}});
    add(s, {{"title", "bob"_ns},
            {"team", NSString::stringWithFormat_("gone-2 %s", bob->UTF8String())}});
    EXPECT_EQ(visible(s, "title"), "both,bob");
    EXPECT_EQ(sourceOf(s)->allObjectsFiltered()->count(), 2u);
}

TEST_F(SheetTest, CellsShowDisplayTextsDatesAndNames) {
    defineUsers();
    NSString* ada = addUser("Ada", "Lovelace");
    NSString* x = addUser("X", "");
    sheet("user")->matrix()->setValue_inRow_column_(nullptr, 1, "lastName"_ns);
    NSString* bob = addUser("Bob", "Builder");
    VTSheet* s = define(
            "((name task) (field title as string) (field owner as reference user (firstName))"
            " (field team as multireference user (firstName lastName)) (field due as datepicker))");
    ASSERT_NE(s, nullptr);
    VTSystemTime t = {2008, 5, 0, 3, 0, 0, 0, 0};
    add(s, {{"title", "t"_ns},
            {"owner", x},
            {"team",
             NSString::stringWithFormat_("%s gone-1 %s", ada->UTF8String(), bob->UTF8String())},
            {"due", NSAutorelease(NSDate::alloc()->initWithSystemTime_(t))},
            {"__creator", "Ada Lovelace/Demo/Admin"_ns}});
    add(s, {{"title", "u"_ns}, {"owner", ""_ns}, {"team", x}});
    VTTableDataSource* ds = sourceOf(s);
    ds->filter();
    NSTableView* table = s->sheetTableView();
    auto cell = [&](const char* column, int32_t row) {
        return str(ds->tableView_objectValueForTableColumn_row_(table, columnFor(column), row));
    };
    EXPECT_EQ(cell("owner", 0), "X");
    EXPECT_EQ(cell("team", 0), "Ada Lovelace; Bob Builder");
    EXPECT_EQ(cell("team", 1), "X lastName");
    EXPECT_EQ(cell("owner", 1), "");
    EXPECT_EQ(cell("due", 0), "3.5.2008");
    EXPECT_EQ(cell("__creator", 0), "Ada Lovelace");
    EXPECT_EQ(cell("title", 1), "u");
    EXPECT_EQ(cell("_seen_", 0), "*");
    EXPECT_EQ(ds->numberOfRowsInTableView_(table), 2);
    EXPECT_EQ(str(ds->resolveValue_forField_("plain"_ns, "title"_ns)), "plain");
}

TEST_F(SheetTest, SimpleListsAndTheTableViewsSelection) {
    Ref<VTSimpleDataSource> list =
            adoptRef(static_cast<VTSimpleDataSource*>(VTSimpleDataSource::alloc()->init()));
    list->addAnItem_("one"_ns);
    list->addAnItem_("two"_ns);
    list->addAnItem_("three"_ns);
    EXPECT_EQ(list->indexOfItem_(NSString::stringWithUTF8String_("two")), 1);
    EXPECT_EQ(list->indexOfItem_("four"_ns), -1);
    EXPECT_EQ(str(list->tableView_objectValueForTableColumn_row_(nullptr, nullptr, 2)), "three");

    Ref<NSTableView> table = adoptRef(static_cast<NSTableView*>(
            NSTableView::alloc()->initWithFrame_(NSMakeRect(0, 0, 100, 100))));
    table->addTableColumn_(columnFor("x"));
    table->setDataSource_(list);
    EXPECT_EQ(table->numberOfRows(), 3);
    table->setSelectedRow_(2);
    list->removeAllItems();
    list->addAnItem_("only"_ns);
    table->reloadData();
    EXPECT_EQ(table->selectedRow(), 0);  // the last row that is left
    list->removeAllItems();
    table->reloadData();
    EXPECT_EQ(table->selectedRow(), -1);
    EXPECT_EQ(list->numberOfRowsInTableView_(table), 0);
}

}  // namespace
