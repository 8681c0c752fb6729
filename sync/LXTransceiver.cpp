// The transceiver's check cycle, and how it stays out of the user's way.
//
// Two threads meet here. The user's thread commits a change: it holds the
// matrix's transaction lock and, still holding it, posts one delta per
// addressee (post:to:). The transceiver's thread runs check cycles: it talks
// to the relay over connections that may stall, and hands incoming deltas
// to processDelta: of the pool's delegate, which begins a transaction on a
// matrix and so wants the transaction lock. If the cycle held one lock from
// start to end and post:to: took the same lock, the two threads would take
// the two locks in opposite order (deadlock), and a Save would wait for a
// stalled relay (a hung user).
//
// So there are two locks, with one rule each:
//
// - `_lock`, the store lock (what `lock` and `unlock` take), guards the delta store,
//   the store of refused deltas, the user and the pool table. post:to: holds it for setAddressee:
//   and addDelta:. The cycle holds it only around single store steps (count, firstDelta,
//   removeDelta:) and lookups. Rule: nothing that can wait for the network, for a delegate or for
//   any other lock of the system is ever done while holding it. The container's own lock is the
//   only lock taken inside it, and that one is a leaf.
//
// - `_cycleMutex` makes check cycles exclusive (two threads calling
//   checkWithPort:host: would otherwise send the same delta twice). It is
//   held for the whole cycle, across network calls and processDelta:. Rule:
//   post:to: never takes it.
//
// Hence no cycle in the wait-for graph: the committing thread, holding the
// transaction lock, waits at most for `_lock`, whose holder waits for
// nothing but the disk; the cycle calls processDelta: (which may wait for
// the transaction lock) holding only `_cycleMutex`, which the committing
// thread never wants. processDelta: may itself post (same thread, `_lock`
// free). And no Save waits for the network: the longest a post waits is one
// container store.
//
// What the protocol requires is kept: the elements of each exchange go out
// and are read in the order docs/wire-format.md gives, a delta leaves the store only after
// the relay's 1 for it, and an incoming delta is acknowledged only after
// processDelta: answered true. What changes is that a delta posted during a
// cycle is stored at once instead of after the cycle; it may then go out in
// the same cycle. To keep a steady stream of posts from holding the receive
// phase back, the send phase sends at most as many deltas as it found
// waiting when it began; the rest go in the next cycle.
//
// Refused for good. A delta that this client can never apply (it doesn't
// decode as a delta, names no pool or one nobody registered here, or has
// no contents) is kept aside in the store of refused deltas and then
// acknowledged like any other: left at the relay it would come first in
// every collect and hold back everything behind it. Only once it is on
// disk there is it acknowledged. A delta the delegate answers false for is
// another matter: it may go through later, so it stays at the relay.
//
// Stalled connections end through LXSocket's receive time-out (and connect
// time-out), so a dead relay delays only the transceiver's own thread.
#include "sync/LXTransceiver.h"

#include <vector>

#include "foundation/NSArray.h"
#include "foundation/NSAutoreleasePool.h"
#include "foundation/NSData.h"
#include "foundation/NSString.h"
#include "foundation/NSThread.h"
#include "storage/NSArchiver.h"
#include "storage/NSUnarchiver.h"
#include "sync/LXCrypto.h"
#include "sync/LXRelayProtocol.h"
#include "sync/LXSocket.h"

namespace {

LXTransceiver* gDefaultTransceiver = nullptr;

NSString* wireKey() { return NSString::stringWithUTF8String_(LXRelayProtocol::kWireKey); }

const char* textOf(NSString* s) { return s ? s->UTF8String() : "(null)"; }

}  // namespace

void LXTransceiver::initialize() {
    if (gDefaultTransceiver) return;
    NSAutoreleasePoolScope pool;
    gDefaultTransceiver = LXTransceiver::alloc()->init();
}

LXTransceiver* LXTransceiver::defaultTransceiver() {
    classObject()->ensureInitialized();
    return gDefaultTransceiver;
}

LXTransceiver* LXTransceiver::init() {
    NSObject::init();
    _lock.adopt(static_cast<NSLock*>(NSLock::alloc()->init()));
    _deltaRepository.adopt(LXDeltaRepository::alloc()->init());
    _pools.adopt(
            static_cast<NSMutableDictionary*>(NSMutableDictionary::alloc()->initWithCapacity_(10)));
    return this;
}

void LXTransceiver::registerPool_(LXPool* pool) {
    if (!pool || !pool->poolName()) return;
    NSLockScope held(_lock);
    _pools->setObject_forKey_(pool, pool->poolName());
}

void LXTransceiver::setUser_(LXUser* user) {
    NSLockScope held(_lock);
    _user.set(user);
}

LXUser* LXTransceiver::user() {
    NSLockScope held(_lock);
    return NSAutorelease(NSRetain(_user.get()));
}

