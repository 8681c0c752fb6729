#include "reports/VTDataServer.h"

#include "foundation/NSAutoreleasePool.h"

void VTDataServer::dealloc() {
    _server = nullptr;
    NSObject::dealloc();
}

VTDataServer* VTDataServer::initWithPort_(uint32_t port) {
    NSObject::init();
    auto* socket = static_cast<LXSocket*>(LXSocket::alloc()->init());
    if (!socket || !socket->bindToPort_(port)) {
        NSRelease(socket);
        LOG("could not initiate data server socket");
        return this;
    }
    socket->listen_(10);
    _server.adopt(socket);
    return this;
}

bool VTDataServer::listen() {
    if (!_server) return false;
    LOG("data server -- listening");
    Ref<LXSocket> client = adoptRef(_server->accept());
    int32_t number = client ? client->readInt() : 0;
    LOG("data server -- received: %d", number);
    return true;
}

void VTDataServer::serveOnPort_(uint32_t port) {
    LOG("starting data server");
    Ref<VTDataServer> server = adoptRef(VTDataServer::alloc()->initWithPort_(port));
    for (;;) {
        NSAutoreleasePoolScope pool;
        if (!server->listen()) break;
    }
}

NS_CLASS_BEGIN(VTDataServer, NSObject)
    NS_METHOD(dealloc)
    NS_METHOD(listen)
    NS_METHOD(initWithPort_)
    NS_CLASS_METHOD(serveOnPort_)
    NS_FIELD(_server)
NS_CLASS_END(VTDataServer)
