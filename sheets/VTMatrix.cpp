#include "VTMatrix.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "foundation/NSDate.h"
#include "foundation/NSString.h"
#include "foundation/NSValue.h"
#include "sheets/VTRecordVersions.h"
#include "sheets/VTSheet.h"
#include "sheets/VTWrapper.h"
#include "sync/LXCrypto.h"
#include "sync/LXVersion.h"
#include "toolkit/NSTableColumn.h"

namespace {

std::atomic<int> gIdCounter{0};

NSString* recordIdOf(NSDictionary* record) {
    return record ? static_cast<NSString*>(record->objectForKey_("__recordId"_ns)) : nullptr;
}

bool isReferenceType(NSObject* type) {
    return type && (type->isEqual_("reference"_ns) || type->isEqual_("multireference"_ns));
}

// The pending entry of a record: (record, "set") or (record, "delete").
NSArray* entryOf(NSMutableDictionary* record, NSString* kind) {
    return NSAutorelease(NSArray::alloc()->initWithObjects_(record, kind, nullptr));
}

// The matrix of the sheet of that name in a sheets map, asked by message so
// that any object answering `matrix` serves.
VTMatrix* matrixOfSheet(NSDictionary* sheets, NSObject* sheetName) {
    NSObject* sheet = sheets && sheetName ? sheets->objectForKey_(sheetName) : nullptr;
    return NSSend<VTMatrix*>(sheet, NS_SEL("matrix"));
}

}  // namespace

NSString* VTMatrix::uniqueId() {
    // The last part is drawn from the system's cryptographic random source:
    // a record id is also the address of its user's deltas, and one that
    // follows from the time and a counter (or from a generator whose state
    // a few ids reveal) can be guessed. It keeps the range of rand() (0 to
    // 2^31 - 1), so ids look as they always did.
    uint32_t random = 0;
    LXCrypto::randomBytes(&random, sizeof random);
    int counter = ++gIdCounter;
    NSMutableString* id = NSMutableString::string();
    id->appendString_(
            NSNumber::numberWithDouble_(NSDate::date()->timeIntervalSince1970())->description());
    id->appendString_(NSNumber::numberWithInt_(-counter)->description());
    id->appendString_(
            NSNumber::numberWithInt_(static_cast<int32_t>(random & 0x7fffffff))->description());
    return id;
}

VTMatrix* VTMatrix::initWithName_sheets_workspace_sheet_source_(NSString* name,
                                                                NSDictionary* sheets,
                                                                NSObject* workspace, VTSheet* sheet,
                                                                VTMatrix* source) {
    NSObject::init();
    _name.set(source ? source->name() : name);
    _sheets = sheets;
    _workspace = workspace;
    _sheet = sheet;
    _writeLock.adopt(static_cast<NSLock*>(NSLock::alloc()->init()));
    _transactionLock.adopt(static_cast<NSLock*>(NSLock::alloc()->init()));
    _index.adopt(static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->init()));
    if (workspace && workspace->respondsToSelector_(NS_SEL("keepsRecordVersions")))
        _versioned = NSSend<bool>(workspace, NS_SEL("keepsRecordVersions")) ? 1 : 0;
    _objects.adopt(NSMutableArray::alloc()->initWithCapacity_(10));
    _fields.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10)));
    // The colleagues hold one another by address only: each matrix retaining
    // the shared list that retains it would keep every matrix of a store
    // alive for ever. A matrix takes itself out of the list in dealloc.
    NSValue* self = NSValue::valueWithPointer_(this);
    if (source) {
        _source.set(source);
        _container.set(source->container());
        _tombstones.set(source->tombstones());
        _colleagues.set(source->colleagues());
        if (_colleagues) _colleagues->addObject_(self);
    } else {
        NSString* stem = NSString::stringWithFormat_("data/%s", _name ? _name->UTF8String() : "");
        _container.adopt(LXContainer::alloc()->initWithName_(stem));
        _tombstones.adopt(static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->init()));
        _colleagues.adopt(NSMutableArray::alloc()->initWithCapacity_(4));
        _colleagues->addObject_(self);
    }
    return this;
}

void VTMatrix::dealloc() {
    if (_colleagues) _colleagues->removeObject_(NSValue::valueWithPointer_(this));
    super::dealloc();
}

