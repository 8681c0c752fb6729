// The workspace's side of replication: joining the transceiver, packaging
// each committed change once per addressee, and taking in what other users
// sent.
//
// Contents of a delta (a dictionary inside the LXDelta):
//   set    := { action: "set", fields: (name...), sheet: name, object: record }
//   delete := { action: "delete", sheet: name, objectId: __recordId,
//               version: the removal's version }
// `sheet` is the name of the sheet the commit happened in (a secondary
// sheet's own name); `object` is the whole record as committed, but a
// receiver merges it into its copy field by field, by version (the
// versions travel inside `object`, under __versions; see
// sheets/VTRecordVersions.h and docs/replication.md). `version` of a delete
// is the one key beyond the original contents; a receiver without it
// ignores it, and one that gets a delete without it removes the record as
// it stands.
//
// Threads and locks. processDelta: runs on the transceiver's thread inside a
// check cycle, holding only the transceiver's cycle lock, which no other
// thread of the client ever takes (see LXTransceiver.cpp). It waits for a
// matrix's transaction lock while a Save on the main thread has one open;
// that Save, still holding it, waits at most for the transceiver's store
// lock (post:to:), whose holder waits for nothing but the disk. So the
// commit path never waits for the receive path, and the receive path waits
// for the main thread only while holding nothing the main thread wants.
//
// The same holds for what the receive path does on the main thread's
// behalf: the refresh of tables after an incoming change and the alert of
// an unknown sheet come after the transaction is committed (or before any
// is begun), holding no lock but the cycle's. A table's reload is one
// native message that waits for the main thread to serve it (see
// NSTableView); the main thread always gets back to its message loop to
// serve it, because nothing it may be waiting for is held by the
// transceiver's thread (tests/app/table_threads_test.cpp).
#include <cstdlib>
#include <cstring>

#include "app/VTLocalization.h"
#include "app/VTWorkspace.h"
#include "foundation/Foundation.h"
#include "foundation/platform/Platform.h"
#include "sheets/VTMatrix.h"
#include "sheets/VTSheet.h"
#include "sync/LXDelta.h"
#include "sync/LXPool.h"
#include "sync/LXSecure.h"
#include "sync/LXTransceiver.h"
#include "sync/LXUser.h"
#include "toolkit/NSAlert.h"

namespace {

const char* textOf(NSObject* value) {
    return value ? static_cast<NSString*>(value->description())->UTF8String() : "";
}

// The delivery of a message: its addressee (`whom`) reports `delivered` or
// `read` by changing `status` (and `dummy`) of a record it may only read.
// That is the one change the receiver takes from a user without the update
// right.
bool isDeliveryReport(VTSheet* sheet, NSDictionary* record, NSDictionary* contents,
                      NSString* sender) {
    NSString* source = sheet->primarySourceName();
    NSObject* whom = record->objectForKey_("whom"_ns);
    NSObject* fields = contents->objectForKey_("fields"_ns);
    if (!source || !source->isEqual_("message"_ns) || !whom || !whom->isEqual_(sender) || !fields ||
        !fields->isKindOfClass_(NSArray::classObject()))
        return false;
    auto* names = static_cast<NSArray*>(fields);
    for (uint32_t i = 0, n = names->count(); i < n; i++) {
        NSObject* name = names->objectAtIndex_(i);
        if (!name->isEqual_("status"_ns) && !name->isEqual_("dummy"_ns)) return false;
    }
    // A field the copy carries a newer version for would be taken too: every
    // other field must come as it stands here.
    NSObject* object = contents->objectForKey_("object"_ns);
    if (!object || !object->isKindOfClass_(NSDictionary::classObject())) return false;
    auto* copy = static_cast<NSDictionary*>(object);
    NSArray* keys = copy->allKeys();
    for (uint32_t i = 0, n = keys->count(); i < n; i++) {
        auto* key = static_cast<NSString*>(keys->objectAtIndex_(i));
        if (std::strncmp(key->UTF8String(), "__", 2) == 0 || key->isEqual_("status"_ns) ||
            key->isEqual_("dummy"_ns))
            continue;
        NSObject* here = record->objectForKey_(key);
        if (!here || !here->isEqual_(copy->objectForKey_(key))) return false;
    }
    return true;
}

// Seconds that must have passed since the last sync beep for the next.
constexpr double kSyncBeepInterval = 10.0;

}  // namespace

