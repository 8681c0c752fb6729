#include "sheets/VTSaveRules.h"

#include "foundation/NSDate.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"

namespace {

NSString* nameOf(NSArray* descriptor) {
    return static_cast<NSString*>(descriptor->objectAtIndex_(0));
}

bool typeIs(NSArray* descriptor, const char* type) {
    return VTSaveTypeOf(descriptor)->isEqual_(NSString::stringWithUTF8String_(type));
}

bool isDate(NSArray* descriptor) {
    return typeIs(descriptor, "datepicker") || typeIs(descriptor, "datetimepicker");
}

bool isText(NSArray* descriptor) {
    return typeIs(descriptor, "string") || typeIs(descriptor, "multiline");
}

// The first of white space separated ids that names no record of the
// target sheet, or nil (the empty text names none).
NSString* unknownRecordIn(VTSheet* sheet, NSString* target, NSString* ids) {
    auto* sheets =
            static_cast<NSDictionary*>(NSSend<NSObject*>(sheet->workspace(), NS_SEL("sheets")));
    auto* targetSheet = sheets ? NSDynamicCast<VTSheet>(sheets->objectForKey_(target)) : nullptr;
    NSArray* parts = ids->split();
    for (uint32_t i = 0; i < parts->count(); i++) {
        auto* id = static_cast<NSString*>(parts->objectAtIndex_(i));
        if (id->length() > 0 && (!targetSheet || !targetSheet->matrix()->objectWithRecordId_(id)))
            return id;
    }
    return nullptr;
}

}  // namespace

NSArray* VTSaveDescriptorOf(VTSheet* sheet, NSString* field) {
    NSArray* fields = sheet->fields();
    for (uint32_t i = 0; i < fields->count(); i++) {
        auto* descriptor = static_cast<NSArray*>(fields->objectAtIndex_(i));
        if (nameOf(descriptor)->isEqual_(field)) return descriptor;
    }
    return nullptr;
}

NSString* VTSaveTypeOf(NSArray* descriptor) {
    return static_cast<NSString*>(descriptor->objectAtIndex_(1));
}

NSObject* VTSaveValueOf(VTSheet* sheet, NSArray* descriptor, NSDictionary* values,
                        NSDictionary* record) {
    NSString* name = nameOf(descriptor);
    if (NSObject* value = values->objectForKey_(name)) return value;
    if (sheet->hiddenFields()->objectForKey_(name)) return nullptr;
    if (NSObject* value = record ? record->objectForKey_(name) : nullptr) return value;
    if (isDate(descriptor)) return NSDate::date();
    bool takesDefault = isText(descriptor) || typeIs(descriptor, "enum");
    NSObject* fallback =
            takesDefault && !record ? sheet->defaultValues()->objectForKey_(name) : nullptr;
    return fallback ? fallback : ""_ns;
}

NSString* VTSaveFirstEmptyField(VTSheet* sheet, NSDictionary* values, NSDictionary* record) {
    NSArray* fields = sheet->fields();
    for (uint32_t i = 0; i < fields->count(); i++) {
        auto* descriptor = static_cast<NSArray*>(fields->objectAtIndex_(i));
        if (sheet->validation()->objectsForKey_(nameOf(descriptor))->indexOfObject_("notempty"_ns) <
            0)
            continue;
        bool text = isText(descriptor);
        if (!text && !typeIs(descriptor, "enum") && !typeIs(descriptor, "reference")) continue;
        NSObject* value = VTSaveValueOf(sheet, descriptor, values, record);
        auto* shown = NSDynamicCast<NSString>(value);
        bool empty = !shown || (text ? shown->trim()->length() == 0 : shown->length() == 0);
        if (empty) return nameOf(descriptor);
    }
    return nullptr;
}

NSString* VTSaveEmptyFieldMessage(VTSheet* sheet, NSString* field, NSString* format) {
    auto* label = static_cast<NSString*>(sheet->fieldLabels()->objectForKey_(field));
    return NSString::stringWithFormat_(format->UTF8String(), (label ? label : field)->UTF8String());
}

std::string VTSaveUnfitValue(VTSheet* sheet, NSArray* descriptor, NSObject* value) {
    if (isDate(descriptor))
        return value->isKindOfClass_(NSDate::classObject())
                       ? ""
                       : "a date is expected: {\"$date\": \"...\"}";
    auto* text = NSDynamicCast<NSString>(value);
    if (!text) return "text is expected";
    if (typeIs(descriptor, "enum")) {
        auto* list = static_cast<NSArray*>(descriptor->objectAtIndex_(2));
        if (text->length() == 0 || list->indexOfObject_(text) >= 0) return "";
        return std::string("not one of: ") + list->componentsJoinedByString_(" "_ns)->UTF8String();
    }
    if (typeIs(descriptor, "reference") || typeIs(descriptor, "multireference")) {
        auto* target = static_cast<NSString*>(descriptor->objectAtIndex_(2));
        if (NSString* id = unknownRecordIn(sheet, target, text))
            return std::string("no record '") + id->UTF8String() + "' in the sheet '" +
                   target->UTF8String() + "'";
    }
    return "";
}

int32_t VTSaveWriteFields(VTSheet* sheet, NSDictionary* values, int32_t row) {
    VTMatrix* m = sheet->matrix();
    NSDictionary* record = nullptr;
    if (row < 0)
        row = static_cast<int32_t>(m->numberOfRows());
    else
        record = static_cast<NSDictionary*>(
                m->allObjectsSorted()->objectAtIndex_(static_cast<uint32_t>(row)));
    NSArray* fields = sheet->fields();
    for (uint32_t i = 0; i < fields->count(); i++) {
        auto* descriptor = static_cast<NSArray*>(fields->objectAtIndex_(i));
        if (NSObject* value = VTSaveValueOf(sheet, descriptor, values, record))
            m->setValue_inRow_column_(value, static_cast<uint32_t>(row), nameOf(descriptor));
    }
    VTSendRowHook(sheet, NS_SEL("willStoreRow:"), row);
    return row;
}

void VTSendRowHook(VTSheet* sheet, SEL hook, int32_t row) {
    if (!sheet->respondsToSelector_(hook)) return;
    NSNumber* number = NSNumber::numberWithInt_(row);
    number->retain();
    sheet->performSelector_withObject_(hook, number);
}
