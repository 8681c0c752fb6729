// The matrix: transactions and what they store and replicate, the sort and
// its reversal, reference resolution, seen marks, shared stores; and its
// two companions, the keyed arrays and the sort wrapper.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "foundation/NSDate.h"
#include "foundation/NSValue.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTRecordVersions.h"
#include "sheets/VTWrapper.h"
#include "storage/LXContainer.h"
#include "structures/VTKeyedArrays.h"
#include "sync/LXVersion.h"
#include "test_workspace.h"
#include "tests/support/RunProgram.h"
#include "toolkit/NSTableColumn.h"

// What the sheets map holds for a matrix test: something answering matrix.
class MatrixHolder : public NSObject {
    NS_DECLARE_CLASS(MatrixHolder, NSObject)

public:
    VTMatrix* matrix() { return _matrix; }
    void setMatrix(VTMatrix* m) { _matrix.set(m); }

protected:
    ~MatrixHolder() override = default;

private:
    Ref<VTMatrix> _matrix;
};

NS_CLASS_BEGIN(MatrixHolder, NSObject)
    NS_METHOD(matrix)
NS_CLASS_END(MatrixHolder)

namespace {

NSArray* words(std::initializer_list<const char*> list) {
    NSMutableArray* a = NSMutableArray::array();
    for (const char* w : list) a->addObject_(NSString::stringWithUTF8String_(w));
    return a;
}

class MatrixTest : public SheetsTest {
protected:
    // A loaded primary matrix entered in the sheets map under its name.
    VTMatrix* makeMatrix(const char* name, VTMatrix* source = nullptr) {
        NSString* n = NSString::stringWithUTF8String_(name);
        auto* m = static_cast<VTMatrix*>(
                VTMatrix::alloc()->initWithName_sheets_workspace_sheet_source_(
                        n, workspace->sheets(), workspace, nullptr, source));
        m->load();
        auto* holder = static_cast<MatrixHolder*>(MatrixHolder::alloc()->init());
        holder->setMatrix(m);
        if (!source) workspace->sheets()->setObject_forKey_(holder, n);
        holder->release();
        return NSAutorelease(m);
    }
    // Records in row order as "id:value" of one field.
    static std::string column(VTMatrix* m, const char* field) {
        std::string out;
        for (uint32_t r = 0; r < m->numberOfRows(); r++)
            out += (r ? "," : "") +
                   str(m->valueInRow_column_(r, NSString::stringWithUTF8String_(field)));
        return out;
    }
    static uint32_t stored(const char* name) {
        Ref<LXContainer> c = adoptRef(
                LXContainer::alloc()->initWithName_(NSString::stringWithUTF8String_(name)));
        return c->count_(NSMutableDictionary::classObject());
    }
    // A matrix with string field "name" holding these values, committed.
    VTMatrix* people(std::initializer_list<const char*> names) {
        VTMatrix* m = makeMatrix("people");
        m->addField_(words({"name", "string"}));
        m->beginTransaction();
        uint32_t row = 0;
        for (const char* n : names)
            m->setValue_inRow_column_(NSString::stringWithUTF8String_(n), row++, "name"_ns);
        m->commitTransaction_(false);
        return m;
    }
};

TEST_F(MatrixTest, KeyedArraysKeepOrderAndDuplicatesAndNeverAnswerNil) {
    Ref<VTKeyedArrays> k = adoptRef(static_cast<VTKeyedArrays*>(VTKeyedArrays::alloc()->init()));
    k->addObject_forKey_("a"_ns, "x"_ns);
    k->addObject_forKey_("b"_ns, "x"_ns);
    k->addObject_forKey_("a"_ns, "x"_ns);
    EXPECT_EQ(str(k->objectsForKey_("x"_ns)->componentsJoinedByString_(" "_ns)), "a b a");
    NSMutableArray* none = k->objectsForKey_("y"_ns);
    ASSERT_NE(none, nullptr);
    EXPECT_EQ(none->count(), 0u);
    none->addObject_("z"_ns);  // not entered
    EXPECT_FALSE(k->containsKey_("y"_ns));
    EXPECT_TRUE(k->containsKey_("x"_ns));
    EXPECT_EQ(k->allKeys()->count(), 1u);
    k->removeAllObjects();
    EXPECT_FALSE(k->containsKey_("x"_ns));

    Ref<VTWrapper> a = adoptRef(
            static_cast<VTWrapper*>(VTWrapper::alloc()->initWithObject_value_(nullptr, "a"_ns)));
    Ref<VTWrapper> b = adoptRef(
            static_cast<VTWrapper*>(VTWrapper::alloc()->initWithObject_value_(nullptr, "b"_ns)));
    EXPECT_EQ(a->compareWithWrapper_(b), -1);
    EXPECT_EQ(b->compareWithWrapper_(a), 1);
    EXPECT_EQ(str(a), "a");
}

TEST_F(MatrixTest, LoadSortsOutTombstonesAndDropsThoseOlderThanThirtyDays) {
    uint64_t now = lx::LXClock::wallMillis();
    auto at = [](uint64_t millis) {
        return lx::versionText(millis << lx::kClockCounterBits, "w-1"_ns);
    };
    uint64_t day = 24ull * 3600 * 1000;
    {
        Ref<LXContainer> c = adoptRef(LXContainer::alloc()->initWithName_("data/people"_ns));
        auto record = [&](const char* id, const char* name, NSString* written, NSString* removed) {
            NSMutableDictionary* r = NSDictionary::dictionaryWithObjectsAndKeys_(
                    NSString::stringWithUTF8String_(id), "__recordId"_ns,
                    NSString::stringWithUTF8String_(name), "name"_ns, nullptr);
            r->setObject_forKey_(
                    NSDictionary::dictionaryWithObjectsAndKeys_(written, "name"_ns, nullptr),
                    "__versions"_ns);
            if (removed) r->setObject_forKey_(removed, "__removed"_ns);
            c->set_(r);
        };
        record("live", "Ada", at(now - 5 * day), nullptr);
        record("back", "Bob", at(now - day), at(now - 2 * day));  // changed after its removal
        record("gone", "Cy", at(now - 3 * day), at(now - 2 * day));
        record("old", "Dee", at(now - 40 * day), at(now - 31 * day));
    }
    VTMatrix* m = nullptr;
    std::string log = logOf([&] { m = people({}); });
    EXPECT_EQ(log, "1 removed records of people expired\n");
    std::vector<std::string> rows;
    for (uint32_t r = 0; r < m->numberOfRows(); r++)
        rows.push_back(str(m->valueInRow_column_(r, "name"_ns)));
    std::sort(rows.begin(), rows.end());
    EXPECT_EQ(rows, (std::vector<std::string>{"Ada", "Bob"}));
    EXPECT_EQ(m->objectWithRecordId_("gone"_ns), nullptr);
    ASSERT_NE(m->tombstoneWithRecordId_("gone"_ns), nullptr);
    EXPECT_TRUE(vt_versions::isRemoved(m->tombstoneWithRecordId_("gone"_ns)));
    EXPECT_EQ(m->tombstoneWithRecordId_("old"_ns), nullptr);
    EXPECT_EQ(stored("data/people"), 3u);
    // A secondary matrix shares the tombstones.
    VTMatrix* second = makeMatrix("others", m);
    EXPECT_EQ(second->tombstoneWithRecordId_("gone"_ns), m->tombstoneWithRecordId_("gone"_ns));
}

TEST_F(MatrixTest, SettingTheRowAfterTheLastMakesARecordButOnlyACommitStoresIt) {
    VTMatrix* m = makeMatrix("tasks");
    m->setValue_inRow_column_("one"_ns, 0, "title"_ns);
    m->setValue_inRow_column_("three"_ns, 2, "title"_ns);  // row 1 appears empty
    ASSERT_EQ(m->numberOfRows(), 3u);
    EXPECT_EQ(column(m, "title"), "one,nil,three");
    for (uint32_t r = 0; r < 3; r++) {
        auto* id = static_cast<NSString*>(m->valueInRow_column_(r, "__recordId"_ns));
        ASSERT_NE(id, nullptr);
        EXPECT_EQ(m->objectWithRecordId_(id), m->allObjectsSorted()->objectAtIndex_(r));
    }
    EXPECT_EQ(stored("data/tasks"), 0u);
    EXPECT_EQ(m->valueInRow_column_(7, "title"_ns), nullptr);
}

TEST_F(MatrixTest, CommitStampsStoresAndReplicatesTheChangedFieldsOncePerRecord) {
    VTMatrix* m = makeMatrix("tasks");
    m->beginTransaction();
    EXPECT_TRUE(m->inTransaction());
    m->setValue_inRow_column_("one"_ns, 0, "title"_ns);
    m->setValue_inRow_column_("open"_ns, 0, "status"_ns);
    m->setValue_inRow_column_("two"_ns, 1, "title"_ns);
    m->setValue_inRow_column_("uno"_ns, 0, "title"_ns);  // the same record again
    m->commitTransaction();
    EXPECT_FALSE(m->inTransaction());

    // One delta per record, its fields in the order they were set; the
    // record set twice is stored and sent once.
    ASSERT_EQ(workspace->synchronized.size(), 2u);
    std::string id0 = str(m->valueInRow_column_(0, "__recordId"_ns));
    std::string id1 = str(m->valueInRow_column_(1, "__recordId"_ns));
    std::vector<std::string> sent = workspace->synchronized;
    std::sort(sent.begin(), sent.end());
    std::vector<std::string> expected = {id0 + ": title status title", id1 + ": title"};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(sent, expected);
    EXPECT_EQ(stored("data/tasks"), 2u);

    auto* record = static_cast<NSDictionary*>(m->allObjectsSorted()->objectAtIndex_(0));
    EXPECT_EQ(str(record->objectForKey_("__creator"_ns)), "Ada Lovelace/Demo/Admin");
    EXPECT_EQ(str(record->objectForKey_("__modifier"_ns)), "Ada Lovelace/Demo/Admin");
    EXPECT_TRUE(record->objectForKey_("__created"_ns)->isKindOfClass_(NSDate::classObject()));
    EXPECT_TRUE(record->objectForKey_("__modified"_ns)->isKindOfClass_(NSDate::classObject()));

    // A second matrix on the store reads what was committed.
    Ref<VTMatrix> again = adoptRef(
            static_cast<VTMatrix*>(VTMatrix::alloc()->initWithName_sheets_workspace_sheet_source_(
                    "tasks"_ns, workspace->sheets(), workspace, nullptr, nullptr)));
    again->load();
    ASSERT_EQ(again->numberOfRows(), 2u);
    auto* back = again->objectWithRecordId_(NSString::stringWithUTF8String_(id0.c_str()));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(str(back->objectForKey_("title"_ns)), "uno");
    EXPECT_EQ(str(back->objectForKey_("__creator"_ns)), "Ada Lovelace/Demo/Admin");
}

TEST_F(MatrixTest, UnchangedValuesSendNoDeltaUnlessForced) {
    VTMatrix* m = people({"Ada"});
    EXPECT_TRUE(workspace->synchronized.empty());  // committed without replication
    auto* record = static_cast<NSDictionary*>(m->allObjectsSorted()->objectAtIndex_(0));
    EXPECT_EQ(record->objectForKey_("__modifier"_ns), nullptr);
    EXPECT_NE(record->objectForKey_("__creator"_ns), nullptr);
    std::string id = str(record->objectForKey_("__recordId"_ns));

    m->beginTransaction();
    m->setValue_inRow_column_(NSString::stringWithUTF8String_("Ada"), 0,
                              "name"_ns);  // equal, not identical
    m->commitTransaction();
    EXPECT_TRUE(workspace->synchronized.empty());
    EXPECT_NE(record->objectForKey_("__modifier"_ns), nullptr);  // touched: stamped all the same

    m->beginTransaction();
    m->setValue_inRow_column_onlyChangedFields_("Ada"_ns, 0, "name"_ns, false);
    m->commitTransaction();
    ASSERT_EQ(workspace->synchronized.size(), 1u);
    EXPECT_EQ(workspace->synchronized[0], id + ": name");
    EXPECT_EQ(workspace->sheetsSeen[0], nullptr);  // the matrix's sheet: none here
}

TEST_F(MatrixTest, DeletionsReachTheStoreAndOnlyReplicateWhenAsked) {
    VTMatrix* m = people({"Ada", "Bob", "Cy"});
    ASSERT_EQ(stored("data/people"), 3u);
    std::string bob = str(m->valueInRow_column_(1, "__recordId"_ns));

    m->beginTransaction();
    m->removeRow_(1);
    m->removeRecord_("no such id"_ns);
    m->commitTransaction_(false);
    EXPECT_EQ(column(m, "name"), "Ada,Cy");
    EXPECT_EQ(m->objectWithRecordId_(NSString::stringWithUTF8String_(bob.c_str())), nullptr);
    EXPECT_EQ(stored("data/people"), 2u);
    EXPECT_TRUE(workspace->deleted.empty());

    std::string cy = str(m->valueInRow_column_(1, "__recordId"_ns));
    m->beginTransaction();
    m->removeRecord_(NSString::stringWithUTF8String_(cy.c_str()));
    m->commitTransaction();
    EXPECT_EQ(column(m, "name"), "Ada");
    // A removal that replicates keeps the record as its tombstone.
    EXPECT_EQ(stored("data/people"), 2u);
    EXPECT_NE(m->tombstoneWithRecordId_(NSString::stringWithUTF8String_(cy.c_str())), nullptr);
    EXPECT_EQ(workspace->deleted, std::vector<std::string>{cy});
    EXPECT_TRUE(workspace->synchronized.empty());

    // Records made and deleted in one transaction leave nothing behind,
    // whatever order the pending set lists them in.
    m->beginTransaction();
    for (int i = 0; i < 8; i++) {
        m->setValue_inRow_column_(NSString::stringWithFormat_("Dee%d", i), 1, "name"_ns);
        m->removeRow_(1);
    }
    m->commitTransaction();
    EXPECT_EQ(stored("data/people"), 2u);
    EXPECT_TRUE(workspace->synchronized.empty());
    EXPECT_EQ(workspace->deleted.size(), 9u);
}

TEST_F(MatrixTest, ASecondTransactionFromAnotherThreadWaitsForTheFirst) {
    VTMatrix* m = people({"Ada"});
    m->beginTransaction();
    std::atomic<bool> began{false};
    std::thread other([&] {
        NSAutoreleasePool* threadPool = NSAutoreleasePool::alloc()->init();
        m->beginTransaction();
        began = true;
        m->setValue_inRow_column_("Bob"_ns, 1, "name"_ns);
        m->commitTransaction_(false);
        threadPool->release();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_FALSE(began.load());
    m->setValue_inRow_column_("Ada L."_ns, 0, "name"_ns);
    m->commitTransaction_(false);
    other.join();
    EXPECT_TRUE(began.load());
    EXPECT_EQ(column(m, "name"), "Ada L.,Bob");
    EXPECT_EQ(stored("data/people"), 2u);

    // A rolled back transaction frees the lock and keeps the changes in memory.
    m->beginTransaction();
    m->setValue_inRow_column_("Cy"_ns, 2, "name"_ns);
    m->rollbackTransaction();
    EXPECT_EQ(m->numberOfRows(), 3u);
    EXPECT_EQ(stored("data/people"), 2u);
    m->beginTransaction();
    m->commitTransaction_(false);
}

TEST_F(MatrixTest, SortAscendsThenReversesThenAscendsAgain) {
    VTMatrix* m = people({"Cy", "Ada", "Bob", "Ada"});
    std::string firstAda = str(m->valueInRow_column_(1, "__recordId"_ns));
    m->beginTransaction();
    m->setValue_inRow_column_("x"_ns, 0, "other"_ns);
    m->setValue_inRow_column_("y"_ns, 2, "other"_ns);
    m->commitTransaction_(false);

    m->sortByField_("name"_ns);
    EXPECT_EQ(column(m, "name"), "Ada,Ada,Bob,Cy");
    EXPECT_EQ(str(m->valueInRow_column_(0, "__recordId"_ns)), firstAda);  // stable
    EXPECT_EQ(str(m->lastSortedBy()), "name");
    m->sortByField_("name"_ns);
    EXPECT_EQ(column(m, "name"), "Cy,Bob,Ada,Ada");
    EXPECT_EQ(m->lastSortedBy(), nullptr);
    // Turned round, not sorted again: the first Ada is now last.
    EXPECT_EQ(str(m->valueInRow_column_(3, "__recordId"_ns)), firstAda);
    m->sortByField_("name"_ns);
    EXPECT_EQ(column(m, "name"), "Ada,Ada,Bob,Cy");

    // Another field in between: the next request for name ascends. Records
    // without the field sort first, as the empty string.
    m->sortByField_("other"_ns);
    EXPECT_EQ(column(m, "other"), "nil,nil,x,y");
    m->sortByField_("name"_ns);
    EXPECT_EQ(column(m, "name"), "Ada,Ada,Bob,Cy");
}

TEST_F(MatrixTest, SortOrdersDatesByDescriptionWithAMissingDateFirst) {
    // Tags name the expected ascending place; the record without a date
    // sorts as the empty string, before every date. Dates order by their
    // descriptions, so the three-digit year comes after 2008.
    VTMatrix* m = makeMatrix("events");
    const char* tags[] = {"c", "a", "b", "e", "d"};
    const char* dates[] = {"2008-05-03 09:00:07 +0100", nullptr, "2007-12-31 00:00:00 +0100",
                           "999-01-01 00:00:00 +0100", "2008-05-03 09:00:08 +0100"};
    for (uint32_t row = 0; row < 5; row++) {
        m->setValue_inRow_column_(NSString::stringWithUTF8String_(tags[row]), row, "tag"_ns);
        if (dates[row])
            m->setValue_inRow_column_(
                    NSDate::dateWithString_(NSString::stringWithUTF8String_(dates[row])), row,
                    "when"_ns);
    }
    m->sortByField_("when"_ns);
    EXPECT_EQ(column(m, "tag"), "a,b,c,d,e");
    m->sortByField_("when"_ns);
    EXPECT_EQ(column(m, "tag"), "e,d,c,b,a");
    m->sortByField_("when"_ns);
    EXPECT_EQ(column(m, "tag"), "a,b,c,d,e");
}

TEST_F(MatrixTest, SortOrdersNumbersAndMixedKindsAsCompareSays) {
    // Kinds rank as strings (a missing value is the empty string), then
    // numbers by value; the rows start out of that order.
    VTMatrix* m = makeMatrix("events");
    NSObject* values[] = {NSNumber::numberWithInt_(5), "x"_ns, NSNumber::numberWithInt_(-2),
                          nullptr, NSNumber::numberWithDouble_(3.5)};
    const char* tags[] = {"e", "b", "c", "a", "d"};
    for (uint32_t row = 0; row < 5; row++) {
        m->setValue_inRow_column_(NSString::stringWithUTF8String_(tags[row]), row, "tag"_ns);
        if (values[row]) m->setValue_inRow_column_(values[row], row, "n"_ns);
    }
    m->sortByField_("n"_ns);
    EXPECT_EQ(column(m, "tag"), "a,b,c,d,e");
    m->sortByField_("n"_ns);
    EXPECT_EQ(column(m, "tag"), "e,d,c,b,a");
    // Numbers alone, and a row order that a sort must change.
    m->setValue_inRow_column_(NSNumber::numberWithInt_(0), 0, "n"_ns);   // was e
    m->setValue_inRow_column_(NSNumber::numberWithInt_(9), 1, "n"_ns);   // was d
    m->setValue_inRow_column_(NSNumber::numberWithInt_(-7), 3, "n"_ns);  // was b
    m->setValue_inRow_column_(NSNumber::numberWithInt_(4), 4, "n"_ns);   // was a
    m->sortByField_("n"_ns);
    EXPECT_EQ(column(m, "n"), "-7,-2,0,4,9");
}

TEST_F(MatrixTest, ReferencesResolveHalfResolveAndFail) {
    VTMatrix* users = makeMatrix("user");
    users->setValue_inRow_column_("Ada"_ns, 0, "firstName"_ns);
    users->setValue_inRow_column_("Lovelace"_ns, 0, "lastName"_ns);
    users->setValue_inRow_column_("Bob"_ns, 1, "firstName"_ns);  // no lastName
    std::string ada = str(users->valueInRow_column_(0, "__recordId"_ns));
    std::string bob = str(users->valueInRow_column_(1, "__recordId"_ns));

    VTMatrix* m = makeMatrix("tasks");
    m->addField_(words({"title", "string"}));
    NSMutableArray* owner = NSArray::arrayWithObjects_("owner"_ns, "reference"_ns, "user"_ns,
                                                       words({"firstName", "lastName"}), nullptr);
    m->addField_(owner);
    NSMutableArray* team = NSArray::arrayWithObjects_("team"_ns, "multireference"_ns, "user"_ns,
                                                      words({"firstName", "lastName"}), nullptr);
    m->addField_(team);
    NSString* adaId = NSString::stringWithUTF8String_(ada.c_str());
    NSString* both = NSString::stringWithFormat_("%s %s", ada.c_str(), bob.c_str());
    NSString* half = NSString::stringWithFormat_("%s gone-1", ada.c_str());

    EXPECT_EQ(str(m->resolveValue_forField_(adaId, "owner"_ns)), "Ada Lovelace");
    // A display field the record lacks shows its name.
    EXPECT_EQ(str(m->resolveValue_forField_(both, "team"_ns)), "Ada Lovelace Bob lastName");
    EXPECT_EQ(str(m->resolveValue_forField_(adaId, "title"_ns)), ada);  // not a reference

    std::string log =
            logOf([&] { EXPECT_EQ(str(m->resolveValue_forField_(half, "team"_ns)), "???"); });
    EXPECT_EQ(log, "##### gone-1 multireference\n");
    log = logOf([&] { EXPECT_EQ(str(m->resolveValue_forField_(""_ns, "owner"_ns)), "???"); });
    EXPECT_EQ(log, "#####  reference\n");

    // Sorting a reference field sorts by display text; no value sorts first.
    m->setValue_inRow_column_(NSString::stringWithUTF8String_(bob.c_str()), 0, "owner"_ns);
    m->setValue_inRow_column_(adaId, 1, "owner"_ns);
    m->setValue_inRow_column_("t3"_ns, 2, "title"_ns);
    m->sortByField_("owner"_ns);
    EXPECT_EQ(column(m, "owner"), "nil," + ada + "," + bob);
}

TEST_F(MatrixTest, SeenMarksShowInTheSeenColumn) {
    VTMatrix* m = people({"Ada", "Bob"});
    Ref<NSTableColumn> seen = adoptRef(
            static_cast<NSTableColumn*>(NSTableColumn::alloc()->initWithIdentifier_("_seen_"_ns)));
    Ref<NSTableColumn> name = adoptRef(
            static_cast<NSTableColumn*>(NSTableColumn::alloc()->initWithIdentifier_("name"_ns)));
    EXPECT_EQ(str(m->tableView_objectValueForTableColumn_row_(nullptr, seen, 1)), "*");
    m->markAsSeen_rowIndex_(true, 1);
    EXPECT_EQ(str(m->tableView_objectValueForTableColumn_row_(nullptr, seen, 1)), "");
    EXPECT_EQ(str(m->tableView_objectValueForTableColumn_row_(nullptr, seen, 0)), "*");
    EXPECT_EQ(m->seenRecords()->count(), 1u);
    m->markAsSeen_recordId_(false,
                            static_cast<NSString*>(m->valueInRow_column_(1, "__recordId"_ns)));
    EXPECT_EQ(str(m->tableView_objectValueForTableColumn_row_(nullptr, seen, 1)), "*");
    EXPECT_EQ(workspace->saves, 2);
    EXPECT_EQ(str(m->tableView_objectValueForTableColumn_row_(nullptr, name, 0)), "Ada");
    EXPECT_EQ(m->numberOfRowsInTableView_(nullptr), 2);
}

TEST_F(MatrixTest, ASecondaryMatrixSharesRecordsStoreAndName) {
    VTMatrix* primary = people({"Ada"});
    VTMatrix* secondary = makeMatrix("ignored", primary);
    EXPECT_EQ(str(secondary->name()), "people");
    EXPECT_EQ(secondary->allObjectsSorted(), primary->allObjectsSorted());
    EXPECT_EQ(secondary->container(), primary->container());
    EXPECT_EQ(primary->colleagues()->count(), 2u);
    secondary->beginTransaction();
    secondary->setValue_inRow_column_("Bob"_ns, 1, "name"_ns);
    secondary->commitTransaction_(false);
    EXPECT_EQ(column(primary, "name"), "Ada,Bob");
    EXPECT_EQ(stored("data/people"), 2u);

    std::string log = logOf([&] { primary->load(); });
    EXPECT_EQ(log, "matrix loaded already: people\n");
    EXPECT_EQ(primary->numberOfRows(), 2u);
}

TEST_F(MatrixTest, RowForObjectFindsByIdOrAppendsAndIdsAreUnique) {
    VTMatrix* m = people({"Ada"});
    NSMutableDictionary* copy = NSMutableDictionary::dictionary();
    copy->setObject_forKey_(m->valueInRow_column_(0, "__recordId"_ns), "__recordId"_ns);
    EXPECT_EQ(m->rowForObject_(copy), 0u);
    NSMutableDictionary* stranger = NSMutableDictionary::dictionary();
    stranger->setObject_forKey_("elsewhere-9"_ns, "__recordId"_ns);
    EXPECT_EQ(m->rowForObjectUnlocked_(stranger), -1);
    EXPECT_EQ(m->rowForObject_(stranger), 1u);
    EXPECT_EQ(m->objectWithRecordId_("elsewhere-9"_ns), stranger);

    std::string a = str(VTMatrix::uniqueId());
    std::string b = str(VTMatrix::uniqueId());
    EXPECT_NE(a, b);
    EXPECT_NE(a.find('-'), std::string::npos);
    EXPECT_EQ(m->objectsWithValue_inColumn_("Ada"_ns, "name"_ns)->count(), 1u);

    // A record without an id is none of the rows, also when a row lacks
    // one as well.
    static_cast<NSMutableDictionary*>(m->allObjectsSorted()->objectAtIndex_(0))
            ->removeObjectForKey_("__recordId"_ns);
    EXPECT_EQ(m->rowForObjectUnlocked_(NSMutableDictionary::dictionary()), -1);
}

TEST_F(MatrixTest, AMultireferenceIsTrimmedOnceAsAWhole) {
    VTMatrix* users = makeMatrix("user");
    users->setValue_inRow_column_("Ada"_ns, 0, "firstName"_ns);
    users->setValue_inRow_column_(""_ns, 0, "lastName"_ns);
    users->setValue_inRow_column_("Bob"_ns, 1, "firstName"_ns);
    users->setValue_inRow_column_("Builder"_ns, 1, "lastName"_ns);
    VTMatrix* m = makeMatrix("tasks");
    m->addField_(NSArray::arrayWithObjects_("team"_ns, "multireference"_ns, "user"_ns,
                                            words({"firstName", "lastName"}), nullptr));
    NSString* both = NSString::stringWithFormat_(
            "%s %s", str(users->valueInRow_column_(0, "__recordId"_ns)).c_str(),
            str(users->valueInRow_column_(1, "__recordId"_ns)).c_str());
    // Ada's empty last name keeps its blank between the two parts.
    EXPECT_EQ(str(m->resolveValue_forField_(both, "team"_ns)), "Ada  Bob Builder");
}

// Stores people and damages the store's data file afterwards, as a cut
// copy would: the index names blocks beyond its end.
class FailedCommitTest : public MatrixTest {
protected:
    static std::string names(const char* stem) {
        Ref<LXContainer> c = adoptRef(
                LXContainer::alloc()->initWithName_(NSString::stringWithUTF8String_(stem)));
        NSMutableArray* all = c->query_(NSMutableDictionary::classObject());
        std::vector<std::string> out;
        for (uint32_t i = 0; i < all->count(); i++)
            out.push_back(str(
                    static_cast<NSDictionary*>(all->objectAtIndex_(i))->objectForKey_("name"_ns)));
        std::sort(out.begin(), out.end());
        std::string text;
        for (auto& n : out) text += (text.empty() ? "" : ",") + n;
        return text;
    }
};

TEST_F(FailedCommitTest, AFullDiskFailsTheCommitPutsTheRowsBackAndSendsNothing) {
    VTMatrix* m = people({"Ada", "Bob"});
    NSObject* bob = m->allObjectsSorted()->objectAtIndex_(1);
    std::string bobId = str(m->valueInRow_column_(1, "__recordId"_ns));
    // Whichever write fails (a block, the index), nothing of the
    // transaction stays: not on disk, not in the rows, not in a delta.
    for (int failing = 1; failing <= 3; failing++) {
        SCOPED_TRACE(failing);
        m->beginTransaction();
        m->setValue_inRow_column_("Ada B"_ns, 0, "name"_ns);
        m->setValue_inRow_column_("Cy"_ns, 2, "name"_ns);
        m->removeRow_(1);
        LXContainer::failWriteForTesting(failing);
        bool committed = true;
        std::string log = logOf([&] { committed = m->commitTransaction(); });
        LXContainer::failWriteForTesting(0);
        EXPECT_FALSE(committed);
        EXPECT_NE(log.find("commit failed in people: the store could not be written\n"),
                  std::string::npos)
                << log;
        EXPECT_EQ(column(m, "name"), "Ada,Bob");
        EXPECT_EQ(m->allObjectsSorted()->objectAtIndex_(1), bob);
        EXPECT_EQ(m->objectWithRecordId_(NSString::stringWithUTF8String_(bobId.c_str())), bob);
        EXPECT_EQ(m->index()->count(), 2u);
        EXPECT_EQ(m->valueInRow_column_(0, "__modifier"_ns), nullptr);
        EXPECT_FALSE(m->inTransaction());
        EXPECT_TRUE(workspace->synchronized.empty());
        EXPECT_TRUE(workspace->deleted.empty());
        EXPECT_EQ(names("data/people"), "Ada,Bob");
    }
    // The next commit that works stores its own change and nothing of the
    // failed ones.
    m->beginTransaction();
    m->setValue_inRow_column_("Bo"_ns, 1, "name"_ns);
    EXPECT_TRUE(m->commitTransaction());
    EXPECT_EQ(names("data/people"), "Ada,Bo");
    EXPECT_EQ(workspace->synchronized, std::vector<std::string>{bobId + ": name"});
}

TEST_F(FailedCommitTest, ADamagedStoreRefusesEveryChangeAndTouchesNoFile) {
    people({"Ada", "Bob"});
    std::filesystem::resize_file("data/people.vcd", 10);
    std::string index = vt_test::readFile("data/people.vci");
    VTMatrix* m = nullptr;
    logOf([&] { m = makeMatrix("people"); });
    ASSERT_TRUE(m->container()->isDamaged());
    EXPECT_EQ(m->numberOfRows(), 0u);
    m->beginTransaction();
    m->setValue_inRow_column_("Cy"_ns, 0, "name"_ns);
    bool committed = true;
    std::string log = logOf([&] { committed = m->commitTransaction_(false); });
    EXPECT_FALSE(committed);
    EXPECT_EQ(log, "commit failed in people: the store is damaged\n");
    EXPECT_EQ(m->numberOfRows(), 0u);
    EXPECT_EQ(m->index()->count(), 0u);
    EXPECT_EQ(std::filesystem::file_size("data/people.vcd"), 10u);
    EXPECT_EQ(vt_test::readFile("data/people.vci"), index);
}

}  // namespace
