#include "sheets/VTActionTestForm.h"

#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"

namespace {

NSString* textIn(NSDictionary* record, const char* key) {
    auto* value =
            NSDynamicCast<NSString>(record->objectForKey_(NSString::stringWithUTF8String_(key)));
    return value ? value : ""_ns;
}

NSArray* list(std::initializer_list<NSObject*> items) {
    NSMutableArray* result =
            NSMutableArray::arrayWithCapacity_(static_cast<uint32_t>(items.size()));
    for (NSObject* item : items) result->addObject_(item);
    return result;
}

VTMatrix* matrixOf(NSObject* workspace, NSString* name) {
    auto* sheets = NSSend<NSDictionary*>(workspace, NS_SEL("sheets"));
    auto* sheet = sheets ? NSDynamicCast<VTSheet>(sheets->objectForKey_(name)) : nullptr;
    return sheet ? sheet->matrix() : nullptr;
}

// The field records sorted by `order` as text (10 before 9), equal orders
// in their former order: each out-of-order neighbour pair is swapped and
// the walk steps back to compare again.
NSMutableArray* sortedByOrder(NSArray* records) {
    NSMutableArray* sorted = NSMutableArray::arrayWithArray_(records);
    uint32_t i = 0;
    while (sorted->count() > 1 && i < sorted->count() - 1) {
        Ref<NSDictionary> a = retainRef(static_cast<NSDictionary*>(sorted->objectAtIndex_(i)));
        Ref<NSDictionary> b = retainRef(static_cast<NSDictionary*>(sorted->objectAtIndex_(i + 1)));
        if (textIn(a, "order")->compare_(textIn(b, "order")) > 0) {
            sorted->replaceObjectAtIndex_withObject_(i, b);
            sorted->replaceObjectAtIndex_withObject_(i + 1, a);
            i = i == 0 ? 1 : i - 1;
        } else {
            i++;
        }
    }
    return sorted;
}

// The field clause of a formfield record, or nil for a type that makes
// none.
NSArray* fieldClause(NSDictionary* field) {
    NSString* name = textIn(field, "name");
    NSString* kind = textIn(field, "location")->isEqual_("form"_ns) ? "formfield"_ns : "field"_ns;
    NSArray* nameForm = list({name, "labelled"_ns, textIn(field, "label")});
    NSString* type = textIn(field, "type");
    NSString* parameters = textIn(field, "parameters");
    if (type->isEqual_("string"_ns) || type->isEqual_("multiline"_ns))
        return list({kind, nameForm, "as"_ns, type});
    // A date of a form always has a time.
    if (type->isEqual_("datepicker"_ns))
        return list({kind, nameForm, "as"_ns, "datetimepicker"_ns});
    if (type->isEqual_("enumeration"_ns))
        return list({kind, nameForm, "as"_ns, "enum"_ns,
                     parameters->componentsSeparatedByString_(","_ns)});
    if (type->isEqual_("reference"_ns) || type->isEqual_("multireference"_ns)) {
        NSArray* parts = parameters->componentsSeparatedByString_(":"_ns);
        if (parts->count() < 2) {
            LOG("form field %s: the parameters '%s' name no sheet:fields; field left out",
                name->UTF8String(), parameters->UTF8String());
            return nullptr;
        }
        auto* display = static_cast<NSString*>(parts->objectAtIndex_(1));
        return list({kind, nameForm, "as"_ns, type, parts->objectAtIndex_(0), display->split()});
    }
    return nullptr;
}

}  // namespace