NSDictionary* LXTransceiver::pools() {
    NSLockScope held(_lock);
    NSMutableDictionary* copy = NSMutableDictionary::dictionaryWithCapacity_(10);
    NSArray* names = _pools->allKeys();
    for (uint32_t i = 0; i < names->count(); i++) {
        NSObject* name = names->objectAtIndex_(i);
        copy->setObject_forKey_(_pools->objectForKey_(name), name);
    }
    return copy;
}

void LXTransceiver::post_to_(LXDelta* delta, LXUser* user) {
    if (!delta) return;
    NSLockScope held(_lock);
    delta->setAddressee_(user);
    _deltaRepository->addDelta_(delta);
}

uint32_t LXTransceiver::deltaCount() {
    NSLockScope held(_lock);
    return _deltaRepository->count();
}

void LXTransceiver::lock() { _lock->lock(); }

void LXTransceiver::unlock() { _lock->unlock(); }

void LXTransceiver::setLifetime_(NSDate* date) {
    NSLockScope held(_lock);
    _lifetime.set(date);
}

bool LXTransceiver::lifetimeHasPassed() {
    NSLockScope held(_lock);
    return _lifetime && _lifetime->timeIntervalSinceNow() < 0;
}

void LXTransceiver::runUntilDate_(NSDate* date) {
    setLifetime_(date);
    run();
}

uint32_t LXTransceiver::relayPort() { return LXRelayProtocol::kDefaultPort; }

void LXTransceiver::run() { runWithPort_host_(relayPort(), "127.0.0.1"_ns); }

void LXTransceiver::runWithHost_(NSString* host) { runWithPort_host_(relayPort(), host); }

bool LXTransceiver::startWithHost_(NSString* host) {
    _host.set(host);
    // Neither target nor argument is retained by the thread: the default
    // transceiver is never released, and it holds the host.
    return NSThread::detachNewThread(NS_SEL("runWithHost:"), this, _host);
}

void LXTransceiver::runWithPort_host_(uint32_t port, NSString* host) {
    if (!user()) {
        LOG("not user has been assigned to the transceiver");
        return;
    }
    _running = true;
    for (;;) {
        bool last;
        {
            NSAutoreleasePoolScope pool;
            checkWithPort_host_(port, host);
            last = lifetimeHasPassed();
        }
        if (last) break;
        NSThread::sleepForTimeInterval_(_checkInterval);
    }
    _running = false;
}

void LXTransceiver::checkWithPort_host_(uint32_t port, NSString* host) {
    std::lock_guard<std::mutex> cycle(_cycleMutex);
    NSAutoreleasePoolScope pool;
    int counter = 1;
    int32_t waitingBefore = static_cast<int32_t>(deltaCount());
    bool sent = sendPhase(port, host, &counter);
    bool receivedAll = false;
    int32_t received = receivePhase(port, host, user(), &receivedAll);
    _lastCycleSent = waitingBefore - static_cast<int32_t>(deltaCount());
    _lastCycleReceived = received;
    _lastCycleComplete = sent && receivedAll;
}

// Answers false when the phase ended at a delta that did not get through.
// The phase sends the deltas it finds waiting when it begins, in the delta
// store's order (ids as text), taking that order once: picking each next
// delta afresh would sort every id of the store per delta sent, which a
// store of tens of thousands of deltas (a burst of changes among many
// users) can't afford. Deltas posted meanwhile go in the next cycle.
bool LXTransceiver::sendPhase(uint32_t port, NSString* host, int* counter) {
    Ref<NSArray> ids;
    {
        NSLockScope held(_lock);
        ids = retainRef(_deltaRepository->sortedIds());
    }
    const uint32_t budget = ids->count();
    // A plain deposit is one delta a connection; a secure one carries up
    // to kMaximumBatch, sent without waiting for each acknowledgement.
    const bool secure = secureIdentity() != nullptr;
    const uint32_t most = secure ? static_cast<uint32_t>(LXRelayProtocol::kMaximumBatch) : 1;
    for (uint32_t sent = 0; sent < budget;) {
        NSAutoreleasePoolScope round;
        std::vector<LXDelta*> batch;
        while (batch.size() < most && sent + batch.size() < budget) {
            LXDelta* delta;
            {
                NSLockScope held(_lock);
                delta = _deltaRepository->deltaWithId_(static_cast<NSString*>(
                        ids->objectAtIndex_(sent + static_cast<uint32_t>(batch.size()))));
            }
            if (!delta) break;
            batch.push_back(delta);
        }
        LOG("checking deltas - to be sent: %d", static_cast<int>(budget - sent));
        if (batch.empty()) {
            // A record of the store that can't be read: it is not dropped
            // (the disk may come back), and it holds back the others as a
            // refused delta would.
            LOG("stored delta could not be read");
            return false;
        }
        Ref<LXSocket> socket = adoptRef(LXSocket::alloc()->initWithEncryptionKey_(wireKey()));
        if (!socket || !socket->connect_port_(host, port)) return false;
        // A secure delta is sealed and signed already (LXSecure.h): its
        // deposit differs from the plain one in the command and the count.
        socket->sendInt_(secure ? LXRelayProtocol::kSecureDeposit : LXRelayProtocol::kDeposit);
        if (secure) socket->sendInt_(static_cast<int32_t>(batch.size()));
        for (LXDelta* delta : batch) {
            LOG("sending delta %d", (*counter)++);
            socket->sendString_(NSNil(delta->addressee(), &LXUser::uniqueId));
            socket->sendData_(NSArchiver::archivedDataWithRootObject_(delta));
        }
        for (LXDelta* delta : batch) {
            if (socket->readInt() != LXRelayProtocol::kAcknowledged) {
                LOG("reception not committed");
                return false;
            }
            // Its own operation: once removeDelta: returns, the removal is
            // on disk (one journal entry), so a stop after it never sends
            // the delta again.
            NSLockScope held(_lock);
            _deltaRepository->removeDelta_(delta);
        }
        sent += static_cast<uint32_t>(batch.size());
    }
    return true;
}

