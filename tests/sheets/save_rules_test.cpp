// The rules of a Save, which the Save button and vantor-admin's record set
// share: validation order and texts, untrimmed storage, hidden fields,
// defaults of a new record, and fields left out of the form values keeping
// what the record holds.
#include "foundation/NSDate.h"
#include "foundation/NSValue.h"
#include "sheets/LXListParser.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSaveRules.h"
#include "sheets/VTSheet.h"
#include "test_workspace.h"

namespace {

constexpr const char* kFormat = "Field '%s' must not be empty.";

class SaveRulesTest : public SheetsTest {
protected:
    VTSheet* define(const char* text) {
        NSArray* list =
                LXListParser::listParserWithString_(NSString::stringWithUTF8String_(text))->parse();
        auto* sheet =
                static_cast<VTSheet*>(VTSheet::alloc()->initWithArray_workspace_(list, workspace));
        if (!sheet) return nullptr;
        workspace->sheets()->setObject_forKey_(sheet, sheet->name());
        sheet->release();
        return sheet;
    }
    void SetUp() override {
        SheetsTest::SetUp();
        people = define("((name person) (field name as string) (field city as string))");
        task = define(
                "((name task)"
                " (field title as string)"
                " (field (status labelled Current state) as enum (open closed))"
                " (field owner as reference person (name))"
                " (field due as datepicker)"
                " (field team as multireference person (name))"
                " (hiddenfield internal as string)"
                " (default status open) (default title Untitled) (default internal x)"
                " (validate due notempty) (validate team notempty) (validate title unique))");
        ASSERT_NE(people, nullptr);
        ASSERT_NE(task, nullptr);
    }
    NSString* addPerson(const char* name) {
        VTMatrix* m = people->matrix();
        uint32_t row = m->numberOfRows();
        m->beginTransaction();
        m->setValue_inRow_column_(NSString::stringWithUTF8String_(name), row, "name"_ns);
        m->commitTransaction();
        return static_cast<NSString*>(m->valueInRow_column_(row, "__recordId"_ns));
    }
    // One Save with the values; answers the row.
    int32_t save(VTSheet* sheet, NSDictionary* values, int32_t row = -1) {
        sheet->matrix()->beginTransaction();
        row = VTSaveWriteFields(sheet, values, row);
        EXPECT_TRUE(sheet->matrix()->commitTransaction());
        return row;
    }
    static NSMutableDictionary* values(std::initializer_list<std::pair<const char*, NSObject*>> l) {
        NSMutableDictionary* d = NSMutableDictionary::dictionary();
        for (auto& [key, value] : l)
            d->setObject_forKey_(value, NSString::stringWithUTF8String_(key));
        return d;
    }
    NSDictionary* record(VTSheet* sheet, int32_t row) {
        return static_cast<NSDictionary*>(
                sheet->matrix()->allObjectsSorted()->objectAtIndex_(static_cast<uint32_t>(row)));
    }