void VTMatrix::load() {
    if (_loaded) {
        LOG("matrix loaded already: %s", _name ? _name->UTF8String() : "");
        return;
    }
    _loaded = 1;
    if (_source) {
        // The very objects of the source: a record changed through either
        // matrix is changed for both.
        _objects.set(_source->allObjectsSorted());
        _index.set(_source->index());
        return;
    }
    NSMutableArray* records =
            _container ? _container->query_(NSMutableDictionary::classObject()) : nullptr;
    for (uint32_t i = 0, n = records ? records->count() : 0; i < n; i++) {
        auto* record = static_cast<NSMutableDictionary*>(records->objectAtIndex_(i));
        if (vt_versions::isRemoved(record)) {
            _tombstones->setObject_forKey_(record, recordIdOf(record));
            continue;
        }
        _index->setObject_forKey_(record, recordIdOf(record));
        _objects->addObject_(record);
    }
    dropExpiredTombstones();
}

void VTMatrix::dropExpiredTombstones() {
    if (!_container || _container->isDamaged() || _tombstones->count() == 0) return;
    uint64_t now = lx::LXClock::wallMillis();
    NSMutableArray* ids = _tombstones->allKeys();
    uint32_t dropped = 0;
    _container->beginBatch();
    for (uint32_t i = 0, n = ids->count(); i < n; i++) {
        NSObject* id = ids->objectAtIndex_(i);
        auto* record = static_cast<NSDictionary*>(_tombstones->objectForKey_(id));
        uint64_t removed = lx::clockMillis(
                lx::versionClock(static_cast<NSString*>(record->objectForKey_("__removed"_ns))));
        if (removed + vt_versions::kTombstoneLifetimeMillis > now) continue;
        _container->delete_(record);
        _tombstones->removeObjectForKey_(id);
        dropped++;
    }
    _container->endBatch();
    if (dropped > 0)
        LOG("%u removed records of %s expired", dropped, _name ? _name->UTF8String() : "");
}

NSMutableDictionary* VTMatrix::tombstoneWithRecordId_(NSString* recordId) {
    if (!recordId || !_tombstones) return nullptr;
    return static_cast<NSMutableDictionary*>(_tombstones->objectForKey_(recordId));
}

NSString* VTMatrix::writerId() {
    NSDictionary* key = NSSend<NSDictionary*>(_workspace, NS_SEL("userInfo"));
    NSObject* id = key && key->isKindOfClass_(NSDictionary::classObject())
                           ? key->objectForKey_("UniqueID"_ns)
                           : nullptr;
    if (id && id->isKindOfClass_(NSString::classObject())) return static_cast<NSString*>(id);
    return NSSend<NSString*>(_workspace, NS_SEL("currentUserId"));
}

void VTMatrix::stampVersions(NSMutableArray* entries,
                             const std::unordered_set<NSObject*>& deleted) {
    NSString* writer = writerId();
    std::unordered_map<NSObject*, NSDictionary*> before;
    std::unordered_set<NSObject*> made;  // records new in this transaction
    for (const Undo& undo : _undo) {
        if (undo.before) before.emplace(undo.record.get(), undo.before.get());
        if (!undo.before && undo.removedRow < 0 && !undo.revived) made.insert(undo.record.get());
    }
    for (uint32_t i = 0, n = entries->count(); i < n; i++) {
        auto* entry = static_cast<NSArray*>(entries->objectAtIndex_(i));
        auto* record = static_cast<NSMutableDictionary*>(entry->objectAtIndex_(0));
        if (entry->objectAtIndex_(1)->isEqual_("delete"_ns)) {
            // A record made and dropped again in one transaction was never
            // anywhere else: it leaves nothing behind.
            if (made.count(record)) continue;
            noteChange(record);
            vt_versions::stampRemoval(record, writer);
            continue;
        }
        if (deleted.count(record)) continue;
        NSMutableArray* fields = _changedFields->objectsForKey_(recordIdOf(record));
        if (fields->count() == 0) continue;
        auto found = before.find(record);
        vt_versions::stampChange(record, found == before.end() ? nullptr : found->second, fields,
                                 writer);
    }
}

