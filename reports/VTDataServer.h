// A small listening socket beside the client, started at login on a thread
// of its own: it takes one 32-bit number per connection (4 bytes in the
// machine's order, no cipher) and logs it. Nothing else in the system
// depends on it; a port that is in use costs only a log line.
#pragma once

#include <cstdint>

#include "foundation/NSObject.h"
#include "sync/LXSocket.h"

class VTDataServer : public NSObject {
    NS_DECLARE_CLASS(VTDataServer, NSObject)

public:
    void dealloc() override;
    // Serves one connection: logs "data server -- listening", waits for a
    // client, reads its number, logs "data server -- received: %d" and
    // closes the connection without an answer. False at once when the
    // server has no socket.
    bool listen();
    // Binds on all interfaces and listens with a backlog of 10. A port that
    // can't be bound leaves the server without a socket and logs "could
    // not initiate data server socket"; the server is answered all the
    // same.
    VTDataServer* initWithPort_(uint32_t port);

    // The body of the data server's thread: logs "starting data server",
    // makes a server on the port and serves connections one after the
    // other for as long as listen answers true, which is until the process
    // ends, or not at all when the port can't be bound.
    static void serveOnPort_(uint32_t port);

    // The socket, nil when the port could not be bound.
    LXSocket* server() { return _server; }

protected:
    ~VTDataServer() override = default;

private:
    Ref<LXSocket> _server;
};
