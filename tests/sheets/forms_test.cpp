// Designed forms: render:: turns a form record and its field records into
// a sheet definition, and the definition into a sheet.
#include "foundation/NSValue.h"
#include "sheets/LXListParser.h"
#include "sheets/VTActionTestForm.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "test_workspace.h"

namespace {

std::string written(NSObject* o) {
    if (auto* list = NSDynamicCast<NSArray>(o)) {
        std::string out = "(";
        for (uint32_t i = 0; i < list->count(); i++)
            out += (i ? " " : "") + written(list->objectAtIndex_(i));
        return out + ")";
    }
    return static_cast<NSString*>(o->description())->UTF8String();
}

class FormsTest : public SheetsTest {
protected:
    void SetUp() override {
        SheetsTest::SetUp();
        for (const char* text :
             {"((name role) (field name as string))",
              "((name form) (field name as string) (field label as string) (field source as string)"
              " (field status as string) (field readers as string) (field updaters as string)"
              " (field removers as string))",
              "((name formfield) (field form as string) (field order as string)"
              " (field name as string) (field label as string) (field type as string)"
              " (field location as string) (field required as string)"
              " (field default as string) (field parameters as string)"
              " (field tooltip as string))",
              "((name user) (field firstName as string) (field lastName as string))"}) {
            NSArray* list =
                    LXListParser::listParserWithString_(NSString::stringWithUTF8String_(text))
                            ->parse();
            auto* sheet = static_cast<VTSheet*>(
                    VTSheet::alloc()->initWithArray_workspace_(list, workspace));
            ASSERT_NE(sheet, nullptr) << text;
            workspace->sheets()->setObject_forKey_(sheet, sheet->name());
            sheet->release();
        }
    }
    VTMatrix* matrix(const char* name) {
        return static_cast<VTSheet*>(
                       workspace->sheets()->objectForKey_(NSString::stringWithUTF8String_(name)))
                ->matrix();
    }
    NSString* add(const char* sheet, std::initializer_list<std::pair<const char*, const char*>> l) {
        VTMatrix* m = matrix(sheet);
        uint32_t row = m->numberOfRows();
        m->beginTransaction();
        for (auto& [key, value] : l)
            m->setValue_inRow_column_(NSString::stringWithUTF8String_(value), row,
                                      NSString::stringWithUTF8String_(key));
        m->commitTransaction();
        return static_cast<NSString*>(m->valueInRow_column_(row, "__recordId"_ns));
    }
    void field(NSString* form, const char* order, const char* name, const char* type,
               const char* location = "table", const char* required = "no",
               const char* parameters = "") {
        add("formfield", {{"form", form->UTF8String()},
                          {"order", order},
                          {"name", name},
                          {"label", "A label"},
                          {"type", type},
                          {"location", location},
                          {"required", required},
                          {"parameters", parameters},
                          {"default", ""}});
    }
    std::string definition(uint32_t row) {
        auto* form =
                static_cast<NSDictionary*>(matrix("form")->allObjectsSorted()->objectAtIndex_(row));
        return written(VTActionTestForm::definitionOfForm(form, matrix("form")));
    }
};

TEST_F(FormsTest, FieldsComeInTextOrderWithTheirClauses) {
    NSString* staff = add("role", {{"name", "staff"}});
    NSString* form = add("form", {{"name", "visit"},
                                  {"label", "Visit reports"},
                                  {"source", ""},
                                  {"readers", staff->UTF8String()},
                                  {"updaters", ""},
                                  {"removers", "nobody"}});
    NSString* other = add("form", {{"name", "other"}});
    field(form, "2", "b", "multiline", "form", "Yes");
    field(form, "10", "a", "string", "", "yes");
    field(other, "0", "elsewhere", "string");
    field(form, "1", "c", "datepicker");
    field(form, "3", "d", "enumeration", "table", "no", "low, medium , high");
    field(form, "4", "e", "reference", "table", "no", "user:firstName lastName");
    field(form, "5", "f", "datetimepicker");
    std::string text = definition(0);
    std::string expected =
            "((_source ) (name visit labelled (Visit reports))"
            " (field (c labelled A label) as datetimepicker)"
            " (field (a labelled A label) as string) (validate a notempty)"
            " (formfield (b labelled A label) as multiline)"
            " (field (d labelled A label) as enum (low medium high))"
            " (field (e labelled A label) as reference user (firstName lastName))"
            " (restrict read (staff)) (restrict update ()) (restrict remove ())"
            " (action (Report designer) VTActionOpenReportDesigner perform)"
            " (action (Open as PDF) VTActionCreatePDF perform))";
    EXPECT_EQ(text, expected);

    VTActionTestForm* action = static_cast<VTActionTestForm*>(VTActionTestForm::alloc()->init());
    VTSheet* sheet = action->render__(NSNumber::numberWithInt_(0), matrix("form"));
    ASSERT_NE(sheet, nullptr);
    EXPECT_EQ(str(sheet->name()), "visit");
    EXPECT_EQ(str(sheet->title()), "Visit reports");
    EXPECT_EQ(sheet->fields()->count(), 5u);
    EXPECT_TRUE(sheet->inView()->member_("a"_ns));
    EXPECT_FALSE(sheet->inView()->member_("b"_ns));
    EXPECT_TRUE(sheet->isPrimary());
    EXPECT_EQ(sheet->actions()->count(), 2u);
    sheet->release();
    action->release();
}

TEST_F(FormsTest, OrdersOfEqualTextKeepTheirPlaceAndASourceIsNamed) {
    NSString* form = add("form", {{"name", "mine"}, {"label", "Mine"}, {"source", "user"}});
    field(form, "02", "second", "string");
    field(form, "01", "first", "string");
    field(form, "02", "third", "string");
    field(form, "10", "last", "string");
    std::string text = definition(0);
    EXPECT_EQ(text.substr(0, text.find(" (restrict")),
              "((source user) (name mine labelled (Mine))"
              " (field (first labelled A label) as string)"
              " (field (second labelled A label) as string)"
              " (field (third labelled A label) as string)"
              " (field (last labelled A label) as string)");
}

}  // namespace
