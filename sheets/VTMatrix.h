// The in-memory table of a sheet's records. Records are mutable
// dictionaries (field name to value, plus the reserved keys below) held in
// row order and by id; every change is made in place inside a transaction
// and written to the sheet's container at commit, when the workspace may
// also be told of it for replication.
//
// Reserved keys: __recordId (string, unique over all users), __created and
// __creator (set by the first commit), __modified and __modifier (set by
// every commit that replicates), and the versions of VTRecordVersions.h
// (__versions, __history, __removed).
//
// Versions. A commit that replicates gives each changed field a new
// version and keeps the value it replaced in the record's history; a
// removal that replicates keeps the record as a tombstone: stored in the
// same container with its __removed version, but no row, not in the index,
// and so in no table, list or export. Changes from other users are merged
// by version (takeIncomingRecord, takeIncomingRemoval), so that every
// installation ends with the same records. A workspace answering false to
// keepsRecordVersions turns all of this off (see VTWorkspaceSync.cpp).
//
// The matrix speaks to its workspace only by message (sheets,
// currentUserId, setForSeenForKey:, saveSetsForSeen,
// synchronizeFields:ofObject:inSheet:,
// synchronizeDeletionOfObjectWithId:inSheet:), so any object answering
// those can stand in for it.
#pragma once

#include <cstdint>
#include <unordered_set>
#include <vector>

#include "foundation/NSArray.h"
#include "foundation/NSDictionary.h"
#include "foundation/NSLock.h"
#include "foundation/NSSet.h"
#include "storage/LXContainer.h"
#include "structures/VTKeyedArrays.h"

class NSTableColumn;
class VTSheet;

class VTMatrix : public NSObject {
    NS_DECLARE_CLASS(VTMatrix, NSObject)

public:
    // A new record id, autoreleased: the present time, the negated count of
    // ids made by this process, and a random number from 0 to 2^31 - 1 from
    // the system's cryptographic random source, as number texts.
    static NSString* uniqueId();

    // With a source the matrix shares the source's store (container, and at
    // load its records) and takes its name; without one it opens
    // "data/<name>". The sheets map, workspace and sheet are not retained.
    VTMatrix* initWithName_sheets_workspace_sheet_source_(NSString* name, NSDictionary* sheets,
                                                          NSObject* workspace, VTSheet* sheet,
                                                          VTMatrix* source);
    // Reads the records once; a second call logs "matrix loaded already".
    void load();
    // Enters the descriptor (name, type, ...) under its element 0.
    void addField_(NSArray* descriptor);
    VTSheet* sheet() { return _sheet; }
    NSObject* workspace() { return _workspace; }
    VTMatrix* source() { return _source; }
    uint32_t numberOfRows();
    int32_t numberOfRowsInTableView_(NSObject* tableView);
    // "_seen_": "*" for a record the user hasn't seen, "" otherwise; any
    // other column: the raw value.
    NSObject* tableView_objectValueForTableColumn_row_(NSObject* tableView, NSTableColumn* column,
                                                       int32_t row);
    // The raw stored value, nil for a row beyond the table.
    NSObject* valueInRow_column_(uint32_t row, NSString* field);
    NSMutableDictionary* objectWithRecordId_(NSString* recordId);
    // Autoreleased; records whose field isEqual: the value, unordered.
    NSMutableArray* objectsWithValue_inColumn_(NSObject* value, NSString* field);
    NSMutableArray* allObjects();
    // The live row array (not a copy).
    NSMutableArray* allObjectsSorted() { return _objects; }
    // Row of the record with the argument's id; appends the argument when
    // there is none. Under writeLock.
    uint32_t rowForObject_(NSMutableDictionary* record);
    // -1 when no row has the argument's id, and always for a record without
    // one.
    int32_t rowForObjectUnlocked_(NSMutableDictionary* record);
    void setValue_inRow_column_(NSObject* value, uint32_t row, NSString* field);
    // Sets the value in place, appending fresh records up to the row. Inside
    // a transaction the record is pending and the field goes to the next
    // delta, unless `onlyChangedFields` and the value equals the old one.
    void setValue_inRow_column_onlyChangedFields_(NSObject* value, uint32_t row, NSString* field,
                                                  bool onlyChangedFields);
    void removeRow_(uint32_t row);
    void removeRecord_(NSString* recordId);
    // Waits for transactionLock, which the commit or rollback releases.
    void beginTransaction();
    // Whether every change of the transaction reached the disk. On failure
    // (a damaged container, a full disk) nothing is replicated, the matrix
    // is back as it was at beginTransaction, and the workspace is told with
    // commitFailedInSheet:.
    bool commitTransaction();
    bool commitTransaction_(bool synchronize);
    // Forgets the pending sets; the records keep their changes.
    void rollbackTransaction();
    // The other user's copy of a record, inside an open transaction: merged
    // into the record of the same id, live or tombstone, by version, or
    // entered whole when the id is new here. Answers the live record, nil
    // when it is (still) removed; `changed` tells whether anything is to be
    // stored (a repeated or older copy changes nothing).
    NSMutableDictionary* takeIncomingRecord(NSMutableDictionary* object, NSArray* fields,
                                            bool* changed);
    // Another user's removal, inside an open transaction: the record's
    // removal version becomes the newer of the two, and the record leaves
    // the rows if no field is newer. An id unknown here leaves a tombstone,
    // so that older changes arriving later don't bring the record in.
    // Answers whether anything is to be stored.
    bool takeIncomingRemoval(NSString* recordId, NSString* version);
    // The removed records kept here, by id (shared by colleagues).
    NSMutableDictionary* tombstones() { return _tombstones; }
    NSMutableDictionary* tombstoneWithRecordId_(NSString* recordId);
    bool keepsVersions() { return _versioned != 0; }
    // Ascending; the same field again reverses the present order.
    void sortByField_(NSString* field);
    void sortByFirstField();
    // The display text of a reference value ("???" if an id is missing);
    // other values unchanged.
    NSObject* resolveValue_forField_(NSObject* value, NSString* field);
    NSMutableSet* seenRecords();
    void markAsSeen_recordId_(bool seen, NSString* recordId);
    void markAsSeen_rowIndex_(bool seen, uint32_t row);

