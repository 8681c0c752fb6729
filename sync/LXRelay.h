// LXRelay: the store-and-forward server between clients. Clients deposit
// deltas addressed to other users (command 1) and collect those addressed
// to themselves (command 2), one TCP connection per command; the relay
// never connects to anyone. Every undelivered delta lives in the container
// "_relay_" of the working directory, so a restart loses nothing; the
// queues are derived from it at start. How the two ends of the wire meet is
// written at the top of LXRelay.cpp and in docs/wire-format.md.
//
// One thread, one connection at a time. A client that stops in the middle
// of an exchange holds the others back for at most LXSocket's receive
// time-out per element (set for the process with
// LXSocket::setDefaultReceiveTimeout: before run).
#pragma once

#include <cstdint>

#include "foundation/NSDate.h"
#include "foundation/NSLock.h"
#include "foundation/NSObject.h"
#include "storage/LXContainer.h"
#include "structures/VTKeyedArrays.h"
#include "sync/LXSecureRelay.h"
#include "sync/LXSocket.h"

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
    // The accept loop on the bind address (all local addresses unless set).
    // Port 0 takes any free port;
    // "listening on port %d" names the port actually bound. A port that
    // can't be bound or listened on logs "socket not bound" and returns
    // (see boundPort).
    void runWithPort_(uint32_t port);
    // Command 1 on an accepted connection whose command int has been read:
    // reads the addressee's uniqueId and the delta, stores it, queues it
    // and acknowledges with 1 once it is on disk. A refused or unstored
    // delta gets no acknowledgement.
    void processIncoming_(LXSocket* socket);
    // Command 2: reads the collecting user's uniqueId and the group string,
    // sends the count of its queue, then each delta in turn, deleting each
    // only after the client's 1 for it. A queue emptied that way is
    // forgotten: the index keeps only users with deltas waiting.
    void processOutgoing_(LXSocket* socket);

    // The tail of a deposit once its delta has been read: checks it against
    // the announced addressee, stores and queues it, and acknowledges it.
    // False when it was refused or not stored (no acknowledgement sent).
    bool enqueue_announced_socket_(NSObject* object, NSString* announced, LXSocket* socket);
    // The tail of a collect once its user is known: the count, then the
    // deltas of the user's queue in turn.
    void sendQueueOf_socket_(NSString* user, LXSocket* socket);
    // With a secure relay set, every command goes to it (LXSecureRelay.h):
    // only signed deposits and authenticated collects are served.
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

    LXRelay() = default;

protected:
    ~LXRelay() override = default;

private:
    bool lifetimeHasPassed();
    void serve(LXSocket* connection);

    Ref<VTKeyedArrays> _index;
    Ref<NSDate> _lifetime;
    Ref<LXContainer> _container;
    Ref<NSLock> _lock;
    Ref<NSString> _bindAddress;
    Ref<LXSecureRelay> _secure;
    uint32_t _boundPort = 0;
    bool _bindFailed = false;
};