NSMutableDictionary* VTMatrix::takeIncomingRecord(NSMutableDictionary* object, NSArray* fields,
                                                  bool* changed) {
    *changed = false;
    NSString* id = recordIdOf(object);
    if (!id || !_unsynchronizedObjects) return nullptr;
    NSMutableDictionary* live = objectWithRecordId_(id);
    NSMutableDictionary* tomb = live ? nullptr : tombstoneWithRecordId_(id);
    if (!live && !tomb) {
        *changed = true;
        lx::LXClock::observe(lx::versionClock(vt_versions::newestFieldVersion(object)));
        if (vt_versions::isRemoved(object)) {
            // A copy that is removed already at its sender is kept as the
            // tombstone it is there.
            lx::LXClock::observe(lx::versionClock(
                    static_cast<NSString*>(object->objectForKey_("__removed"_ns))));
            noteNew(object);
            addPending(object, "delete"_ns);
            return nullptr;
        }
        rowForObject_(object);
        addPending(object, "set"_ns);
        return object;
    }
    NSMutableDictionary* record = live ? live : tomb;
    noteChange(record);
    *changed = vt_versions::mergeIncoming(record, object, fields);
    bool removed = vt_versions::isRemoved(record);
    if (live && removed) {
        removeRecord_(id);
        return nullptr;
    }
    if (tomb && !removed) {
        _tombstones->removeObjectForKey_(id);
        _writeLock->lock();
        appendRecord(record);
        _writeLock->unlock();
        _undo.push_back(Undo{retainRef(record), nullptr, nullptr, -1, true});
        addPending(record, "set"_ns);
        LOG("record %s of %s comes back: a change newer than its removal arrived", id->UTF8String(),
            _name ? _name->UTF8String() : "");
        return record;
    }
    if (*changed) addPending(record, tomb ? "delete"_ns : "set"_ns);
    return tomb ? nullptr : record;
}

bool VTMatrix::takeIncomingRemoval(NSString* recordId, NSString* version) {
    if (!recordId || !_unsynchronizedObjects) return false;
    NSMutableDictionary* live = objectWithRecordId_(recordId);
    NSMutableDictionary* tomb = live ? nullptr : tombstoneWithRecordId_(recordId);
    if (!live && !tomb) {
        // Without a version (a writer that keeps none) there is nothing to
        // hold against later changes: ignored, as such a removal always was.
        if (!version || version->length() == 0) return false;
        NSMutableDictionary* stone =
                NSDictionary::dictionaryWithObjectsAndKeys_(recordId, "__recordId"_ns, nullptr);
        vt_versions::mergeRemoval(stone, version);
        noteNew(stone);
        addPending(stone, "delete"_ns);
        return true;
    }
    NSMutableDictionary* record = live ? live : tomb;
    noteChange(record);
    if (!vt_versions::mergeRemoval(record, version)) return false;
    if (!live) {
        addPending(record, "delete"_ns);
    } else if (vt_versions::isRemoved(record)) {
        removeRecord_(recordId);
    } else {
        addPending(record, "set"_ns);
        LOG("record %s of %s stays: it was changed after its removal", recordId->UTF8String(),
            _name ? _name->UTF8String() : "");
    }
    return true;
}

void VTMatrix::addField_(NSArray* descriptor) {
    if (!descriptor || descriptor->count() == 0) return;
    _fields->setObject_forKey_(descriptor, descriptor->objectAtIndex_(0));
}

uint32_t VTMatrix::numberOfRows() { return _objects->count(); }

int32_t VTMatrix::numberOfRowsInTableView_(NSObject*) {
    return static_cast<int32_t>(_objects->count());
}

NSObject* VTMatrix::tableView_objectValueForTableColumn_row_(NSObject*, NSTableColumn* column,
                                                             int32_t row) {
    auto* identifier = static_cast<NSString*>(column ? column->identifier() : nullptr);
    if (identifier && identifier->isEqual_("_seen_"_ns)) {
        if (row < 0 || static_cast<uint32_t>(row) >= _objects->count()) return nullptr;
        NSString* id = recordIdOf(static_cast<NSDictionary*>(_objects->objectAtIndex_(row)));
        NSMutableSet* seen = seenRecords();
        return seen && id && seen->member_(id) ? ""_ns : "*"_ns;
    }
    return row < 0 ? nullptr : valueInRow_column_(static_cast<uint32_t>(row), identifier);
}

NSObject* VTMatrix::valueInRow_column_(uint32_t row, NSString* field) {
    if (row >= _objects->count() || !field) return nullptr;
    return static_cast<NSDictionary*>(_objects->objectAtIndex_(row))->objectForKey_(field);
}

NSMutableDictionary* VTMatrix::objectWithRecordId_(NSString* recordId) {
    if (!recordId) return nullptr;
    return static_cast<NSMutableDictionary*>(_index->objectForKey_(recordId));
}

