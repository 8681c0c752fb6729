// LXRefusedDeltas: the incoming deltas this client can never apply, kept
// aside in the container "_refused_" of the working directory. A delta the
// relay delivers that doesn't decode, names no pool or a pool nobody here
// registered, or carries no contents would hold back every later delta to
// this user if it stayed at the relay; the transceiver stores it here with
// the reason, acknowledges it, and the queue moves on. Nothing reads the
// store but people (vantor-admin deltas --refused).
//
// Not the road of a delta that processDelta: answers false for: that one
// stays at the relay and comes again.
#pragma once

#include <cstdint>

#include "foundation/NSDate.h"
#include "foundation/NSObject.h"
#include "foundation/NSString.h"
#include "storage/LXContainer.h"

class LXDelta;
class NSData;

// One refused delta: why, when, the delta as far as it decoded (nil when
// it didn't), and the archive as it arrived, so that nothing is lost even
// when it doesn't decode.
class LXRefusedDelta : public NSObject {
    NS_DECLARE_CLASS(LXRefusedDelta, NSObject)

public:
    // Retains the arguments; `delta` or `archive` may be nil. The time is
    // now.
    LXRefusedDelta* initWithDelta_archive_reason_(LXDelta* delta, NSData* archive,
                                                  NSString* reason);
    LXDelta* delta() { return _delta; }
    NSData* archive() { return _archive; }
    NSString* reason() { return _reason; }
    NSDate* refused() { return _refused; }
    // "reason", "refused", "delta", "archive": the stored form.
    NSArray* attributeKeys() override;

    LXRefusedDelta() = default;

protected:
    ~LXRefusedDelta() override = default;

private:
    Ref<NSString> _reason;
    Ref<NSDate> _refused;
    Ref<LXDelta> _delta;
    Ref<NSData> _archive;
};

class LXRefusedDeltas : public NSObject {
    NS_DECLARE_CLASS(LXRefusedDeltas, NSObject)

public:
    static constexpr const char* kContainerName = "_refused_";

    // Opens (or creates) "_refused_" in the working directory.
    LXRefusedDeltas* init() override;
    // Stores one refused delta; false when the store failed (then the
    // delta must not be acknowledged: it stays at the relay).
    bool addDelta_archive_reason_(LXDelta* delta, NSData* archive, NSString* reason);
    // The ids of the stored entries in the order they were refused.
    NSArray* sortedIds();
    // The entry of one of those ids, autoreleased; nil when it can't be
    // read.
    LXRefusedDelta* refusedDeltaWithId_(NSString* identifier);
    uint32_t count();

    LXRefusedDeltas() = default;

protected:
    ~LXRefusedDeltas() override = default;

private:
    Ref<LXContainer> _container;
};
