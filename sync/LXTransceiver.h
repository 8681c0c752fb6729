// LXTransceiver: the client's end of replication. A background thread polls
// the relay every few seconds: it pushes out the deltas waiting in the
// delta store, one connection per delta, then collects what the relay holds
// for the current user and hands each delta to the delegate of its pool
// (processDelta:). One transceiver per process: +defaultTransceiver.
//
// Locking is explained at the top of LXTransceiver.cpp. In short: post:to:
// never waits for the network or for a delegate, and a check cycle never
// holds the lock that post:to: takes while it talks to the relay or calls
// processDelta:.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "foundation/NSDate.h"
#include "foundation/NSDictionary.h"
#include "foundation/NSLock.h"
#include "foundation/NSObject.h"
#include "sync/LXDelta.h"
#include "sync/LXDeltaRepository.h"
#include "sync/LXPool.h"
#include "sync/LXRefusedDeltas.h"
#include "sync/LXSecure.h"
#include "sync/LXSocket.h"
#include "sync/LXUser.h"

class LXTransceiver : public NSObject {
    NS_DECLARE_CLASS(LXTransceiver, NSObject)

public:
    // Seconds between the end of one cycle and the start of the next.
    static constexpr double kCheckInterval = 5.0;

    // Creates the one instance (and so opens "_deltas_" in the working
    // directory) when the class is first used.
    static void initialize();
    // That instance; never released.
    static LXTransceiver* defaultTransceiver();
    // Creates the lock, the delta repository and the pool table.
    LXTransceiver* init() override;
    // Enters the pool under its name; a later pool of the same name
    // replaces it.
    void registerPool_(LXPool* pool);
    void setUser_(LXUser* user);
    // Autoreleased.
    LXUser* user();
    // Gives the delta its addressee and stores it. Waits only for other
    // posts and the cycle's short store steps, never for the network.
    void post_to_(LXDelta* delta, LXUser* user);
    // The store lock (see LXTransceiver.cpp): excludes posts and the
    // cycle's store steps, not the whole cycle.
    void lock();
    void unlock();
    // Stores the date as the lifetime and runs the loop on this thread.
    void runUntilDate_(NSDate* date);
    // runWithPort:host: with the relay's default port and 127.0.0.1.
    void run();
    // runWithPort:host: with the relay's default port: the thread's entry.
    void runWithHost_(NSString* host);
    // The loop: a cycle at once, then one every kCheckInterval seconds
    // after the previous one ended, until the lifetime has passed. Logs
    // "not user has been assigned to the transceiver" and returns at once
    // without a user.
    void runWithPort_host_(uint32_t port, NSString* host);
    // One check cycle: the send phase, then the receive phase.
    void checkWithPort_host_(uint32_t port, NSString* host);
    // The last argument has no effect: these call at once, without a lock.
    NSObject* performSelector_withObject_synchronized_(SEL sel, NSObject* object,
                                                       bool synchronized);
    NSObject* performSelector_withObject_withObject_synchronized_(SEL sel, NSObject* object1,
                                                                  NSObject* object2,
                                                                  bool synchronized);
    NSObject* performSelector_toTarget_withObject_synchronized_(SEL sel, NSObject* target,
                                                                NSObject* object,
                                                                bool synchronized);
    NSObject* performSelector_toTarget_withObject_withObject_synchronized_(
            SEL sel, NSObject* target, NSObject* object1, NSObject* object2, bool synchronized);

    // ---- For tools and tests ---------------------------------------------

    // Retains the host and detaches the thread that runs runWithHost: with
    // it (a platform thread: a Win32 thread in the client). False if no
    // thread could be started. What the workspace's startTransceiver calls.
    bool startWithHost_(NSString* host);
    LXDeltaRepository* deltaRepository() { return _deltaRepository; }
    // Autoreleased copy of the pool table.
    NSDictionary* pools();
    // Replaces the lifetime from any thread; the loop ends after the cycle
    // that finds it passed. nil: no end.
    void setLifetime_(NSDate* date);
    // Keeps an incoming delta aside for good in the store of refused
    // deltas ("_refused_"), with the reason, and logs it. For a delta that
    // can never be applied here: whoever calls this answers processDelta:
    // true afterwards, so that the relay lets it go and the deltas behind
    // it come. False when it could not be stored (then it must not be
    // acknowledged). The receive phase does the same itself for deltas
    // that don't decode, name no pool or an unregistered one, or carry no
    // contents.
    bool refuseDelta_reason_(LXDelta* delta, NSString* reason);
    // The store of refused deltas, opened on first use; autoreleased.
    LXRefusedDeltas* refusedDeltas();
    // Tests shorten the pause between cycles.
    void setCheckInterval_(double seconds) { _checkInterval = seconds; }
    // The outgoing deltas waiting in the delta store.
    uint32_t deltaCount();
    // What the last check cycle did: the deltas that left the store, the
    // incoming deltas processed and acknowledged (also those of a receive
    // phase that broke off later), and whether both phases
    // went through to their ends (the relay reached, nothing refused,
    // nothing broken off). A tool that runs cycles itself stops when a
    // complete cycle moved nothing.
    int32_t lastCycleSent() const { return _lastCycleSent.load(); }
    int32_t lastCycleReceived() const { return _lastCycleReceived.load(); }
    bool lastCycleComplete() const { return _lastCycleComplete.load(); }
    // The secure protocol (LXSecureRelay.h): with an identity set, each
    // deposit is signed with its certificate and each collect answers the
    // relay's challenge. The deltas themselves are sealed by whoever posts
    // them (the workspace). Set once at login, before the thread starts.
    void setSecureIdentity(const LXSecureIdentity& identity);
    // nullptr in plain mode.
    std::shared_ptr<const LXSecureIdentity> secureIdentity();
    // True while runWithPort:host: runs.
    bool isRunning() const { return _running.load(); }
    // The relay's port (LXRelayProtocol::kDefaultPort).
    static uint32_t relayPort();

    LXTransceiver() = default;

protected:
    ~LXTransceiver() override = default;

private:
    bool sendPhase(uint32_t port, NSString* host, int* counter);
    int32_t receivePhase(uint32_t port, NSString* host, LXUser* user, bool* all);
    // Reads, applies (or keeps aside) and acknowledges one delta of a
    // collect; false when the phase must end there.
    bool receiveOne(LXSocket* socket);
    // Why an incoming delta can never be applied here, or nil.
    NSString* reasonToRefuse(LXDelta* delta);
    bool keepAside(LXDelta* delta, NSData* archive, NSString* reason);
    bool lifetimeHasPassed();

    Ref<LXDeltaRepository> _deltaRepository;
    Ref<NSMutableDictionary> _pools;
    Ref<LXUser> _user;
    Ref<NSLock> _lock;
    Ref<NSDate> _lifetime;
    Ref<NSString> _host;
    Ref<LXRefusedDeltas> _refusedDeltas;
    // One cycle at a time; post:to: never takes it.
    std::mutex _cycleMutex;
    std::mutex _secureMutex;
    std::shared_ptr<const LXSecureIdentity> _secure;
    std::atomic<double> _checkInterval{kCheckInterval};
    std::atomic<bool> _running{false};
    std::atomic<int32_t> _lastCycleSent{0};
    std::atomic<int32_t> _lastCycleReceived{0};
    std::atomic<bool> _lastCycleComplete{false};
};