NSMutableArray* VTMatrix::objectsWithValue_inColumn_(NSObject* value, NSString* field) {
    NSMutableArray* result = NSMutableArray::array();
    NSMutableArray* all = _index->allValues();
    for (uint32_t i = 0, n = all->count(); i < n; i++) {
        auto* record = static_cast<NSDictionary*>(all->objectAtIndex_(i));
        NSObject* v = field ? record->objectForKey_(field) : nullptr;
        if (v && v->isEqual_(value)) result->addObject_(record);
    }
    return result;
}

NSMutableArray* VTMatrix::allObjects() { return _index->allValues(); }

void VTMatrix::appendRecord(NSMutableDictionary* record) {
    _objects->addObject_(record);
    _index->setObject_forKey_(record, recordIdOf(record));
}

uint32_t VTMatrix::rowForObject_(NSMutableDictionary* record) {
    _writeLock->lock();
    int32_t row = rowForObjectUnlocked_(record);
    if (row < 0) {
        appendRecord(record);
        noteNew(record);
        row = static_cast<int32_t>(_objects->count()) - 1;
    }
    _writeLock->unlock();
    return static_cast<uint32_t>(row);
}

int32_t VTMatrix::rowForObjectUnlocked_(NSMutableDictionary* record) {
    NSString* id = recordIdOf(record);
    // A record without an id is no record of this matrix, not the first row
    // that lacks one as well.
    if (!id) return -1;
    for (uint32_t i = 0, n = _objects->count(); i < n; i++) {
        NSString* other = recordIdOf(static_cast<NSDictionary*>(_objects->objectAtIndex_(i)));
        if (other && other->isEqual_(id)) return static_cast<int32_t>(i);
    }
    return -1;
}

void VTMatrix::setValue_inRow_column_(NSObject* value, uint32_t row, NSString* field) {
    setValue_inRow_column_onlyChangedFields_(value, row, field, true);
}

void VTMatrix::addPending(NSMutableDictionary* record, NSString* kind) {
    if (_unsynchronizedObjects) _unsynchronizedObjects->addObject_(entryOf(record, kind));
}

void VTMatrix::setValue_inRow_column_onlyChangedFields_(NSObject* value, uint32_t row,
                                                        NSString* field, bool onlyChangedFields) {
    if (!field) return;
    _writeLock->lock();
    Ref<NSObject> old;
    if (row < _objects->count()) {
        old = retainRef(
                static_cast<NSDictionary*>(_objects->objectAtIndex_(row))->objectForKey_(field));
    } else {
        while (_objects->count() <= row) {
            NSMutableDictionary* fresh = NSMutableDictionary::dictionary();
            fresh->setObject_forKey_(uniqueId(), "__recordId"_ns);
            appendRecord(fresh);
            noteNew(fresh);
        }
    }
    auto* record = static_cast<NSMutableDictionary*>(_objects->objectAtIndex_(row));
    noteChange(record);
    record->setObject_forKey_(value, field);
    if (_unsynchronizedObjects) {
        addPending(record, "set"_ns);
        bool unchanged = onlyChangedFields && old && value && value->isEqual_(old);
        if (!unchanged) _changedFields->addObject_forKey_(field, recordIdOf(record));
    }
    _writeLock->unlock();
}

void VTMatrix::removeRow_(uint32_t row) {
    if (row >= _objects->count()) return;
    Ref<NSMutableDictionary> record =
            retainRef(static_cast<NSMutableDictionary*>(_objects->objectAtIndex_(row)));
    NSString* id = recordIdOf(record);
    if (id) _index->removeObjectForKey_(id);
    addPending(record, "delete"_ns);
    noteRemoval(record, row);
    _objects->removeObjectAtIndex_(row);
}

void VTMatrix::removeRecord_(NSString* recordId) {
    Ref<NSMutableDictionary> record = retainRef(objectWithRecordId_(recordId));
    if (!record) return;
    int32_t row = rowForObjectUnlocked_(record);
    _index->removeObjectForKey_(recordId);
    addPending(record, "delete"_ns);
    if (row >= 0) {
        noteRemoval(record, static_cast<uint32_t>(row));
        _objects->removeObjectAtIndex_(static_cast<uint32_t>(row));
    }
}

void VTMatrix::beginTransaction() {
    _transactionLock->lock();
    _unsynchronizedObjects.adopt(NSMutableSet::alloc()->init());
    _changedFields.adopt(static_cast<VTKeyedArrays*>(VTKeyedArrays::alloc()->init()));
}

bool VTMatrix::commitTransaction() { return commitTransaction_(true); }

