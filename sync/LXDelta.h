// LXDelta: one change on its way from one user to one other user. It names
// its pool, sender and addressee and carries an opaque contents object (a
// dictionary, see the workspace's replication). Stored in the delta store
// through its attributeKeys; archived whole for the wire.
#pragma once

#include "foundation/NSObject.h"
#include "sync/LXPool.h"
#include "sync/LXUser.h"

class NSArray;

class LXDelta : public NSObject {
    NS_DECLARE_CLASS(LXDelta, NSObject)

public:
    // Retains the three arguments; the addressee stays nil until posted.
    LXDelta* initWithPool_sender_contents_(LXPool* pool, LXUser* sender, NSObject* contents);
    // The same, autoreleased.
    static LXDelta* deltaWithPool_sender_contents_(LXPool* pool, LXUser* sender,
                                                   NSObject* contents);
    // Replaces the addressee unless it is the same object.
    void setAddressee_(LXUser* user);
    LXUser* addressee() { return _to; }
    LXUser* sender() { return _from; }
    LXPool* pool() { return _pool; }
    NSObject* contents() { return _contents; }
    // Stores the delta for `user` through its pool (and so the transceiver),
    // unless `user` is the sender: then it logs "cannot post delta to the
    // same user as sender" and stores nothing.
    void postTo_(LXUser* user);
    // "(pool) from -> to (ContentsClass)", autoreleased.
    NSString* description() override;
    // "pool", "from", "to", "contents": the stored form.
    NSArray* attributeKeys() override;

    // Archive body: pool, from, to, contents as four objects.
    void encodeWithCoder_(NSCoder* coder) override;
    NSObject* initWithCoder_(NSCoder* coder) override;

    LXDelta() = default;

protected:
    ~LXDelta() override = default;

private:
    Ref<LXPool> _pool;
    Ref<LXUser> _from;
    Ref<LXUser> _to;
    Ref<NSObject> _contents;
};