// Answers the number of deltas processed and acknowledged, also when the
// phase broke off; *all says whether every delta the relay announced was.
int32_t LXTransceiver::receivePhase(uint32_t port, NSString* host, LXUser* user, bool* all) {
    *all = false;
    Ref<LXSocket> socket = adoptRef(LXSocket::alloc()->initWithEncryptionKey_(wireKey()));
    if (!socket || !socket->connect_port_(host, port)) return 0;
    if (std::shared_ptr<const LXSecureIdentity> secure = secureIdentity()) {
        // The relay sends its challenge only to a certified user; with
        // nothing to sign the collect ends here.
        socket->sendInt_(LXRelayProtocol::kSecureCollect);
        socket->sendString_(NSNil(user, &LXUser::uniqueId));
        socket->sendData_(
                NSArchiver::archivedDataWithRootObject_(secure->certificate.dictionary()));
        std::string challenge = LXSecure::bytesOf(socket->readData());
        if (challenge.size() != LXRelayProtocol::kChallengeBytes) {
            LOG("the relay sent no challenge");
            return 0;
        }
        socket->sendData_(LXSecure::dataOf(
                LXCrypto::sign(LXSecure::collectText(secure->certificate.uniqueId, challenge),
                               secure->signSecret)));
    } else {
        socket->sendInt_(LXRelayProtocol::kCollect);
        socket->sendString_(NSNil(user, &LXUser::uniqueId));
        socket->sendString_(NSString::stringWithUTF8String_(LXRelayProtocol::kCollectGroup));
    }
    int32_t count = socket->readInt();
    LOG("should get %d delta(s)", count);
    // A count that can't be read (broken or closed connection) reads as 0.
    if (socket->isBroken()) return 0;
    int32_t processed = 0;
    for (int32_t i = 0; i < count; i++) {
        NSAutoreleasePoolScope round;
        if (!receiveOne(socket)) break;
        processed++;
    }
    *all = processed == count;
    return processed;
}

bool LXTransceiver::receiveOne(LXSocket* socket) {
    static const SEL processDelta = NSSelectorFromCString("processDelta:");
    NSData* data = socket->readData();
    if (!data) {
        // Nothing came (a broken connection): the relay keeps it.
        LOG("could not receive delta");
        return false;
    }
    LXDelta* delta = nullptr;
    {
        Ref<NSUnarchiver> unarchiver =
                NSMake<NSUnarchiver>(&NSUnarchiver::initForReadingWithData_, data);
        NSObject* object = NSAutorelease(NSRetain(unarchiver->decodeObject()));
        if (object && object->isKindOfClass_(LXDelta::classObject()))
            delta = static_cast<LXDelta*>(object);
    }
    // A delta that can never be applied here would come first again in
    // every cycle and hold back all behind it: it is kept aside and
    // acknowledged instead.
    if (NSString* reason = reasonToRefuse(delta)) {
        if (!keepAside(delta, data, reason)) return false;
    } else {
        LXPool* pool;
        {
            NSLockScope held(_lock);
            pool = static_cast<LXPool*>(
                    NSAutorelease(NSRetain(_pools->objectForKey_(delta->pool()->poolName()))));
        }
        // Called holding no lock of the transceiver's but the cycle's (see
        // the top of this file). A delegate that can't process deltas
        // refuses them; a refusal leaves the delta at the relay, to be
        // offered again.
        NSObject* delegate = NSNil(pool, &LXPool::delegate);
        bool accepted = delegate && delegate->respondsToSelector_(processDelta) &&
                        delegate->performSelector_withObject_(processDelta, delta) != nullptr;
        if (!accepted) {
            LOG("delegate has refused to process delta");
            return false;
        }
    }
    // Unsent, the relay keeps the delta and sends it again: delivered twice.
    return socket->sendInt_(LXRelayProtocol::kAcknowledged);
}