void VTMatrix::noteChange(NSMutableDictionary* record) {
    if (!_unsynchronizedObjects || !record || _noted.count(record)) return;
    NSMutableDictionary* before = NSMutableDictionary::dictionary();
    before->addEntriesFromDictionary_(record);
    _undo.push_back(
            Undo{retainRef(record), retainRef(static_cast<NSDictionary*>(before)), nullptr, -1});
    _noted.insert(record);
}

void VTMatrix::noteNew(NSMutableDictionary* record) {
    if (!_unsynchronizedObjects || !record) return;
    _undo.push_back(Undo{retainRef(record), nullptr, retainRef(recordIdOf(record)), -1});
    _noted.insert(record);
}

void VTMatrix::noteRemoval(NSMutableDictionary* record, uint32_t row) {
    if (!_unsynchronizedObjects || !record) return;
    _undo.push_back(Undo{retainRef(record), nullptr, nullptr, static_cast<int32_t>(row)});
}

bool VTMatrix::storePending(NSMutableArray* entries, const std::unordered_set<NSObject*>& deleted,
                            NSString* userId, bool synchronize) {
    if (!_container) return true;
    // A damaged store refuses every change; nothing is tried. Not even an
    // empty transaction passes: a removal of an id that the damaged store
    // can't show would otherwise count as done.
    if (_container->isDamaged()) return false;
    if (entries->count() == 0) return true;
    // One index write for the whole transaction: either all of it is on
    // disk afterwards or, as far as the files go, none of it.
    _container->beginBatch();
    bool stored = true;
    for (uint32_t i = 0, n = entries->count(); i < n; i++) {
        auto* entry = static_cast<NSArray*>(entries->objectAtIndex_(i));
        auto* record = static_cast<NSMutableDictionary*>(entry->objectAtIndex_(0));
        if (entry->objectAtIndex_(1)->isEqual_("delete"_ns)) {
            // A removal with a version stays as the record's tombstone.
            if (!record->objectForKey_("__removed"_ns))
                _container->delete_(record);
            else if (_container->set_(record) < 0)
                stored = false;
            continue;
        }
        if (deleted.count(record)) continue;
        if (!record->objectForKey_("__creator"_ns))
            record->setObject_forKey_(userId, "__creator"_ns);
        if (!record->objectForKey_("__created"_ns))
            record->setObject_forKey_(NSDate::date(), "__created"_ns);
        if (synchronize) {
            record->setObject_forKey_(userId, "__modifier"_ns);
            record->setObject_forKey_(NSDate::date(), "__modified"_ns);
        }
        if (_container->set_(record) < 0) stored = false;
    }
    return _container->endBatch() && stored;
}

// After a commit that failed, the rows go back to what they were before
// the transaction, which is what the disk holds: a change that isn't
// stored must not be shown, replicated or written by a later commit as if
// it had been saved. The undo log is walked backwards, so that every row
// returns to the place it had.
void VTMatrix::undoTransaction() {
    for (auto it = _undo.rbegin(); it != _undo.rend(); ++it) {
        NSMutableDictionary* record = it->record;
        if (it->revived) {
            for (uint32_t i = 0, n = _objects->count(); i < n; i++) {
                if (_objects->objectAtIndex_(i) != record) continue;
                _objects->removeObjectAtIndex_(i);
                break;
            }
            if (NSString* id = recordIdOf(record)) {
                _index->removeObjectForKey_(id);
                _tombstones->setObject_forKey_(record, id);
            }
        } else if (it->removedRow >= 0) {
            uint32_t row = std::min(static_cast<uint32_t>(it->removedRow), _objects->count());
            _objects->addObject_(record);
            for (uint32_t i = _objects->count() - 1; i > row; i--)
                _objects->replaceObjectAtIndex_withObject_(i, _objects->objectAtIndex_(i - 1));
            _objects->replaceObjectAtIndex_withObject_(row, record);
            if (NSString* id = recordIdOf(record)) _index->setObject_forKey_(record, id);
        } else if (it->before) {
            record->removeAllObjects();
            record->addEntriesFromDictionary_(it->before);
        } else {
            for (uint32_t i = 0, n = _objects->count(); i < n; i++) {
                if (_objects->objectAtIndex_(i) != record) continue;
                _objects->removeObjectAtIndex_(i);
                break;
            }
            for (NSString* id : {recordIdOf(record), it->idAtEntry.get()})
                if (id && _index->objectForKey_(id) == record) _index->removeObjectForKey_(id);
        }
    }
    // A store that failed half way (a full disk) has moved its own index on
    // in memory, and its next successful write would carry the changes
    // after all. Telling it the old state again keeps it in step with the
    // rows; a damaged store has changed nothing.
    if (!_container || _container->isDamaged()) return;
    _container->beginBatch();
    std::unordered_set<NSObject*> done;
    for (const Undo& undo : _undo) {
        NSMutableDictionary* record = undo.record;
        if (!done.insert(record).second) continue;
        if (!undo.before && undo.removedRow < 0 && !undo.revived)
            _container->delete_(record);
        else
            _container->set_(record);
    }
    _container->endBatch();
}