NSArray* VTActionTestForm::definitionOfForm(NSDictionary* form, VTMatrix* forms) {
    NSObject* workspace = forms->workspace();
    NSMutableArray* definition = NSMutableArray::arrayWithCapacity_(20);
    NSString* source = textIn(form, "source");
    // An empty source gives a clause that nothing reads.
    definition->addObject_(list({source->length() ? "source"_ns : "_source"_ns, source}));
    NSString* name = textIn(form, "name");
    definition->addObject_(list({"name"_ns, name, "labelled"_ns, list({textIn(form, "label")})}));

    NSObject* formId = form->objectForKey_("__recordId"_ns);
    VTMatrix* fieldMatrix = matrixOf(workspace, "formfield"_ns);
    NSArray* fields =
            sortedByOrder(fieldMatrix ? fieldMatrix->allObjectsSorted() : NSMutableArray::array());
    for (uint32_t i = 0, n = fields->count(); i < n; i++) {
        auto* field = static_cast<NSDictionary*>(fields->objectAtIndex_(i));
        NSObject* owner = field->objectForKey_("form"_ns);
        if (!formId || !owner || !owner->isEqual_(formId)) continue;
        NSString* key = textIn(field, "name");
        if (NSArray* clause = fieldClause(field)) definition->addObject_(clause);
        if (textIn(field, "required")->isEqual_("yes"_ns))
            definition->addObject_(list({"validate"_ns, key, "notempty"_ns}));
        NSString* tooltip = textIn(field, "tooltip");
        if (tooltip->length()) definition->addObject_(list({"tooltip"_ns, key, tooltip}));
        NSString* fallback = textIn(field, "default");
        if (fallback->length()) definition->addObject_(list({"default"_ns, key, fallback}));
    }

    // Rights: a role id that finds no role, like the one empty part of an
    // empty value, gives an empty role list, a role that nobody holds.
    VTMatrix* roles = matrixOf(workspace, "role"_ns);
    struct Right {
        const char* field;
        NSString* action;
    };
    for (const Right& right : {Right{"readers", "read"_ns}, Right{"updaters", "update"_ns},
                               Right{"removers", "remove"_ns}}) {
        NSArray* ids = textIn(form, right.field)->split();
        for (uint32_t i = 0, n = ids->count(); i < n; i++) {
            auto* id = static_cast<NSString*>(ids->objectAtIndex_(i));
            NSDictionary* role = roles ? roles->objectWithRecordId_(id) : nullptr;
            NSArray* names = role ? list({textIn(role, "name")}) : NSMutableArray::array();
            definition->addObject_(list({"restrict"_ns, right.action, names}));
        }
    }
    definition->addObject_(list({"action"_ns, list({"Report designer"_ns}),
                                 "VTActionOpenReportDesigner"_ns, "perform"_ns}));
    definition->addObject_(
            list({"action"_ns, list({"Open as PDF"_ns}), "VTActionCreatePDF"_ns, "perform"_ns}));
    return definition;
}

VTSheet* VTActionTestForm::render__(NSNumber* row, VTMatrix* forms) {
    if (!row || !forms || row->intValue() < 0 ||
        static_cast<uint32_t>(row->intValue()) >= forms->numberOfRows())
        return nullptr;
    auto* form = static_cast<NSDictionary*>(
            forms->allObjectsSorted()->objectAtIndex_(static_cast<uint32_t>(row->intValue())));
    NSArray* definition = definitionOfForm(form, forms);
    return static_cast<VTSheet*>(
            VTSheet::alloc()->initWithArray_workspace_(definition, forms->workspace()));
}

void VTActionTestForm::perform__(NSNumber* row, VTMatrix* forms) {
    auto* sheets =
            forms ? NSSend<NSMutableDictionary*>(forms->workspace(), NS_SEL("sheets")) : nullptr;
    if (!sheets) return;
    // Every form the tested one may refer to gets a sheet with controls.
    for (uint32_t i = 0; i < forms->numberOfRows(); i++) {
        auto* form = static_cast<NSDictionary*>(forms->allObjectsSorted()->objectAtIndex_(i));
        NSString* name = textIn(form, "name");
        if (!name->length() || sheets->objectForKey_(name)) continue;
        VTSheet* sheet = render__(NSNumber::numberWithInt_(static_cast<int32_t>(i)), forms);
        if (!sheet) continue;
        sheets->setObject_forKey_(sheet, name);
        sheet->prepare_(0);
        sheet->release();
    }
    VTSheet* sheet = render__(row, forms);
    if (!sheet) return;
    sheets->setObject_forKey_(sheet, sheet->name());
    sheet->show();
    sheet->release();
}

NS_CLASS_BEGIN(VTActionTestForm, NSObject)
    NS_METHOD(render__)
    NS_METHOD(perform__)
NS_CLASS_END(VTActionTestForm)