    VTSheet* people = nullptr;
    VTSheet* task = nullptr;
};

TEST_F(SaveRulesTest, ValidationReportsTheFirstFailureInFieldOrderByLabel) {
    task->validation()->addObject_forKey_("notempty"_ns, "status"_ns);
    task->validation()->addObject_forKey_("notempty"_ns, "title"_ns);
    // Both fail; title comes first in field order, whatever the rule order.
    NSDictionary* form = values({{"title", "   "_ns}, {"status", ""_ns}});
    NSString* field = VTSaveFirstEmptyField(task, form, nullptr);
    ASSERT_NE(field, nullptr);
    EXPECT_EQ(str(field), "title");
    // With title filled, the enum: named by its label, not its key.
    form = values({{"title", " Fix "_ns}, {"status", ""_ns}});
    field = VTSaveFirstEmptyField(task, form, nullptr);
    ASSERT_NE(field, nullptr);
    EXPECT_EQ(str(VTSaveEmptyFieldMessage(task, field, NSString::stringWithUTF8String_(kFormat))),
              "Field 'Current state' must not be empty.");
    // Dates and multireferences never fail; unique has no effect.
    form = values({{"title", "Fix"_ns}, {"status", "open"_ns}, {"team", ""_ns}});
    EXPECT_EQ(VTSaveFirstEmptyField(task, form, nullptr), nullptr);
    // An empty reference fails like an enum.
    task->validation()->addObject_forKey_("notempty"_ns, "owner"_ns);
    form = values({{"title", "Fix"_ns}, {"status", "open"_ns}, {"owner", ""_ns}});
    EXPECT_EQ(str(VTSaveFirstEmptyField(task, form, nullptr)), "owner");
}

TEST_F(SaveRulesTest, AHiddenTextFieldWithNotemptyRefusesEverySaveUnlessGiven) {
    task->validation()->addObject_forKey_("notempty"_ns, "internal"_ns);
    NSDictionary* form = values({{"title", "Fix"_ns}});
    EXPECT_EQ(str(VTSaveFirstEmptyField(task, form, nullptr)), "internal");
    int32_t row = save(task, values({{"title", "Fix"_ns}, {"internal", "set"_ns}}));
    // Stored it holds a value, yet the form can't give one: still refused.
    EXPECT_EQ(str(VTSaveFirstEmptyField(task, values({}), record(task, row))), "internal");
}

TEST_F(SaveRulesTest, ANewRecordTakesTheEmptyFormAndStoresTextUntrimmed) {
    int32_t row = save(task, values({{"title", "  two  blanks  "_ns}}));
    NSDictionary* saved = record(task, row);
    EXPECT_EQ(str(saved->objectForKey_("title"_ns)), "  two  blanks  ");
    EXPECT_EQ(str(saved->objectForKey_("status"_ns)), "open");  // the default
    EXPECT_EQ(str(saved->objectForKey_("owner"_ns)), "");
    EXPECT_TRUE(saved->objectForKey_("due"_ns)->isKindOfClass_(NSDate::classObject()));
    // A hidden field has no control, so no default reaches it.
    EXPECT_EQ(saved->objectForKey_("internal"_ns), nullptr);
    row = save(task, values({{"status", "closed"_ns}}));
    EXPECT_EQ(str(record(task, row)->objectForKey_("title"_ns)), "Untitled");
}

TEST_F(SaveRulesTest, FieldsLeftOutKeepWhatTheRecordHolds) {
    NSString* ada = addPerson("Ada");
    NSString* gone = addPerson("Gone");
    int32_t row = save(task, values({{"title", "Fix"_ns}, {"owner", gone}, {"team", ada}}));
    // Values no control could offer, written behind the form's back.
    VTMatrix* m = task->matrix();
    m->beginTransaction();
    m->setValue_inRow_column_("archived"_ns, static_cast<uint32_t>(row), "status"_ns);
    m->setValue_inRow_column_("secret"_ns, static_cast<uint32_t>(row), "internal"_ns);
    m->commitTransaction();
    people->matrix()->beginTransaction();
    people->matrix()->removeRecord_(gone);
    people->matrix()->commitTransaction();
    workspace->synchronized.clear();

    // Another field changes; the untouched ones are left out of the form.
    row = save(task, values({{"title", "Fixed"_ns}}), row);
    NSDictionary* saved = record(task, row);
    EXPECT_EQ(str(saved->objectForKey_("title"_ns)), "Fixed");
    EXPECT_EQ(str(saved->objectForKey_("status"_ns)), "archived");
    EXPECT_EQ(str(saved->objectForKey_("owner"_ns)), str(gone));
    EXPECT_EQ(str(saved->objectForKey_("team"_ns)), str(ada));
    EXPECT_EQ(str(saved->objectForKey_("internal"_ns)), "secret");
    ASSERT_EQ(workspace->synchronized.size(), 1u);
    EXPECT_NE(workspace->synchronized[0].find(": title"), std::string::npos)
            << workspace->synchronized[0];
}

TEST_F(SaveRulesTest, UnfitValuesAreNamed) {
    NSString* ada = addPerson("Ada");
    auto check = [&](const char* field, NSObject* value) {
        return VTSaveUnfitValue(
                task, VTSaveDescriptorOf(task, NSString::stringWithUTF8String_(field)), value);
    };
    EXPECT_EQ(check("status", "open"_ns), "");
    EXPECT_EQ(check("status", ""_ns), "");
    EXPECT_EQ(check("status", "archived"_ns), "not one of: open closed");
    EXPECT_EQ(check("owner", ada), "");
    EXPECT_EQ(check("team", NSString::stringWithFormat_("%s nobody", ada->UTF8String())),
              "no record 'nobody' in the sheet 'person'");
    EXPECT_EQ(check("due", "May"_ns), "a date is expected: {\"$date\": \"...\"}");
    EXPECT_EQ(check("title", NSNumber::numberWithInt_(3)), "text is expected");
    EXPECT_EQ(VTSaveDescriptorOf(task, "nothing"_ns), nullptr);
}

}  // namespace
