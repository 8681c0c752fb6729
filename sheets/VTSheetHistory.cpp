// The history of a record's overwritten values, as the sheet offers it: the
// values that lost to newer ones, here or at another installation, kept in
// the record (VTRecordVersions.h). The sheet's window shows them for the
// selected record; writing one back is an ordinary Save of that value,
// which gives it a new version and so makes it win everywhere.
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "sync/LXVersion.h"

NSMutableArray* VTSheet::historyOfRecordWithId_(NSString* recordId) {
    NSMutableArray* result = NSMutableArray::array();
    NSDictionary* record = _matrix ? _matrix->objectWithRecordId_(recordId) : nullptr;
    NSObject* history = record ? record->objectForKey_("__history"_ns) : nullptr;
    if (!history || !history->isKindOfClass_(NSArray::classObject())) return result;
    auto* entries = static_cast<NSArray*>(history);
    NSObject* field = nullptr;
    int32_t n = 0;
    for (uint32_t i = 0, count = entries->count(); i < count; i++) {
        auto* entry = static_cast<NSDictionary*>(entries->objectAtIndex_(i));
        NSObject* f = entry->objectForKey_("field"_ns);
        n = field && f && f->isEqual_(field) ? n + 1 : 1;
        field = f;
        auto* version = static_cast<NSString*>(entry->objectForKey_("version"_ns));
        NSString* writer = lx::versionWriter(version);
        result->addObject_(NSDictionary::dictionaryWithObjectsAndKeys_(
                f, "field"_ns, entry->objectForKey_("value"_ns), "value"_ns,
                version ? version : ""_ns, "version"_ns, writer ? writer : ""_ns, "writer"_ns,
                NSNumber::numberWithInt_(n), "n"_ns, nullptr));
    }
    return result;
}

NSObject* VTSheet::valueOfField_ofRecordWithId_fromHistoryEntry_(NSString* field,
                                                                 NSString* recordId, uint32_t n) {
    NSMutableArray* history = historyOfRecordWithId_(recordId);
    for (uint32_t i = 0, count = history->count(); i < count; i++) {
        auto* entry = static_cast<NSDictionary*>(history->objectAtIndex_(i));
        if (!entry->objectForKey_("field"_ns)->isEqual_(field)) continue;
        if (static_cast<NSNumber*>(entry->objectForKey_("n"_ns))->intValue() ==
            static_cast<int32_t>(n))
            return entry->objectForKey_("value"_ns);
    }
    return nullptr;
}

NS_EXTEND_CLASS(VTSheet, History)
NS_METHOD(historyOfRecordWithId_)
NS_METHOD(valueOfField_ofRecordWithId_fromHistoryEntry_)
NS_EXTEND_END