    // For the sheet and for tests.
    NSString* name() { return _name; }
    LXContainer* container() { return _container; }
    NSMutableDictionary* fields() { return _fields; }
    NSMutableDictionary* index() { return _index; }
    NSString* lastSortedBy() { return _lastSortedBy; }
    bool isLoaded() { return _loaded != 0; }
    bool inTransaction() { return _unsynchronizedObjects != nullptr; }
    NSMutableArray* colleagues() { return _colleagues; }

    void dealloc() override;

    // The display text of one referenced record: the display fields' raw
    // values (or their names), each followed by a blank, trimmed.
    static NSString* displayText(NSDictionary* record, NSArray* displayFields);
    // The same without the trimming, appended to `text`.
    static void appendDisplayText(NSMutableString* text, NSDictionary* record,
                                  NSArray* displayFields);

protected:
    ~VTMatrix() override = default;

private:
    // Appends a record (under writeLock) and enters it in index.
    void appendRecord(NSMutableDictionary* record);
    void addPending(NSMutableDictionary* record, NSString* kind);
    // The undo log of the open transaction: what each change replaced, so
    // that a commit that fails can put the rows back as they were.
    void noteChange(NSMutableDictionary* record);
    void noteNew(NSMutableDictionary* record);
    void noteRemoval(NSMutableDictionary* record, uint32_t row);
    // Writes the pending entries to the container as one index write;
    // false when any of it failed.
    bool storePending(NSMutableArray* entries, const std::unordered_set<NSObject*>& deleted,
                      NSString* userId, bool synchronize);
    void undoTransaction();
    // The versions of a commit that replicates (before anything is stored).
    void stampVersions(NSMutableArray* entries, const std::unordered_set<NSObject*>& deleted);
    // Who writes here, for versions: the UniqueID of the user's key.
    NSString* writerId();
    // Drops from the store the tombstones older than their lifetime.
    void dropExpiredTombstones();
    void endTransaction();
    friend class VTTableDataSource;

    struct Undo {
        Ref<NSMutableDictionary> record;
        Ref<NSDictionary> before;  // contents before the first change; nil for a record new here
        Ref<NSString> idAtEntry;   // a new record's id as the index knows it
        int32_t removedRow = -1;   // the row of a removed record
        bool revived = false;      // a tombstone that became a row again
    };
    std::vector<Undo> _undo;
    std::unordered_set<NSObject*> _noted;

    Ref<LXContainer> _container;
    Ref<NSMutableDictionary> _index;
    Ref<NSMutableDictionary> _tombstones;
    Ref<NSMutableArray> _objects;
    Ref<NSMutableSet> _unsynchronizedObjects;
    Ref<VTKeyedArrays> _changedFields;
    NSDictionary* _sheets = nullptr;  // the workspace's, not retained
    Ref<NSMutableDictionary> _fields;
    Ref<NSString> _lastSortedBy;
    NSObject* _workspace = nullptr;  // not retained
    VTSheet* _sheet = nullptr;       // not retained
    Ref<NSLock> _writeLock;
    Ref<NSLock> _transactionLock;
    Ref<NSString> _name;
    Ref<VTMatrix> _source;
    Ref<NSMutableArray> _colleagues;
    uint8_t _loaded = 0;
    uint8_t _versioned = 1;
};
