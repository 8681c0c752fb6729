// The relay's side of the protocol, and how it meets the client's.
//
// The transceiver (LXTransceiver.cpp) puts a fixed sequence on the wire, and
// the relay reads exactly that sequence, element by element:
//
//   deposit  C: int 1, string addressee-uniqueId, data archive-of-LXDelta
//            R: int 1 once the delta is on disk
//   collect  C: int 2, string collecting-uniqueId, string "dummy_group"
//            R: int N, then N times { R: data archive-of-LXDelta, C: int 1 }
//
// So a deposit is readString then readObject, and a collect is readString
// twice. "dummy_group" is read and ignored: nothing on either side gives it
// a meaning.
//
// Queue key. A collect can name its user only by uniqueId, so the queues are
// keyed by the addressee's uniqueId: on deposit, and when init rebuilds them
// from the container (delta->addressee()->uniqueId()). The full identity
// string would never match a collect.
//
// What a deposit must be. The relay reads no contents, but it stores only
// what it can deliver and its addressee can process: an LXDelta whose
// addressee has a non-empty uniqueId equal to the string ahead of it, of
// the replication pool (LXPool::kReplicationPoolName), with contents.
// Anything else is refused with a log line: nothing is stored and no
// acknowledgement goes out, so an honest client keeps its copy. (A delta
// that a receiver can't process would otherwise sit at the head of its
// queue and hold back everything behind it.) A mismatching string is refused rather than
// trusted either way, because one of the two is wrong and a delta queued
// under the wrong user is lost to its addressee.
//
// Durability. The acknowledgement goes out only after set: has answered an
// id, which means the container's journal entry naming the delta has been
// written (and, with setSynchronous, forced to the disk). A store that fails (set: answers -1, or
// the container was found damaged at open and refuses every change) is logged and not acknowledged:
// the client keeps the delta and deposits it again later.
//
// Bounds. What a client can make the relay keep is bounded: an id longer
// than kMaximumIdLength bytes is refused, in a deposit and in a collect,
// and the key of a queue goes from the index with the last delta of the
// queue, so made-up users with nothing waiting cost nothing.
//
// Delivery. A collect sends the count of the user's queue, then that many
// deltas from its head in strict alternation with the acknowledgements.
// Anything but the int 1 (another value, a closed connection, the turn's
// deadline) logs "reception not committed" and ends the collect: that delta
// stays at the head, with all behind it. A 1 removes the head from the
// queue and deletes its record. One collect per user at a time: a second
// one while the first is under way gets a count of 0, since both would
// otherwise be handed the same head.
//
// Bad clients. The event loop (LXRelayLoop.cpp) gives every turn of an
// exchange a deadline and bounds what each client can make it buffer; a
// client that misses either is dropped, and no client ever waits for
// another.
#include "sync/LXRelay.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/NSArray.h"
#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSData.h"
#include "foundation/NSString.h"
#include "foundation/NSThread.h"
#include "foundation/NSValue.h"
#include "storage/NSArchiver.h"
#include "sync/LXDelta.h"
#include "sync/LXRelayProtocol.h"

namespace {

const char* textOf(NSString* s) { return s ? s->UTF8String() : "(null)"; }

// The queue key of a delta: its addressee's uniqueId, or nil when it has
// none a collect could name.
NSString* queueKeyOf(LXDelta* delta) {
    NSString* key = NSNil(delta->addressee(), &LXUser::uniqueId);
    return key && key->length() > 0 ? key : nullptr;
}

// Why the addressee could never process the delta, or nullptr. A client
// takes in deltas of the replication pool only, and only with contents; a
// delta without them would stop every collect of its addressee.
const char* undeliverable(LXDelta* delta) {
    NSString* pool = NSNil(delta->pool(), &LXPool::poolName);
    if (!pool || pool->length() == 0) return "no pool";
    if (!pool->isEqual_(NSString::stringWithUTF8String_(LXPool::kReplicationPoolName)))
        return "unknown pool";
    if (!delta->contents()) return "no contents";
    return nullptr;
}

}  // namespace

LXRelay* LXRelay::init() {
    NSObject::init();
    _index.adopt(static_cast<VTKeyedArrays*>(VTKeyedArrays::alloc()->init()));
    _container.adopt(
            LXContainer::alloc()->initWithName_(NSString::stringWithUTF8String_(kContainerName)));
    _lock.adopt(static_cast<NSLock*>(NSLock::alloc()->init()));

    // The ids come from a set, in no useful order. Ids grow with arrival, so
    // taking them in numeric order gives each queue back the order in which
    // its deltas arrived, which is what a queue means.
    NSArray* ids = _container->idsForClass_(LXDelta::classObject());
    std::vector<int> order;
    order.reserve(ids->count());
    for (uint32_t i = 0; i < ids->count(); i++) {
        order.push_back(static_cast<NSString*>(ids->objectAtIndex_(i))->intValue());
    }
    std::sort(order.begin(), order.end());

    int restored = 0;
    for (int identifier : order) {
        // One pool per record: the built deltas and their mapping entries go
        // at once, so a queue of 100,000 never lives in memory as objects.
        NSAutoreleasePoolScope pool;
        auto* delta = static_cast<LXDelta*>(
                _container->queryById_class_(identifier, LXDelta::classObject()));
        NSString* key = delta ? queueKeyOf(delta) : nullptr;
        if (key) {
            _index->addObject_forKey_(NSNumber::numberWithInt_(identifier), key);
            restored++;
        } else {
            // Left in the store for an operator; it can be delivered to no one.
            LOG("stored delta %d has no addressee - not queued", identifier);
        }
    }
    LOG("%d delta(s) restored", restored);
    return this;
}

