// A sheet's side of replication: applying the changes other users sent, and
// the delivery of message records, whose status runs through
//   sent       the sender's save (willStoreRow:), replicated to everyone
//   delivered  set by the addressee's client on arrival (didReceiveDelta:)
//              and sent out again from there (didProcessDelta:)
//   read       the addressee's first selection of it (didSelectRow:)
// Only a sheet whose store is the `message` sheet's takes part.
//
// The incoming operations run on the transceiver's thread and change the
// matrix inside a transaction of their own, committed without stamps and
// without deltas, so that nothing received is ever sent on. The refresh at
// their end comes after the commit, holding no lock (see
// VTWorkspaceSync.cpp for why the two threads never wait for each other).
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "toolkit/NSTableView.h"

namespace {

bool isMessageSheet(VTSheet* sheet) {
    NSString* store = sheet->primarySourceName();
    return store && store->isEqual_("message"_ns);
}

bool hasText(NSDictionary* record, NSString* key, NSString* text) {
    NSObject* value = record ? record->objectForKey_(key) : nullptr;
    return value && value->isEqual_(text);
}

// Whether the record's addressee (`whom`) is the current user: the UniqueID
// of the workspace's user key.
bool isAddressedToCurrentUser(VTSheet* sheet, NSDictionary* record) {
    NSDictionary* key = NSSend<NSDictionary*>(sheet->workspace(), NS_SEL("userInfo"));
    NSObject* mine = key ? key->objectForKey_("UniqueID"_ns) : nullptr;
    NSObject* whom = record ? record->objectForKey_("whom"_ns) : nullptr;
    return mine && whom && whom->isEqual_(mine);
}

// A matrix row from a hook's argument; -1 for none or a row beyond the
// matrix.
int32_t rowOf(NSNumber* row, VTMatrix* matrix) {
    if (!row || !matrix) return -1;
    int32_t r = row->intValue();
    return r >= 0 && static_cast<uint32_t>(r) < matrix->numberOfRows() ? r : -1;
}

}  // namespace

bool VTSheet::updateFields_ofObject_(NSArray* fields, NSMutableDictionary* object) {
    return updateFields_ofObject_remote_(fields, object, false);
}

bool VTSheet::updateFields_ofObject_remote_(NSArray* fields, NSMutableDictionary* object, bool) {
    if (!_matrix || !object) return false;
    if (!_matrix->keepsVersions()) return applyListedFields(fields, object);
    // Looked up inside the transaction: a removal committed by another
    // thread between look-up and merge would leave a stale record.
    _matrix->beginTransaction();
    bool changed = false;
    NSMutableDictionary* record = _matrix->takeIncomingRecord(object, fields, &changed);
    // Not on disk: the matrix is back as it was and nothing is marked; the
    // sender's delta has to come again.
    if (!_matrix->commitTransaction_(false)) return false;
    if (!changed) return true;
    // Unseen, whoever sent it (a record that stays removed has no row).
    if (record)
        _matrix->markAsSeen_recordId_(
                false, static_cast<NSString*>(record->objectForKey_("__recordId"_ns)));
    refreshAfterIncomingChange();
    return true;
}

// Without versions: the listed fields the sender's record holds are
// written, whatever the record holds here.
bool VTSheet::applyListedFields(NSArray* fields, NSMutableDictionary* object) {
    _matrix->beginTransaction();
    uint32_t row = _matrix->rowForObject_(object);
    auto* record =
            static_cast<NSMutableDictionary*>(_matrix->allObjectsSorted()->objectAtIndex_(row));
    bool wrote = false;
    for (uint32_t i = 0, n = fields ? fields->count() : 0; i < n; i++) {
        NSObject* name = fields->objectAtIndex_(i);
        if (!name || !name->isKindOfClass_(NSString::classObject())) continue;
        // A field the sender's record doesn't hold (it was removed there)
        // is not cleared here.
        NSObject* value = object->objectForKey_(name);
        if (!value) continue;
        _matrix->setValue_inRow_column_(value, row, static_cast<NSString*>(name));
        wrote = true;
    }
    // A record new here entered the matrix whole, but only a written value
    // makes the commit store it; with no listed field in it, it would live
    // in memory only and be gone at the next start. Writing its own id
    // (the same object again) makes it pending without changing it.
    if (record == object && !wrote)
        _matrix->setValue_inRow_column_(object->objectForKey_("__recordId"_ns), row,
                                        "__recordId"_ns);
    if (!_matrix->commitTransaction_(false)) return false;
    // Unseen, whoever sent it. By id, as the row may have moved since the
    // transaction ended.
    _matrix->markAsSeen_recordId_(false,
                                  static_cast<NSString*>(record->objectForKey_("__recordId"_ns)));
    refreshAfterIncomingChange();
    return true;
}

