// LXPool: a named channel of deltas. Only the name travels; the delegate,
// who takes in the pool's incoming deltas with processDelta:, stays local.
#pragma once

#include "foundation/NSObject.h"
#include "foundation/NSString.h"
#include "storage/LXDataKey.h"

class LXDelta;
class LXUser;

class LXPool : public NSObject {
    NS_DECLARE_CLASS(LXPool, NSObject)

public:
    // The name of the one pool the client replicates records through. The
    // relay accepts deltas of this pool only, since no addressee could
    // process any other.
    static constexpr const char* kReplicationPoolName = kLXDataKey;

    // Retains the name. The class form answers the pool autoreleased.
    LXPool* initWithName_(NSString* name);
    static LXPool* poolWithName_(NSString* name);
    // Retained; nil allowed. Must answer processDelta: with a boolean.
    void setDelegate_(NSObject* delegate);
    NSObject* delegate() { return _delegate; }
    NSString* poolName() { return _name; }
    // Hands delta and addressee to the default transceiver's post:to:.
    void post_to_(LXDelta* delta, LXUser* user);
    // An LXPool of an equal name.
    bool isEqual_(NSObject* other) override;
    // The name's hash, consistent with isEqual:.
    uint32_t hash() override;

    // Archive body: the name as one object. The delegate is never archived.
    void encodeWithCoder_(NSCoder* coder) override;
    NSObject* initWithCoder_(NSCoder* coder) override;

    LXPool() = default;

protected:
    ~LXPool() override = default;

private:
    Ref<NSString> _name;
    Ref<NSObject> _delegate;
};
