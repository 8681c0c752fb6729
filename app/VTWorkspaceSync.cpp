// The workspace's side of replication: what starts the transceiver.
#include "app/VTWorkspace.h"
#include "foundation/Foundation.h"
#include "sync/LXPool.h"
#include "sync/LXTransceiver.h"
#include "sync/LXUser.h"

void VTWorkspace::startTransceiver() {
    LXPool* pool = LXPool::alloc()->initWithName_("Rk2pWn"_ns);
    _pool.adopt(pool);
    pool->setDelegate_(this);
    LXTransceiver* transceiver = LXTransceiver::defaultTransceiver();
    transceiver->registerPool_(pool);
    transceiver->setUser_(LXUser::userWithString_(currentUserUniqueId()));
    // The relay's host: the whole file as text, trimmed. A missing file
    // gives an empty host, and every cycle then logs that it can't connect.
    NSData* bytes = NSData::dataWithContentsOfFile_("transceiver.txt"_ns);
    NSString* host = NSAutorelease(NSString::alloc()->initWithData_encoding_(bytes, 4))->trim();
    // The transceiver keeps the host and runs runWithHost: on a thread of
    // its own (a Win32 thread in the client).
    transceiver->startWithHost_(host);
}

NS_EXTEND_CLASS(VTWorkspace, Sync)
    NS_METHOD(startTransceiver)
NS_EXTEND_END