void VTMatrix::endTransaction() {
    _undo.clear();
    _noted.clear();
    _unsynchronizedObjects = nullptr;
    _changedFields = nullptr;
    _transactionLock->unlock();
}

bool VTMatrix::commitTransaction_(bool synchronize) {
    if (!_unsynchronizedObjects) return true;
    // A record's entries were hashed by its contents at the moment each was
    // added; hashed again now, in its final state, they are equal and
    // collapse, so each record is written once.
    NSMutableArray* pending = _unsynchronizedObjects->allObjects();
    NSMutableSet* collapsed = NSMutableSet::setWithCapacity_(pending->count());
    collapsed->addObjectsFromArray_(pending);
    NSMutableArray* entries = collapsed->allObjects();
    NSString* userId = NSSend<NSString*>(_workspace, NS_SEL("currentUserId"));
    // A record both set and deleted in one transaction (made and dropped
    // again) is only deleted. In the set's order alone, which follows hashes,
    // it would be stored after its deletion half of the time and outlive it.
    std::unordered_set<NSObject*> deleted;
    for (uint32_t i = 0, n = entries->count(); i < n; i++) {
        auto* entry = static_cast<NSArray*>(entries->objectAtIndex_(i));
        if (entry->objectAtIndex_(1)->isEqual_("delete"_ns))
            deleted.insert(entry->objectAtIndex_(0));
    }
    if (synchronize && _versioned) stampVersions(entries, deleted);
    if (!storePending(entries, deleted, userId, synchronize)) {
        const char* name = _name ? _name->UTF8String() : "";
        LOG("commit failed in %s: %s", name,
            _container && _container->isDamaged() ? "the store is damaged"
                                                  : "the store could not be written");
        undoTransaction();
        endTransaction();
        // A user's own change (the one kind that replicates) is reported to
        // the user; the callers of local-only writes act on the answer.
        if (synchronize && _workspace &&
            _workspace->respondsToSelector_(NS_SEL("commitFailedInSheet:")))
            NSSend<void>(_workspace, NS_SEL("commitFailedInSheet:"),
                         static_cast<NSObject*>(_sheet));
        return false;
    }
    // Removals with a version are tombstones now; the deltas of removals
    // read their version from here.
    for (uint32_t i = 0, n = entries->count(); i < n; i++) {
        auto* entry = static_cast<NSArray*>(entries->objectAtIndex_(i));
        auto* record = static_cast<NSMutableDictionary*>(entry->objectAtIndex_(0));
        if (entry->objectAtIndex_(1)->isEqual_("delete"_ns) &&
            record->objectForKey_("__removed"_ns) && recordIdOf(record))
            _tombstones->setObject_forKey_(record, recordIdOf(record));
    }
    // Only what is on disk goes out to the other users.
    for (uint32_t i = 0, n = synchronize ? entries->count() : 0; i < n; i++) {
        auto* entry = static_cast<NSArray*>(entries->objectAtIndex_(i));
        auto* record = static_cast<NSMutableDictionary*>(entry->objectAtIndex_(0));
        if (entry->objectAtIndex_(1)->isEqual_("delete"_ns)) {
            NSSend<void>(_workspace, NS_SEL("synchronizeDeletionOfObjectWithId:inSheet:"),
                         recordIdOf(record), static_cast<NSObject*>(_sheet));
            continue;
        }
        if (deleted.count(record)) continue;
        NSMutableArray* fields = _changedFields->objectsForKey_(recordIdOf(record));
        if (fields->count() > 0)
            NSSend<void>(_workspace, NS_SEL("synchronizeFields:ofObject:inSheet:"), fields, record,
                         static_cast<NSObject*>(_sheet));
    }
    endTransaction();
    return true;
}

void VTMatrix::rollbackTransaction() {
    if (!_unsynchronizedObjects) return;
    endTransaction();
}