LXPool* VTWorkspace::replicationPool() {
    // The client makes the pool at login. A commit that replicates
    // before it (a tool working on the records without a transceiver
    // thread) still owes its deltas to the other users; with no pool they
    // would be dropped without a word, since a delta's post goes through
    // its pool. So the pool is made on first use, without a delegate: only
    // joinTransceiver, which registers it for incoming deltas, makes the
    // workspace its delegate (the pool retains its delegate, so a pool made
    // here doesn't tie the workspace's life to itself).
    if (!_pool)
        _pool.adopt(LXPool::alloc()->initWithName_(
                NSString::stringWithUTF8String_(LXPool::kReplicationPoolName)));
    return static_cast<LXPool*>(_pool.get());
}

NSString* VTWorkspace::joinTransceiver() {
    LXPool* pool = replicationPool();
    pool->setDelegate_(this);
    LXTransceiver* transceiver = LXTransceiver::defaultTransceiver();
    transceiver->registerPool_(pool);
    transceiver->setUser_(LXUser::userWithString_(currentUserUniqueId()));
    // The relay's host: the whole file as text, trimmed. A missing file
    // gives an empty host, and every cycle then fails to connect.
    NSData* bytes = NSData::dataWithContentsOfFile_("transceiver.txt"_ns);
    return NSAutorelease(NSString::alloc()->initWithData_encoding_(bytes, 4))->trim();
}

void VTWorkspace::startTransceiver() {
    // The transceiver retains the host and runs runWithHost: on a thread of
    // its own (a Win32 thread in the client).
    LXTransceiver::defaultTransceiver()->startWithHost_(joinTransceiver());
}

void VTWorkspace::synchronizeFields_ofObject_inSheet_(NSArray* fields, NSObject* record,
                                                      NSObject* sheet) {
    synchronizeFields_ofObject_inSheet_toUsers_(fields, record, sheet, allOtherUsersWithUniqueID());
}

void VTWorkspace::synchronizeFields_ofObject_inSheet_toUsers_(NSArray* fields, NSObject* record,
                                                              NSObject* sheet, NSArray* users) {
    NSString* sheetName = NSSend<NSString*>(sheet, NS_SEL("name"));
    if (!record || !sheetName || !users || users->count() == 0) return;
    if (!fields) fields = NSMutableArray::array();
    LXPool* pool = replicationPool();
    LXUser* sender = LXUser::userWithString_(currentUserUniqueId());
    for (uint32_t i = 0, n = users->count(); i < n; i++) {
        NSMutableDictionary* contents = NSDictionary::dictionaryWithObjectsAndKeys_(
                "set"_ns, "action"_ns, fields, "fields"_ns, sheetName, "sheet"_ns, record,
                "object"_ns, nullptr);
        LXUser* addressee =
                LXUser::userWithString_(static_cast<NSString*>(users->objectAtIndex_(i)));
        // postTo: stores the delta for the transceiver's next cycle; it
        // refuses (with its log line) an addressee equal to the sender.
        post(LXDelta::deltaWithPool_sender_contents_(pool, sender, contents), addressee);
    }
}

LXUserCertificate* VTWorkspace::certificateOfUser(NSString* recordId,
                                                  LXUserCertificate* certificate) {
    VTMatrix* users = matrixNamed("user");
    NSMutableDictionary* record =
            users && recordId ? users->objectWithRecordId_(recordId) : nullptr;
    if (!record) return nullptr;
    // The record's fields under the names a certificate's dictionary uses.
    NSMutableDictionary* fields = NSMutableDictionary::dictionary();
    fields->setObject_forKey_(recordId, "UniqueID"_ns);
    const char* names[][2] = {{"signingKey", "SigningKey"},
                              {"sealingKey", "SealingKey"},
                              {"keySignature", "KeySignature"}};
    for (auto& name : names) {
        NSObject* value = record->objectForKey_(NSString::stringWithUTF8String_(name[0]));
        if (value) fields->setObject_forKey_(value, NSString::stringWithUTF8String_(name[1]));
    }
    return LXUserCertificate::fromDictionary(fields, certificate) ? certificate : nullptr;
}