LXRelay* LXRelay::relay() { return NSAutorelease(LXRelay::alloc()->init()); }

uint32_t LXRelay::defaultPort() { return LXRelayProtocol::kDefaultPort; }

void LXRelay::run() { runWithPort_(defaultPort()); }

void LXRelay::runUntilDate_(NSDate* date) {
    _lifetime.set(date);
    run();
}

bool LXRelay::lifetimeHasPassed() { return _lifetime && _lifetime->timeIntervalSinceNow() < 0; }

bool LXRelay::idTooLong(uint32_t bytes, const char* what) {
    if (bytes <= kMaximumIdLength) return false;
    LOG("%s refused: id of %u bytes (limit %u)", what, bytes, kMaximumIdLength);
    return true;
}

bool LXRelay::depositObject_announced_(NSObject* object, NSString* announced) {
    if (!object) {
        LOG("deposit refused: no delta received");
        return false;
    }
    auto* delta = object->isKindOfClass_(LXDelta::classObject()) ? static_cast<LXDelta*>(object)
                                                                 : nullptr;
    NSString* key = delta ? queueKeyOf(delta) : nullptr;
    if (!key) {
        LOG("deposit refused: not a delta with an addressee");
        return false;
    }
    if (!key->isEqual_(announced)) {
        LOG("deposit refused: announced for %s, addressed to %s", textOf(announced), textOf(key));
        return false;
    }
    if (const char* why = undeliverable(delta)) {
        LOG("deposit refused: %s: %s", why, textOf(delta->description()));
        return false;
    }
    int identifier = _container->set_(delta);
    if (identifier < 0) {
        LOG("deposit not stored: %s - no acknowledgement", textOf(delta->description()));
        // When the block went in but its journal entry didn't, the record is
        // in the container's memory and would reach disk with the next
        // write, then come back at a restart beside the copy the client
        // deposits again. Taking it out keeps the two in step.
        _container->delete_(delta);
        return false;
    }
    _index->addObject_forKey_(NSNumber::numberWithInt_(identifier), key);
    // The users with deltas waiting: emptied queues are forgotten.
    LOG("delta enqueued: %s, total users: %u", textOf(delta->description()),
        _index->dict()->count());
    return true;
}

LXDelta* LXRelay::headOfQueue_identifier_(NSString* user, int* identifier) {
    NSMutableArray* queue = _index->objectsForKey_(user);
    while (queue->count() > 0) {
        *identifier = static_cast<NSNumber*>(queue->objectAtIndex_(0))->intValue();
        NSObject* delta = _container->queryById_class_(*identifier, LXDelta::classObject());
        if (delta) return static_cast<LXDelta*>(delta);
        // The record can't be read (the disk failed under it): it leaves
        // the queue, so that it doesn't hold back the rest of the user's
        // deltas, but not the store, where the next start finds it again.
        LOG("stored delta %d could not be read - skipped", *identifier);
        queue->removeObjectAtIndex_(0);
    }
    return nullptr;
}

void LXRelay::delivered_identifier_user_(LXDelta* delta, int identifier, NSString* user) {
    NSMutableArray* queue = _index->objectsForKey_(user);
    if (queue->count() > 0 &&
        static_cast<NSNumber*>(queue->objectAtIndex_(0))->intValue() == identifier) {
        queue->removeObjectAtIndex_(0);
    }
    // Each delete is its own durable operation: a relay stopped after it
    // never sends this delta again.
    _container->delete_(delta);
}

void LXRelay::forgetIfEmpty_(NSString* user) {
    NSMutableArray* queue = static_cast<NSMutableArray*>(_index->dict()->objectForKey_(user));
    // Nothing left for this user: the key goes too (the queue with it).
    if (queue && queue->count() == 0) _index->dict()->removeObjectForKey_(user);
}

NS_CLASS_BEGIN(LXRelay, NSObject)
    NS_METHOD(init)
    NS_CLASS_METHOD(relay)
    NS_CLASS_METHOD(defaultPort)
    NS_METHOD(run)
    NS_METHOD(runUntilDate_)
    NS_METHOD(runWithPort_)
    NS_FIELD(_index)
    NS_FIELD(_lifetime)
    NS_FIELD(_container)
    NS_FIELD(_lock)
    NS_FIELD(_secure)
NS_CLASS_END(LXRelay)