namespace {

// Whether every value orders by one known compare: (that of NSString, or
// that of NSDate), so that a merge sort may stand in for the exchange sort
// of sortedArrayUsingSelector: with the same, stable result. Any other mix
// keeps the general path, whose result is defined for any answers.
enum class SortKind { Strings, Dates, Other };

SortKind sortKindOf(const std::vector<VTWrapper*>& wrappers) {
    static const IMP stringCompare = NSString::classObject()->lookupMethod(NS_SEL("compare:"));
    static const IMP dateCompare = NSDate::classObject()->lookupMethod(NS_SEL("compare:"));
    IMP common = nullptr;
    Class known = nullptr;
    for (VTWrapper* w : wrappers) {
        NSObject* v = w->value();
        if (!v) return SortKind::Other;
        Class cls = v->class_();
        if (cls == known) continue;
        IMP imp = cls->lookupMethod(NS_SEL("compare:"));
        if (imp != stringCompare && imp != dateCompare) return SortKind::Other;
        if (common && imp != common) return SortKind::Other;
        common = imp;
        known = cls;
    }
    return common == dateCompare ? SortKind::Dates : SortKind::Strings;
}

}  // namespace

void VTMatrix::sortByField_(NSString* field) {
    uint32_t n = _objects->count();
    NSMutableArray* wrappers = NSMutableArray::arrayWithCapacity_(n ? n : 1);
    std::vector<VTWrapper*> order;
    order.reserve(n);
    for (uint32_t i = 0; i < n; i++) {
        auto* record = static_cast<NSDictionary*>(_objects->objectAtIndex_(i));
        NSObject* raw = field ? record->objectForKey_(field) : nullptr;
        NSObject* value = raw ? resolveValue_forField_(raw, field) : ""_ns;
        auto* w = static_cast<VTWrapper*>(VTWrapper::alloc()->initWithObject_value_(record, value));
        wrappers->addObject_(w);
        w->release();
        order.push_back(w);
    }
    _objects->removeAllObjects();
    bool same = field && _lastSortedBy && _lastSortedBy->isEqual_(field);
    if (same) {
        _lastSortedBy = nullptr;
        for (uint32_t i = n; i > 0; i--) _objects->addObject_(order[i - 1]->object());
        return;
    }
    _lastSortedBy.set(field);
    switch (sortKindOf(order)) {
        case SortKind::Strings:
            std::stable_sort(order.begin(), order.end(), [](VTWrapper* a, VTWrapper* b) {
                return static_cast<NSString*>(a->value())
                               ->compare_(static_cast<NSString*>(b->value())) < 0;
            });
            break;
        case SortKind::Dates:
            std::stable_sort(order.begin(), order.end(), [](VTWrapper* a, VTWrapper* b) {
                return static_cast<NSDate*>(a->value())
                               ->compare_(static_cast<NSDate*>(b->value())) < 0;
            });
            break;
        case SortKind::Other: {
            NSMutableArray* sorted =
                    wrappers->sortedArrayUsingSelector_(NS_SEL("compareWithWrapper:"));
            for (uint32_t i = 0; i < n; i++)
                order[i] = static_cast<VTWrapper*>(sorted->objectAtIndex_(i));
            // `sorted` holds the same wrappers as `wrappers`; both live to the end.
            break;
        }
    }
    for (VTWrapper* w : order) _objects->addObject_(w->object());
}

void VTMatrix::sortByFirstField() {
    NSArray* sheetFields = _sheet ? _sheet->fields() : nullptr;
    if (!sheetFields || sheetFields->count() == 0) return;
    auto* descriptor = static_cast<NSArray*>(sheetFields->objectAtIndex_(0));
    sortByField_(static_cast<NSString*>(descriptor->objectAtIndex_(0)));
}

void VTMatrix::appendDisplayText(NSMutableString* text, NSDictionary* record,
                                 NSArray* displayFields) {
    for (uint32_t i = 0, n = displayFields ? displayFields->count() : 0; i < n; i++) {
        NSObject* name = displayFields->objectAtIndex_(i);
        NSObject* value = record->objectForKey_(name);
        text->appendString_(value ? value->description() : name->description());
        text->appendString_(" "_ns);
    }
}

NSString* VTMatrix::displayText(NSDictionary* record, NSArray* displayFields) {
    NSMutableString* text = NSMutableString::string();
    appendDisplayText(text, record, displayFields);
    return text->trim();
}