void VTWorkspace::post(LXDelta* delta, LXUser* addressee) {
    std::shared_ptr<const LXSecureIdentity> secure =
            LXTransceiver::defaultTransceiver()->secureIdentity();
    if (!secure) {
        delta->postTo_(addressee);
        return;
    }
    // Sealed to the addressee's certified sealing key, from their record;
    // a user without one can't be written to (until an administrator makes
    // their keys, whose record then brings it).
    LXUserCertificate keys;
    if (!certificateOfUser(addressee->uniqueId(), &keys) || !keys.isCertifiedBy(secure->anchor)) {
        LOG("no certified sealing key for %s - change not sent to that user",
            textOf(addressee->uniqueId()));
        return;
    }
    if (delta->sender()->isEqual_(addressee)) {
        delta->postTo_(addressee);  // logs and stores nothing
        return;
    }
    delta->setAddressee_(addressee);
    LXDelta* envelope = LXSecure::sealedDelta(delta, *secure, keys.sealPublic);
    if (!envelope) {
        LOG("change for %s could not be sealed - not sent", textOf(addressee->uniqueId()));
        return;
    }
    envelope->postTo_(envelope->addressee());
}

NSString* VTWorkspace::reasonToRefuseSealed(LXDelta* envelope, LXDelta** opened, bool* fromAnchor) {
    std::shared_ptr<const LXSecureIdentity> me =
            LXTransceiver::defaultTransceiver()->secureIdentity();
    std::string signedText, signature;
    LXUserCertificate carried;
    const char* why = nullptr;
    LXDelta* delta = LXSecure::openedDelta(envelope, *me, &signedText, &signature, &carried, &why);
    if (!delta) return NSString::stringWithUTF8String_(why);
    NSString* from = NSNil(delta->sender(), &LXUser::uniqueId);
    NSString* to = NSNil(delta->addressee(), &LXUser::uniqueId);
    NSString* relayed = NSNil(envelope->sender(), &LXUser::uniqueId);
    if (!from || carried.uniqueId != from->UTF8String() || !relayed || !relayed->isEqual_(from))
        return "the sender inside is not the one who signed and deposited it"_ns;
    if (!to || me->certificate.uniqueId != to->UTF8String())
        return "sealed for another addressee"_ns;
    if (!carried.isCertifiedBy(me->anchor))
        return NSString::stringWithFormat_("the keys of %s are not signed by the anchor",
                                           from->UTF8String());
    // The sender's record, once here, is what counts: keys the
    // administrator has replaced since no longer sign anything.
    LXUserCertificate recorded;
    if (certificateOfUser(from, &recorded) && recorded.isCertifiedBy(me->anchor) &&
        recorded.signPublic != carried.signPublic)
        return NSString::stringWithFormat_("the keys of %s differ from the sender's record",
                                           from->UTF8String());
    if (!LXSecure::deltaSignatureHolds(signedText, signature, carried.signPublic))
        return NSString::stringWithFormat_("the signature of %s does not hold", from->UTF8String());
    *opened = delta;
    *fromAnchor = carried.signPublic == me->anchor;
    return nullptr;
}

NSString* VTWorkspace::reasonToRefuseChange(LXDelta* delta) {
    auto* contents = static_cast<NSDictionary*>(delta->contents());
    if (!contents || !contents->isKindOfClass_(NSDictionary::classObject())) return nullptr;
    NSObject* action = contents->objectForKey_("action"_ns);
    NSObject* sheetName = contents->objectForKey_("sheet"_ns);
    VTSheet* sheet = sheetName ? static_cast<VTSheet*>(_sheets->objectForKey_(sheetName)) : nullptr;
    // An unknown sheet or action goes its own way below.
    if (!sheet || !sheet->isKindOfClass_(VTSheet::classObject()) || !action) return nullptr;
    NSString* sender = delta->sender()->uniqueId();
    NSObject* recordId = nullptr;
    if (action->isEqual_("set"_ns)) {
        NSObject* object = contents->objectForKey_("object"_ns);
        if (object && object->isKindOfClass_(NSDictionary::classObject()))
            recordId = static_cast<NSDictionary*>(object)->objectForKey_("__recordId"_ns);
    } else if (action->isEqual_("delete"_ns)) {
        recordId = contents->objectForKey_("objectId"_ns);
    } else {
        return nullptr;
    }
    VTMatrix* matrix = sheet->matrix();
    NSDictionary* record = nullptr;
    if (matrix && recordId && recordId->isKindOfClass_(NSString::classObject())) {
        record = matrix->objectWithRecordId_(static_cast<NSString*>(recordId));
        if (!record) record = matrix->tombstoneWithRecordId_(static_cast<NSString*>(recordId));
    }
    // "Own": the record here was created by the sender.
    LXUser* from = delta->sender();
    NSString* senderId = NSString::stringWithFormat_(
            "%s %s/%s/%s", textOf(from->firstName()), textOf(from->lastName()),
            textOf(from->orgUnit()), textOf(from->organization()));
    NSObject* creator = record ? record->objectForKey_("__creator"_ns) : nullptr;
    bool own = creator && creator->isEqual_(senderId);
    auto may = [&](const char* word) {
        return userWithRecordId_mayDoAction_inSheet_(sender, NSString::stringWithUTF8String_(word),
                                                     sheet);
    };
    const char* right;
    bool allowed;
    if (action->isEqual_("delete"_ns)) {
        right = "remove";
        allowed = may("remove") || (own && may("removeown"));
    } else if (record) {
        right = "update";
        allowed = may("update") || (own && may("updateown")) ||
                  isDeliveryReport(sheet, record, contents, sender);
    } else {
        right = "deposit";
        allowed = may("update") || may("updateown") || may("deposit");
    }
    if (allowed) return nullptr;
    return NSString::stringWithFormat_("%s may not %s in sheet '%s'", textOf(sender), right,
                                       textOf(sheetName));
}