void LXTransceiver::setSecureIdentity(const LXSecureIdentity& identity) {
    std::lock_guard<std::mutex> held(_secureMutex);
    _secure = std::make_shared<const LXSecureIdentity>(identity);
}

std::shared_ptr<const LXSecureIdentity> LXTransceiver::secureIdentity() {
    std::lock_guard<std::mutex> held(_secureMutex);
    return _secure;
}

NSString* LXTransceiver::reasonToRefuse(LXDelta* delta) {
    if (!delta) return "not a delta"_ns;
    NSString* name = NSNil(delta->pool(), &LXPool::poolName);
    if (!name || name->length() == 0) return "no pool"_ns;
    bool registered;
    {
        NSLockScope held(_lock);
        registered = _pools->objectForKey_(name) != nullptr;
    }
    if (!registered) {
        LOG("pool %s not registered", textOf(name));
        return NSString::stringWithFormat_("pool %s not registered", textOf(name));
    }
    if (!delta->contents()) return "no contents"_ns;
    return nullptr;
}

bool LXTransceiver::keepAside(LXDelta* delta, NSData* archive, NSString* reason) {
    NSLockScope held(_lock);
    bool stored = refusedDeltas()->addDelta_archive_reason_(delta, archive, reason);
    if (stored) {
        LOG("delta kept aside in %s: %s: %s", LXRefusedDeltas::kContainerName, textOf(reason),
            delta ? textOf(delta->description()) : "(does not decode)");
    } else {
        LOG("delta could not be kept aside (%s) - not acknowledged", textOf(reason));
    }
    return stored;
}

bool LXTransceiver::refuseDelta_reason_(LXDelta* delta, NSString* reason) {
    if (!delta) return false;
    return keepAside(delta, NSArchiver::archivedDataWithRootObject_(delta), reason);
}

LXRefusedDeltas* LXTransceiver::refusedDeltas() {
    NSLockScope held(_lock);
    // Opened when first needed, so that an installation that never refused
    // a delta has no such files.
    if (!_refusedDeltas) _refusedDeltas.adopt(LXRefusedDeltas::alloc()->init());
    return NSAutorelease(NSRetain(_refusedDeltas.get()));
}

NSObject* LXTransceiver::performSelector_withObject_synchronized_(SEL sel, NSObject* object, bool) {
    return performSelector_withObject_(sel, object);
}

NSObject* LXTransceiver::performSelector_withObject_withObject_synchronized_(SEL sel,
                                                                             NSObject* object1,
                                                                             NSObject* object2,
                                                                             bool) {
    return performSelector_withObject_withObject_(sel, object1, object2);
}

NSObject* LXTransceiver::performSelector_toTarget_withObject_synchronized_(SEL sel,
                                                                           NSObject* target,
                                                                           NSObject* object, bool) {
    return target ? target->performSelector_withObject_(sel, object) : nullptr;
}

NSObject* LXTransceiver::performSelector_toTarget_withObject_withObject_synchronized_(
        SEL sel, NSObject* target, NSObject* object1, NSObject* object2, bool) {
    return target ? target->performSelector_withObject_withObject_(sel, object1, object2) : nullptr;
}

NS_CLASS_BEGIN(LXTransceiver, NSObject)
    NS_CLASS_METHOD(defaultTransceiver)
    NS_METHOD(init)
    NS_METHOD(registerPool_)
    NS_METHOD(setUser_)
    NS_METHOD(user)
    NS_METHOD(post_to_)
    NS_METHOD(lock)
    NS_METHOD(unlock)
    NS_METHOD(runUntilDate_)
    NS_METHOD(run)
    NS_METHOD(runWithHost_)
    NS_METHOD(runWithPort_host_)
    NS_METHOD(checkWithPort_host_)
    NS_METHOD(performSelector_withObject_synchronized_)
    NS_METHOD(performSelector_withObject_withObject_synchronized_)
    NS_METHOD(performSelector_toTarget_withObject_synchronized_)
    NS_METHOD(performSelector_toTarget_withObject_withObject_synchronized_)
    NS_METHOD(startWithHost_)
    NS_METHOD(setLifetime_)
    NS_METHOD(refuseDelta_reason_)
    NS_METHOD(refusedDeltas)
    NS_FIELD(_deltaRepository)
    NS_FIELD(_pools)
    NS_FIELD(_user)
    NS_FIELD(_lock)
    NS_FIELD(_lifetime)
NS_CLASS_END(LXTransceiver)
