// LXRelay: the store-and-forward server between clients. Clients deposit
// deltas addressed to other users (command 1) and collect those addressed
// to themselves (command 2), one TCP connection per command; the relay
// never connects to anyone. Every undelivered delta lives in the container
// "_relay_" of the working directory, so a restart loses nothing; the
// queues are derived from it at start. How the two ends of the wire meet is
// written at the top of LXRelay.cpp and in docs/wire-format.md.
//
// Many connections at once, on one thread: runWithPort: is an event loop
// (LXRelayLoop.cpp) that waits on every connection, reads and writes only
// what a socket can take at once, and hands whole requests to the store
// operations below. No client can hold another back: each turn of an
// exchange has a deadline, and what a client can make the relay keep is
// bounded (see LXRelayLoop.cpp).
#pragma once

#include <cstdint>

#include "foundation/NSDate.h"
#include "foundation/NSLock.h"
#include "foundation/NSObject.h"
#include "storage/LXContainer.h"
#include "structures/VTKeyedArrays.h"
#include "sync/LXDelta.h"
#include "sync/LXSecureRelay.h"

class LXRelay : public NSObject {
    NS_DECLARE_CLASS(LXRelay, NSObject)

public:
    // The name of the relay's container in the working directory.
    static constexpr const char* kContainerName = "_relay_";
    // The longest uniqueId, in bytes, that a deposit may name as addressee
    // and a collect as its user; longer ones are refused with a log line.
    // A uniqueId is the id of a user's record, a few dozen bytes, but the
    // socket lets strings of up to its maximum length through (16 MiB by
    // default), and the relay keeps the id as a queue key and inside every
    // delta it stores: a made-up id of a megabyte would cost a megabyte per
    // delta. 256 bytes leaves room for any id a client makes.
    static constexpr uint32_t kMaximumIdLength = 256;

    // Opens (or creates) "_relay_" and rebuilds the queues from it; logs
    // "%d delta(s) restored".
    LXRelay* init() override;
    // alloc, init, autorelease.
    static LXRelay* relay();
    // 8888.
    static uint32_t defaultPort();
    // runWithPort: with +defaultPort.
    void run();
    // Stores the date as the lifetime (retained) and sends run. The loop
    // looks at the lifetime after each connection: it ends after the first
    // connection that finds the date passed.
    void runUntilDate_(NSDate* date);
    // The event loop on the bind address (all local addresses unless set).
    // Port 0 takes any free port; "listening on port %d" names the port
    // actually bound, once the relay is listening. A port that can't be
    // bound or listened on logs "socket not bound" and returns (see
    // boundPort). With a lifetime, the loop ends within a second of it.
    void runWithPort_(uint32_t port);

    // ---- The store side of the two commands, for the loop and tests ----

    // Command 1 with its elements read: the announced uniqueId and the
    // decoded object (nil when none came). Checks that it is a delta the
    // addressee can process, stores it and queues it; answers whether it
    // may be acknowledged (in a batch of the container: once the batch has
    // ended well). Every refusal is logged.
    bool depositObject_announced_(NSObject* object, NSString* announced);
    // The head of a user's queue for a collect: the delta (autoreleased,
    // known to the container) and its id, or nil when the queue is empty.
    // A head whose record can't be read leaves the queue with a log line.
    LXDelta* headOfQueue_identifier_(NSString* user, int* identifier);
    // The client has acknowledged the delta `identifier`, the head of the
    // user's queue: it leaves the queue, and its record is deleted (its own
    // durable operation).
    void delivered_identifier_user_(LXDelta* delta, int identifier, NSString* user);
    // A collect has ended: a user with nothing left waiting is forgotten.
    void forgetIfEmpty_(NSString* user);
    // True, with a log line, when the id is longer than the relay takes.
    static bool idTooLong(uint32_t bytes, const char* what);

    // With a secure relay set, the loop serves the secure commands only and
    // has it judge their elements (LXSecureRelay.h): only signed deposits
    // and authenticated collects are served.
    void setSecureRelay_(LXSecureRelay* secure) { _secure.set(secure); }
    LXSecureRelay* secureRelay() { return _secure; }

    // ---- For tools and tests ---------------------------------------------

    VTKeyedArrays* index() { return _index; }
    LXContainer* container() { return _container; }
    // The port of the last runWithPort: once bound and listening; 0 while
    // none runs yet or when the bind failed (vantor-relay's exit status).
    uint32_t boundPort() const { return _boundPort; }
    // True when the last runWithPort: could not bind or listen.
    bool bindFailed() const { return _bindFailed; }
    // The dotted IPv4 address runWithPort: listens on; nil: all.
    void setBindAddress_(NSString* address) { _bindAddress.set(address); }

    // Whether a lifetime was set and has passed.
    bool lifetimeHasPassed();

    LXRelay() = default;

protected:
    ~LXRelay() override = default;

private:
    Ref<VTKeyedArrays> _index;
    Ref<NSDate> _lifetime;
    Ref<LXContainer> _container;
    Ref<NSLock> _lock;
    Ref<NSString> _bindAddress;
    Ref<LXSecureRelay> _secure;
    uint32_t _boundPort = 0;
    bool _bindFailed = false;
};