bool VTWorkspace::keepsRecordVersions() {
    const char* setting = std::getenv("VANTOR_RECORD_VERSIONS");
    return !setting || std::strcmp(setting, "off") != 0;
}

void VTWorkspace::synchronizeDeletionOfObjectWithId_inSheet_(NSString* recordId, NSObject* sheet) {
    NSString* sheetName = NSSend<NSString*>(sheet, NS_SEL("name"));
    if (!recordId || !sheetName) return;
    NSArray* users = allOtherUsersWithUniqueID();
    if (users->count() == 0) return;
    // The commit has just stored the record as its tombstone.
    VTMatrix* matrix = NSSend<VTMatrix*>(sheet, NS_SEL("matrix"));
    NSDictionary* tombstone = matrix ? matrix->tombstoneWithRecordId_(recordId) : nullptr;
    NSObject* version = tombstone ? tombstone->objectForKey_("__removed"_ns) : nullptr;
    LXPool* pool = replicationPool();
    LXUser* sender = LXUser::userWithString_(currentUserUniqueId());
    for (uint32_t i = 0, n = users->count(); i < n; i++) {
        NSMutableDictionary* contents = NSDictionary::dictionaryWithObjectsAndKeys_(
                "delete"_ns, "action"_ns, sheetName, "sheet"_ns, recordId, "objectId"_ns, nullptr);
        if (version) contents->setObject_forKey_(version, "version"_ns);
        LXUser* addressee =
                LXUser::userWithString_(static_cast<NSString*>(users->objectAtIndex_(i)));
        post(LXDelta::deltaWithPool_sender_contents_(pool, sender, contents), addressee);
    }
}