bool VTSheet::updateDeletionOfObjectWithId_(NSString* recordId) {
    return updateDeletionOfObjectWithId_version_(recordId, nullptr);
}

bool VTSheet::updateDeletionOfObjectWithId_version_(NSString* recordId, NSString* version) {
    if (!_matrix) return false;
    // An unknown id finds nothing (or leaves a tombstone); the commit then
    // has at most that to do. The id stays in the seen set.
    _matrix->beginTransaction();
    bool changed = true;
    if (_matrix->keepsVersions())
        changed = _matrix->takeIncomingRemoval(recordId, version);
    else
        _matrix->removeRecord_(recordId);
    if (!_matrix->commitTransaction_(false)) return false;
    if (changed) refreshAfterIncomingChange();
    return true;
}

void VTSheet::refreshAfterIncomingChange() {
    // A reload isn't a user's selection: rowSelected: ignores what it
    // triggers while the flag is set.
    _ignoreRowSelection = 1;
    // Before show: the table has no rows on a screen; the data source
    // filters anew when the sheet is shown.
    if (isFullyInitialized() && _tableView) {
        NSSend<void>(_tableView->dataSource(), NS_SEL("filter"));
        _tableView->reloadData();
    }
    NSSend<void>(_workspace, NS_SEL("refreshSheetsExceptThisOne:"), static_cast<NSObject*>(this));
    _ignoreRowSelection = 0;
}

void VTSheet::didReceiveDelta_(NSMutableDictionary* object) {
    if (object && isMessageSheet(this) && hasText(object, "status"_ns, "sent"_ns) &&
        isAddressedToCurrentUser(this, object))
        object->setObject_forKey_("delivered"_ns, "status"_ns);
    NSRelease(object);
}

void VTSheet::didProcessDelta_(NSMutableDictionary* object) {
    if (object && _matrix && isMessageSheet(this) && hasText(object, "status"_ns, "delivered"_ns) &&
        isAddressedToCurrentUser(this, object)) {
        // Sent out again with replication, so that the sender and everyone
        // else learn "delivered"; at them this hook finds another addressee
        // and the exchange ends.
        _matrix->beginTransaction();
        // A message removed meanwhile stays removed: rowForObject: would
        // enter the delta's copy as a new record.
        if (!_matrix->objectWithRecordId_(
                    static_cast<NSString*>(object->objectForKey_("__recordId"_ns)))) {
            _matrix->rollbackTransaction();
            NSRelease(object);
            return;
        }
        uint32_t row = _matrix->rowForObject_(object);
        _matrix->setValue_inRow_column_onlyChangedFields_("delivered"_ns, row, "status"_ns, false);
        _matrix->setValue_inRow_column_onlyChangedFields_("delivery"_ns, row, "dummy"_ns, false);
        _matrix->commitTransaction_(true);
    }
    NSRelease(object);
}

void VTSheet::didSelectRow_(NSNumber* row) {
    int32_t r = rowOf(row, _matrix);
    if (r >= 0 && isMessageSheet(this)) {
        auto* record = static_cast<NSDictionary*>(_matrix->allObjectsSorted()->objectAtIndex_(r));
        if (hasText(record, "status"_ns, "delivered"_ns) &&
            isAddressedToCurrentUser(this, record)) {
            _matrix->beginTransaction();
            _matrix->setValue_inRow_column_onlyChangedFields_("read"_ns, static_cast<uint32_t>(r),
                                                              "status"_ns, false);
            _matrix->commitTransaction();
        }
    }
    NSRelease(row);
}

void VTSheet::willStoreRow_(NSNumber* row) {
    int32_t r = rowOf(row, _matrix);
    // Not only if changed: a message saved again goes out as "sent" again.
    if (r >= 0 && isMessageSheet(this))
        _matrix->setValue_inRow_column_onlyChangedFields_("sent"_ns, static_cast<uint32_t>(r),
                                                          "status"_ns, false);
    NSRelease(row);
}

NS_EXTEND_CLASS(VTSheet, Replication)
NS_METHOD(updateFields_ofObject_)
NS_METHOD(updateFields_ofObject_remote_)
NS_METHOD(updateDeletionOfObjectWithId_)
NS_METHOD(updateDeletionOfObjectWithId_version_)
NS_METHOD(didReceiveDelta_)
NS_METHOD(didProcessDelta_)
NS_METHOD(didSelectRow_)
NS_METHOD(willStoreRow_)
NS_EXTEND_END