NSObject* VTMatrix::resolveValue_forField_(NSObject* value, NSString* field) {
    auto* descriptor = static_cast<NSArray*>(field ? _fields->objectForKey_(field) : nullptr);
    if (!descriptor || descriptor->count() < 4 || !isReferenceType(descriptor->objectAtIndex_(1)))
        return value;
    if (!value) return ""_ns;
    VTMatrix* target = matrixOfSheet(_sheets, descriptor->objectAtIndex_(2));
    auto* displayFields = static_cast<NSArray*>(descriptor->objectAtIndex_(3));
    NSMutableArray* ids =
            static_cast<NSString*>(value->description())->componentsSeparatedByString_(" "_ns);
    NSMutableString* text = NSMutableString::string();
    for (uint32_t i = 0, n = ids->count(); i < n; i++) {
        auto* id = static_cast<NSString*>(ids->objectAtIndex_(i));
        NSDictionary* record = target ? target->objectWithRecordId_(id) : nullptr;
        if (!record) {
            LOG("##### %s %s", id->UTF8String(),
                static_cast<NSString*>(descriptor->objectAtIndex_(1)->description())->UTF8String());
            return "???"_ns;
        }
        // Each display value and its blank, for every record; trimmed once
        // at the end, so that a record's blank or empty value at the edge of
        // its part is kept between the parts.
        appendDisplayText(text, record, displayFields);
    }
    return text->trim();
}

NSMutableSet* VTMatrix::seenRecords() {
    return NSSend<NSMutableSet*>(_workspace, NS_SEL("setForSeenForKey:"),
                                 static_cast<NSObject*>(_name.get()));
}

void VTMatrix::markAsSeen_recordId_(bool seen, NSString* recordId) {
    NSMutableSet* set = seenRecords();
    if (set && recordId) {
        if (seen)
            set->addObject_(recordId);
        else
            set->removeObject_(recordId);
    }
    NSSend<void>(_workspace, NS_SEL("saveSetsForSeen"));
}

void VTMatrix::markAsSeen_rowIndex_(bool seen, uint32_t row) {
    if (row >= _objects->count()) return;
    markAsSeen_recordId_(seen,
                         recordIdOf(static_cast<NSDictionary*>(_objects->objectAtIndex_(row))));
}

NS_CLASS_BEGIN(VTMatrix, NSObject)
    NS_CLASS_METHOD(uniqueId)
    NS_METHOD(initWithName_sheets_workspace_sheet_source_)
    NS_METHOD(load)
    NS_METHOD(addField_)
    NS_METHOD(sheet)
    NS_METHOD(workspace)
    NS_METHOD(source)
    NS_METHOD(numberOfRows)
    NS_METHOD(numberOfRowsInTableView_)
    NS_METHOD(tableView_objectValueForTableColumn_row_)
    NS_METHOD(valueInRow_column_)
    NS_METHOD(objectWithRecordId_)
    NS_METHOD(objectsWithValue_inColumn_)
    NS_METHOD(allObjects)
    NS_METHOD(allObjectsSorted)
    NS_METHOD(rowForObject_)
    NS_METHOD(rowForObjectUnlocked_)
    NS_METHOD(setValue_inRow_column_)
    NS_METHOD(setValue_inRow_column_onlyChangedFields_)
    NS_METHOD(removeRow_)
    NS_METHOD(removeRecord_)
    NS_METHOD(beginTransaction)
    NS_METHOD(commitTransaction)
    NS_METHOD(commitTransaction_)
    NS_METHOD(rollbackTransaction)
    NS_METHOD(sortByField_)
    NS_METHOD(sortByFirstField)
    NS_METHOD(resolveValue_forField_)
    NS_METHOD(seenRecords)
    NS_METHOD(markAsSeen_recordId_)
    NS_METHOD(markAsSeen_rowIndex_)
    NS_METHOD(dealloc)
    NS_PROTOCOL("NSTableDataSource")
    NS_FIELD(_container)
    NS_FIELD(_index)
    NS_FIELD(_tombstones)
    NS_FIELD(_objects)
    NS_FIELD(_unsynchronizedObjects)
    NS_FIELD(_changedFields)
    NS_FIELD(_sheets)
    NS_FIELD(_fields)
    NS_FIELD(_lastSortedBy)
    NS_FIELD(_workspace)
    NS_FIELD(_sheet)
    NS_FIELD(_writeLock)
    NS_FIELD(_transactionLock)
    NS_FIELD(_name)
    NS_FIELD(_source)
    NS_FIELD(_colleagues)
    NS_FIELD(_loaded)
    NS_FIELD(_versioned)
NS_CLASS_END(VTMatrix)
