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
// Delivery. A collect sends the count of the user's queue, then the deltas
// from its head in strict alternation with the acknowledgements. Anything
// but the int 1 (another value, a closed connection, the receive time-out)
// logs "reception not committed" and ends the collect: that delta stays at
// the head, with all behind it. A 1 removes the head from the queue and
// deletes its record.
//
// Bad clients. Each element must arrive within LXSocket's receive time-out
// and each announced length must be within its maximum (both logged by the
// socket, which then reads as closed), so one thread serving one connection
// at a time is held back by a stalled client for at most the time-out per
// element. Sends to a peer that went away fail instead of raising SIGPIPE
// (the platform layer sends with MSG_NOSIGNAL).
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

NSString* wireKey() { return NSString::stringWithUTF8String_(LXRelayProtocol::kWireKey); }

const char* textOf(NSString* s) { return s ? s->UTF8String() : "(null)"; }

// The queue key of a delta: its addressee's uniqueId, or nil when it has
// none a collect could name.
NSString* queueKeyOf(LXDelta* delta) {
    NSString* key = NSNil(delta->addressee(), &LXUser::uniqueId);
    return key && key->length() > 0 ? key : nullptr;
}

// True, with a log line, when the id is longer than the relay takes.
bool idTooLong(NSString* id, const char* what) {
    size_t bytes = std::strlen(id->UTF8String());
    if (bytes <= LXRelay::kMaximumIdLength) return false;
    LOG("%s refused: id of %zu bytes (limit %u)", what, bytes, LXRelay::kMaximumIdLength);
    return true;
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

void LXRelay::runWithPort_(uint32_t port) {
    _boundPort = 0;
    _bindFailed = false;
    Ref<LXSocket> listener = adoptRef(LXSocket::alloc()->initWithEncryptionKey_(wireKey()));
    // A socket that binds but can't listen is as useless as one that
    // doesn't bind: both end the run the same way, rather than looping on
    // accepts that can only fail.
    if (!listener || !listener->bindToAddress_port_(_bindAddress.get(), port) ||
        !listener->listen_(10)) {
        LOG("socket not bound");
        _bindFailed = true;
        return;
    }
    // With port 0 the system picks the port: the log names the one bound,
    // so that whoever started the relay can find it.
    _boundPort = listener->localPort();
    for (;;) {
        NSAutoreleasePoolScope round;
        LOG("listening on port %d", static_cast<int>(_boundPort));
        Ref<LXSocket> connection = adoptRef(listener->accept());
        if (!connection) {
            LOG("could accept connection");
            // accept fails at once while the cause lasts (no descriptors
            // left): a pause keeps the loop from spinning on it.
            NSThread::sleepForTimeInterval_(0.1);
        } else {
            serve(connection);
        }
        if (lifetimeHasPassed()) break;
    }
}

void LXRelay::serve(LXSocket* connection) {
    int32_t command = connection->readInt();
    if (connection->isBroken()) {
        // Closed or timed out before a whole command arrived: there is no
        // command to log, and nothing to answer.
        LOG("connection closed before its command");
        return;
    }
    NSLockScope held(_lock);
    LOG("new connection accepted - %d", command);
    if (_secure) {
        _secure->serve_command_relay_(connection, command, this);
    } else if (command == LXRelayProtocol::kDeposit) {
        processIncoming_(connection);
    } else if (command == LXRelayProtocol::kCollect) {
        processOutgoing_(connection);
    } else {
        LOG("unknown command %d - connection closed", command);
    }
}

void LXRelay::processIncoming_(LXSocket* socket) {
    NSString* announced = socket->readString();
    if (announced && idTooLong(announced, "deposit")) return;
    NSObject* object = announced ? socket->readObject() : nullptr;
    if (!object) {
        LOG("deposit refused: no delta received");
        return;
    }
    enqueue_announced_socket_(object, announced, socket);
}

bool LXRelay::enqueue_announced_socket_(NSObject* object, NSString* announced, LXSocket* socket) {
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
    return socket->sendInt_(LXRelayProtocol::kAcknowledged);
}

void LXRelay::processOutgoing_(LXSocket* socket) {
    NSString* user = socket->readString();
    NSString* group = user ? socket->readString() : nullptr;
    if (!group) {
        LOG("collect refused: no user received");
        return;
    }
    if (idTooLong(user, "collect")) return;
    sendQueueOf_socket_(user, socket);
}

void LXRelay::sendQueueOf_socket_(NSString* user, LXSocket* socket) {
    NSMutableArray* queue = _index->objectsForKey_(user);
    socket->sendInt_(static_cast<int32_t>(queue->count()));
    while (queue->count() > 0) {
        NSAutoreleasePoolScope turn;
        int identifier = static_cast<NSNumber*>(queue->objectAtIndex_(0))->intValue();
        NSObject* delta = _container->queryById_class_(identifier, LXDelta::classObject());
        if (!delta) {
            // The record can't be read (the disk failed under it): it leaves
            // the queue, so that it doesn't hold back the rest of the user's
            // deltas, but not the store, where the next start finds it
            // again. The client, promised one more delta, reads the next one
            // in its place or a closed connection.
            LOG("stored delta %d could not be read - skipped", identifier);
            queue->removeObjectAtIndex_(0);
            continue;
        }
        socket->sendObject_(delta);
        if (socket->readInt() != LXRelayProtocol::kAcknowledged) {
            LOG("reception not committed");
            return;
        }
        // Each delete is its own durable operation: a relay stopped after
        // it never sends this delta again.
        queue->removeObjectAtIndex_(0);
        _container->delete_(delta);
    }
    // Nothing left for this user: the key goes too (the queue with it).
    _index->dict()->removeObjectForKey_(user);
}

NS_CLASS_BEGIN(LXRelay, NSObject)
    NS_METHOD(init)
    NS_CLASS_METHOD(relay)
    NS_CLASS_METHOD(defaultPort)
    NS_METHOD(run)
    NS_METHOD(runUntilDate_)
    NS_METHOD(runWithPort_)
    NS_METHOD(processIncoming_)
    NS_METHOD(processOutgoing_)
    NS_FIELD(_index)
    NS_FIELD(_lifetime)
    NS_FIELD(_container)
    NS_FIELD(_lock)
    NS_FIELD(_secure)
NS_CLASS_END(LXRelay)
