#include "app/VTActionPushSpaces.h"

#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"

namespace {

const char* fieldText(NSDictionary* record, NSString* key) {
    NSObject* value = record->objectForKey_(key);
    return value ? static_cast<NSString*>(value->description())->UTF8String() : "";
}

}  // namespace

void VTActionPushSpaces::perform__(NSNumber* row, NSObject* argument) {
    // With further atoms in the action clause the matrix comes first in an
    // array.
    NSObject* matrixObject = argument;
    if (argument && argument->isKindOfClass_(NSArray::classObject())) {
        auto* pair = static_cast<NSArray*>(argument);
        matrixObject = pair->count() > 0 ? pair->objectAtIndex_(0) : nullptr;
    }
    if (!row || !matrixObject || !matrixObject->isKindOfClass_(VTMatrix::classObject())) return;
    auto* users = static_cast<VTMatrix*>(matrixObject);
    int32_t index = row->intValue();
    if (index < 0 || static_cast<uint32_t>(index) >= users->numberOfRows()) return;
    auto* user = static_cast<NSDictionary*>(
            users->allObjectsSorted()->objectAtIndex_(static_cast<uint32_t>(index)));

    // The unique user string, formed as the workspace forms the others'
    // (allUsersWithUniqueID): a missing column counts as empty text.
    NSString* addressee = NSString::stringWithFormat_(
            "%s %s/%s/%s-%s", fieldText(user, "firstName"_ns), fieldText(user, "lastName"_ns),
            fieldText(user, "orgUnit"_ns), fieldText(user, "company"_ns),
            fieldText(user, "__recordId"_ns));
    LOG("Pushing to user: %s", addressee->UTF8String());
    NSArray* to = NSArray::arrayWithObjects_(addressee, nullptr);

    NSObject* workspace = users->workspace();
    NSArray* sheets = NSSend<NSArray*>(workspace, NS_SEL("listOfSheets"));
    static const SEL synchronize =
            NSSelectorFromCString("synchronizeFields:ofObject:inSheet:toUsers:");
    for (uint32_t s = 0, n = sheets ? sheets->count() : 0; s < n; s++) {
        NSObject* object = sheets->objectAtIndex_(s);
        if (!object->isKindOfClass_(VTSheet::classObject())) continue;
        auto* sheet = static_cast<VTSheet*>(object);
        if (!sheet->isPrimary() || !sheet->matrix()) continue;
        LOG("Pushing sheet: %s", sheet->name()->UTF8String());
        NSArray* descriptors = sheet->fields();
        NSMutableArray* names =
                NSMutableArray::arrayWithCapacity_(descriptors->count() ? descriptors->count() : 1);
        for (uint32_t f = 0, fn = descriptors->count(); f < fn; f++)
            names->addObject_(
                    static_cast<NSArray*>(descriptors->objectAtIndex_(f))->objectAtIndex_(0));
        NSArray* records = sheet->matrix()->allObjectsSorted();
        for (uint32_t r = 0; r < records->count(); r++)
            NSSend<void>(workspace, synchronize, static_cast<NSObject*>(names),
                         records->objectAtIndex_(r), static_cast<NSObject*>(sheet),
                         static_cast<NSObject*>(to));
    }
}

NS_CLASS_BEGIN(VTActionPushSpaces, NSObject)
    NS_METHOD(perform__)
NS_CLASS_END(VTActionPushSpaces)