bool VTWorkspace::processDelta_(LXDelta* delta) {
    if (delta && LXTransceiver::defaultTransceiver()->secureIdentity()) {
        // Secure mode: only a sealed delta whose signature holds, from a
        // sender with the right to make that change here, is applied. What
        // is refused is kept aside and acknowledged, so that it doesn't
        // come back.
        LXDelta* opened = nullptr;
        bool fromAnchor = false;
        NSString* reason = reasonToRefuseSealed(delta, &opened, &fromAnchor);
        // The anchor's administrator certifies every key, so could sign
        // anything in anyone's name: there is nothing a rights check could
        // hold back. And a new installation, with no user, group or role
        // records yet, learns them from that administrator.
        if (!reason && !fromAnchor) reason = reasonToRefuseChange(opened);
        if (reason) {
            LOG("incoming delta refused: %s", reason->UTF8String());
            return LXTransceiver::defaultTransceiver()->refuseDelta_reason_(opened ? opened : delta,
                                                                            reason);
        }
        delta = opened;
    }
    NSObject* raw = delta ? delta->contents() : nullptr;
    // Contents that are not a dictionary name no sheet, and are treated as
    // a delta for an unknown sheet.
    NSDictionary* contents = raw && raw->isKindOfClass_(NSDictionary::classObject())
                                     ? static_cast<NSDictionary*>(raw)
                                     : nullptr;
    NSObject* action = contents ? contents->objectForKey_("action"_ns) : nullptr;
    NSObject* sheetName = contents ? contents->objectForKey_("sheet"_ns) : nullptr;
    NSObject* sheet = sheetName ? _sheets->objectForKey_(sheetName) : nullptr;

    if (!sheet) {
        LOG("could not find sheet '%s'", textOf(sheetName));
        // OK drops the delta; Cancel leaves it at the relay, and the
        // question comes again in the next cycle.
        NSAlert* alert = NSAlert::
                alertWithMessageText_defaultButton_alternateButton_otherButton_informativeTextWithFormat_(
                        VTLocalizedString("error"_ns), "OK"_ns, "Cancel"_ns, nullptr,
                        VTLocalizedString("unknownsheet"_ns));
        return alert->runModal() == 1;
    }

    if (action && action->isEqual_("set"_ns)) {
        NSObject* fields = contents->objectForKey_("fields"_ns);
        if (fields && !fields->isKindOfClass_(NSArray::classObject())) fields = nullptr;
        NSObject* given = contents->objectForKey_("object"_ns);
        if (!given || !given->isKindOfClass_(NSDictionary::classObject()) ||
            !static_cast<NSDictionary*>(given)->objectForKey_("__recordId"_ns)) {
            // Nothing to apply, now or ever: waiting at the relay would only
            // hold back the deltas behind this one.
            LOG("incoming set delta without a record for sheet '%s'", textOf(sheetName));
            return true;
        }
        // A record of a matrix is changed in place, so the incoming one, which
        // may itself become the record, must be mutable. The unarchiver gives
        // back the class that was archived: a record archived from a matrix
        // is mutable already, one archived as a plain NSDictionary (by
        // another writer of deltas) is copied.
        NSMutableDictionary* object =
                given->isKindOfClass_(NSMutableDictionary::classObject())
                        ? static_cast<NSMutableDictionary*>(given)
                        : static_cast<NSMutableDictionary*>(NSAutorelease(given->mutableCopy()));
        if (sheet->respondsToSelector_(NS_SEL("didReceiveDelta:")))
            NSSend<void>(sheet, NS_SEL("didReceiveDelta:"),
                         static_cast<NSObject*>(NSRetain(object)));
        // A delta whose change didn't reach the disk is refused: it stays at
        // the relay and comes again in the next cycle, when the store may
        // be whole again.
        if (!NSSend<bool>(sheet, NS_SEL("updateFields:ofObject:remote:"), fields,
                          static_cast<NSObject*>(object), true)) {
            LOG("incoming change for sheet '%s' not stored; the delta stays at the relay",
                textOf(sheetName));
            return false;
        }
        // At most one beep per interval, however many deltas a cycle brings.
        if (!_lastSyncBeep || _lastSyncBeep->timeIntervalSinceNow() < -kSyncBeepInterval) {
            vtDefaultSoundBeep();
            _lastSyncBeep.set(NSDate::date());
        }
        if (sheet->respondsToSelector_(NS_SEL("didProcessDelta:")))
            NSSend<void>(sheet, NS_SEL("didProcessDelta:"),
                         static_cast<NSObject*>(NSRetain(object)));
        return true;
    }

    if (action && action->isEqual_("delete"_ns)) {
        NSObject* version = contents->objectForKey_("version"_ns);
        if (version && !version->isKindOfClass_(NSString::classObject())) version = nullptr;
        if (!NSSend<bool>(sheet, NS_SEL("updateDeletionOfObjectWithId:version:"),
                          contents->objectForKey_("objectId"_ns), version)) {
            LOG("incoming removal for sheet '%s' not stored; the delta stays at the relay",
                textOf(sheetName));
            return false;
        }
        return true;
    }

    LOG("unknown action for incoming delta: %s", textOf(action));
    return false;
}

// processDelta: answers a bool, which the runtime hands back as the word 1
// or 0: performSelector:withObject: (how the transceiver asks) answers a
// non-nil object exactly for true.
NS_EXTEND_CLASS(VTWorkspace, Sync)
NS_METHOD(processDelta_)
NS_METHOD(synchronizeFields_ofObject_inSheet_)
NS_METHOD(synchronizeFields_ofObject_inSheet_toUsers_)
NS_METHOD(synchronizeDeletionOfObjectWithId_inSheet_)
NS_METHOD(keepsRecordVersions)
NS_METHOD(startTransceiver)
NS_METHOD(joinTransceiver)
NS_EXTEND_END
